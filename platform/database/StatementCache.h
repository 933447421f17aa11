#pragma once

#include <QHash>
#include <QString>
#include <list>
#include <memory>

#include "SqliteStatement.h"

struct sqlite3;

// Prepared statements of one connection, compiled once per distinct text and kept in
// least-recently-used order. Not thread-safe: the owning DBManager serialises access.
class StatementCache {
public:
    explicit StatementCache(int capacity);
    ~StatementCache();

    StatementCache(const StatementCache&) = delete;
    StatementCache& operator=(const StatementCache&) = delete;

    void SetConnection(sqlite3* connection);

    // The compiled statement for `text`, pinned until Release(). On failure returns null with
    // `rc` holding the SQLite result code; `multiple` is set when the text holds more than one
    // statement (nothing is compiled then). A text holding no statement gives SQLITE_MISUSE.
    SqliteStatement* Acquire(const QString& text, int& rc, bool& multiple);

    // Where a text's statement was found last, kept by a caller that asks for the same text at
    // every scan: valid while no statement has left the cache since, and then found without
    // hashing the text.
    struct Hint;
    SqliteStatement* Acquire(const QString& text, Hint& hint, int& rc, bool& multiple);
    // Resets the statement and allows it to be evicted again.
    void Release(SqliteStatement* statement);
    // Finalises every statement; none may be pinned.
    void Clear();
    int Size() const { return static_cast<int>(entries.size()); }

    // True when `tail` holds nothing but blanks, semicolons and comments.
    static bool IsOnlyTrivia(const char* tail);

private:
    struct Entry {
        std::unique_ptr<SqliteStatement> statement;  // pinned while lent out
    };
    using EntryList = std::list<Entry>;

public:
    struct Hint {
        EntryList::iterator entry;
        quint64 generation = 0;  // none
    };

private:
    void evictIfFull();

    sqlite3* connection = nullptr;
    int capacity;
    EntryList entries;       // most recently used first
    quint64 generation = 1;  // moves on whenever a statement leaves the cache
    QHash<QString, EntryList::iterator> index;
};
