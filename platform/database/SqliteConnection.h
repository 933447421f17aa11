#pragma once

// Internal to the database layer: the SQLite connection of one DBManager.

#include <QString>

struct sqlite3;
class ChangeTracker;
class QueryLimits;

// Owns one SQLite connection: opened by Open, closed by Close or the destructor, never copied.
// Open sets it up as every operation of this layer relies on: extended result codes, double
// quotes for identifiers only, WAL with durable commits, a small page cache and no memory
// mapping, statement journals in memory, the query limits, the Unicode functions and the
// change hook. Guarded by the DBManager's mutex.
class SqliteConnection {
public:
    // How long a statement waits for another process's lock before it fails with SQLITE_BUSY.
    static constexpr int busyTimeoutMs = 5000;

    SqliteConnection() = default;
    ~SqliteConnection() { Close(); }

    SqliteConnection(const SqliteConnection&) = delete;
    SqliteConnection& operator=(const SqliteConnection&) = delete;

    // Opens `path` for reading and writing, creating a missing file, or (`readOnly`) for
    // reading only, leaving the journal mode as the file has it. Returns an SQLite result code;
    // on failure nothing stays open and `error` says why.
    int Open(const QString& path, bool readOnly, QueryLimits& limits, ChangeTracker& changes,
             QString& error);
    void Close();

    bool IsOpen() const { return handle != nullptr; }
    sqlite3* Handle() const { return handle; }
    // Runs statements that return no rows (pragmas, transaction control).
    int Exec(const char* sql);

private:
    sqlite3* handle = nullptr;
};
