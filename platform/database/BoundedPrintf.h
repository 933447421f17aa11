#pragma once

// Internal to the database layer: printf() and format() with bounded widths.

struct sqlite3;

// SQLite's printf() ignores the value-length limit while it counts out the precision of a %c:
// printf('%.*c', 1000000000, 'x') spends seconds in one call, where no time limit can reach
// it. This replaces printf() and format() on a connection with a check of every width and
// precision (written or passed for "*") against the value-length limit; calls that pass it are
// formatted by SQLite's own printf() on a private in-memory connection, so results stay
// exactly SQLite's. Owned by the connection's QueryLimits; used under the DBManager's mutex.
class BoundedPrintf {
public:
    BoundedPrintf() = default;
    ~BoundedPrintf();
    BoundedPrintf(const BoundedPrintf&) = delete;
    BoundedPrintf& operator=(const BoundedPrintf&) = delete;

    // Registers the replacements on `connection`. Returns an SQLite result code.
    int Register(sqlite3* connection);

private:
    static void call(struct sqlite3_context* context, int argc, struct sqlite3_value** argv);
    struct sqlite3_stmt* formatter(int argc);

    sqlite3* delegate = nullptr;
    struct sqlite3_stmt* statements[33] = {};
};
