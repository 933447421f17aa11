#include "SqliteConnection.h"

#include <sqlite3.h>

#include "ChangeTracker.h"
#include "QueryLimits.h"
#include "UnicodeSqlFunctions.h"

int SqliteConnection::Open(const QString& path, bool readOnly, QueryLimits& limits,
                           ChangeTracker& changes, QString& error) {
    Close();
    const int access = readOnly ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
    int rc =
        sqlite3_open_v2(path.toUtf8().constData(), &handle, access | SQLITE_OPEN_NOMUTEX, nullptr);
    if (rc == SQLITE_OK) {
        if (readOnly) {
            // A reader never writes the file, not even a checkpoint when it closes last.
            sqlite3_db_config(handle, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
        }
        sqlite3_extended_result_codes(handle, 1);
        // Double quotes name identifiers only: a misspelt column must never become a text value.
        sqlite3_db_config(handle, SQLITE_DBCONFIG_DQS_DML, 0, nullptr);
        sqlite3_db_config(handle, SQLITE_DBCONFIG_DQS_DDL, 0, nullptr);
        // No statement may write the schema's own records or reach into the file's pages.
        sqlite3_db_config(handle, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
        sqlite3_busy_timeout(handle, busyTimeoutMs);
        changes.Attach(handle);
        rc = limits.Install(handle);
    }
    if (rc == SQLITE_OK) {
        // Reading the schema first tells a file that is not a database before anything is
        // written.
        rc = Exec("PRAGMA schema_version");
    }
    if (rc == SQLITE_OK && !readOnly) {
        rc = Exec("PRAGMA journal_mode = WAL");
    }
    for (const char* pragma : {
             "PRAGMA synchronous = FULL",
             // A bounded page cache rather than a mapped file: every mapped page a search or a
             // scan touches would stay in the register's resident memory.
             "PRAGMA mmap_size = 0",
             "PRAGMA cache_size = -4096",
             // Statement journals in memory: inside a long transaction SQLite otherwise writes
             // the pages every statement touches to a temporary file, which cost a price list
             // import most of its time (and would wear the register's flash).
             "PRAGMA temp_store = MEMORY",
         }) {
        if (rc == SQLITE_OK) {
            rc = Exec(pragma);
        }
    }
    if (rc == SQLITE_OK) {
        rc = UnicodeSqlFunctions::Register(handle, &limits);
    }
    if (rc != SQLITE_OK) {
        error = handle ? QString::fromUtf8(sqlite3_errmsg(handle))
                       : QString::fromUtf8(sqlite3_errstr(rc));
        Close();
    }
    return rc;
}

void SqliteConnection::Close() {
    if (handle) {
        sqlite3_close_v2(handle);
        handle = nullptr;
    }
}

int SqliteConnection::Exec(const char* sql) {
    return sqlite3_exec(handle, sql, nullptr, nullptr, nullptr);
}
