#include "SqliteTransaction.h"

#include <sqlite3.h>

#include "SqliteConnection.h"

namespace {

int exec(sqlite3* connection, const char* sql) {
    return sqlite3_exec(connection, sql, nullptr, nullptr, nullptr);
}

}  // namespace

SqliteTransaction::~SqliteTransaction() {
    if (active) {
        Rollback();
    }
}

int SqliteTransaction::Begin() {
    nested = sqlite3_get_autocommit(connection) == 0;
    // IMMEDIATE takes the write lock at once: a write that waits for another process waits
    // here, before it has read anything that could change meanwhile.
    const int rc = exec(connection, nested ? "SAVEPOINT dbmanager_write" : "BEGIN IMMEDIATE");
    active = rc == SQLITE_OK;
    return rc;
}

int SqliteTransaction::TryBegin() {
    if (sqlite3_get_autocommit(connection) == 0) {
        return Begin();  // a savepoint of an open write: the lock is already this connection's
    }
    sqlite3_busy_timeout(connection, 0);
    const int rc = Begin();
    sqlite3_busy_timeout(connection, SqliteConnection::busyTimeoutMs);
    return rc;
}

int SqliteTransaction::Commit() {
    const int rc = exec(connection, nested ? "RELEASE dbmanager_write" : "COMMIT");
    if (rc == SQLITE_OK) {
        active = false;
    }
    return rc;
}

int SqliteTransaction::Rollback() {
    active = false;
    if (nested) {
        return exec(connection, "ROLLBACK TO dbmanager_write; RELEASE dbmanager_write");
    }
    // SQLite may have rolled back already (a full disk, an interrupt): nothing is left to undo.
    if (sqlite3_get_autocommit(connection) != 0) {
        return SQLITE_OK;
    }
    return exec(connection, "ROLLBACK");
}
