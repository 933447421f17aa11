#pragma once

// Internal to the database layer: the one way it makes several statements one write.

struct sqlite3;

// A write made of several statements on one connection: BEGIN IMMEDIATE, or a savepoint when a
// transaction is already open (a multi-row write inside BeginTransaction undoes only itself).
// Rolls back in its destructor unless committed, so no path can leave it open. Not copyable;
// used under the DBManager's mutex.
class SqliteTransaction {
public:
    explicit SqliteTransaction(sqlite3* connection) : connection(connection) {}
    ~SqliteTransaction();

    SqliteTransaction(const SqliteTransaction&) = delete;
    SqliteTransaction& operator=(const SqliteTransaction&) = delete;

    // Each returns an SQLite result code.
    int Begin();
    // Begin without waiting: SQLITE_BUSY at once while another connection holds the write lock.
    int TryBegin();
    int Commit();
    int Rollback();
    // Begun and neither committed nor rolled back.
    bool IsActive() const { return active; }

private:
    sqlite3* connection;
    bool active = false;
    bool nested = false;
};
