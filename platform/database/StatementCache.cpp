#include "StatementCache.h"

#include <sqlite3.h>

StatementCache::StatementCache(int capacity) : capacity(capacity) {}

StatementCache::~StatementCache() {
    Clear();
}

void StatementCache::SetConnection(sqlite3* newConnection) {
    Clear();
    connection = newConnection;
}

SqliteStatement* StatementCache::Acquire(const QString& text, int& rc, bool& multiple) {
    multiple = false;
    auto found = index.find(text);
    if (found != index.end()) {
        entries.splice(entries.begin(), entries, found.value());
        Entry& entry = entries.front();
        entry.statement->Pin();
        rc = SQLITE_OK;
        return entry.statement.get();
    }
    if (!connection) {
        rc = SQLITE_MISUSE;
        return nullptr;
    }
    const QByteArray utf8 = text.toUtf8();
    sqlite3_stmt* handle = nullptr;
    const char* tail = nullptr;
    rc = sqlite3_prepare_v3(connection, utf8.constData(), utf8.size() + 1,
                            SQLITE_PREPARE_PERSISTENT, &handle, &tail);
    if (rc != SQLITE_OK) {
        sqlite3_finalize(handle);
        return nullptr;
    }
    if (!handle) {
        rc = SQLITE_MISUSE;
        return nullptr;
    }
    if (tail && !IsOnlyTrivia(tail)) {
        sqlite3_finalize(handle);
        multiple = true;
        rc = SQLITE_MISUSE;
        return nullptr;
    }
    evictIfFull();
    entries.push_front(Entry{std::make_unique<SqliteStatement>(handle, text)});
    entries.front().statement->Pin();
    index.insert(text, entries.begin());
    return entries.front().statement.get();
}

SqliteStatement* StatementCache::Acquire(const QString& text, Hint& hint, int& rc, bool& multiple) {
    if (hint.generation == generation) {
        multiple = false;
        rc = SQLITE_OK;
        entries.splice(entries.begin(), entries, hint.entry);
        hint.entry->statement->Pin();
        return hint.entry->statement.get();
    }
    SqliteStatement* statement = Acquire(text, rc, multiple);
    if (statement) {
        hint.entry = entries.begin();
        hint.generation = generation;
    }
    return statement;
}

void StatementCache::Release(SqliteStatement* statement) {
    if (!statement) {
        return;
    }
    statement->Reset();
    statement->Unpin();
}

void StatementCache::Clear() {
    ++generation;
    index.clear();
    entries.clear();
}

void StatementCache::evictIfFull() {
    for (auto it = entries.end();
         static_cast<int>(entries.size()) >= capacity && it != entries.begin();) {
        --it;
        if (!it->statement->IsPinned()) {
            index.remove(it->statement->Text());
            it = entries.erase(it);
            ++generation;
        }
    }
}

bool StatementCache::IsOnlyTrivia(const char* tail) {
    const char* p = tail;
    while (*p) {
        if (*p == ' ' || *p == '\t' || *p == '\n' || *p == '\r' || *p == '\f' || *p == '\v' ||
            *p == ';') {
            ++p;
        } else if (p[0] == '-' && p[1] == '-') {
            while (*p && *p != '\n') {
                ++p;
            }
        } else if (p[0] == '/' && p[1] == '*') {
            p += 2;
            while (*p && !(p[0] == '*' && p[1] == '/')) {
                ++p;
            }
            if (*p) {
                p += 2;
            }
        } else {
            return false;
        }
    }
    return true;
}
