#pragma once

#include <QSharedPointer>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <functional>
#include <memory>

#include "DBData.h"
#include "DBDirectQueryResult.h"
#include "DBTable.h"
#include "DataBaseManagerGlobal.h"
#include "eDBOperationResult.h"

// One open SQLite database file.
//
// Opening creates a missing file with the full schema of its kind and migrates an older file
// to the newest schema (PRAGMA user_version holds the version). The journal is WAL and every
// commit is durable (synchronous=FULL).
//
// Every operation returns 0 on success and a non-zero eDBOperationResult otherwise; it never
// throws. A failure is logged at level 5 with SQLite's own error text through the log handler
// (the core library routes it to G::appLogger). Outputs are left untouched on failure.
//
// Thread-safe: calls from several threads are serialised on the one connection. A transaction
// opened with BeginTransaction() belongs to its thread: other threads wait until it ends.
//
// Dialect of the SQL texts it is given: SQLite's, with text in double quotes always a string
// value (never a column name), and like(), upper() and lower() folding every Unicode letter.
class DATABASEMANAGER_EXPORT DBManager {
public:
    // How Load matches its query row. In both modes every field is an equality condition;
    // LOAD_MODE_BY_KEY returns rows in table order, LOAD_MODE_BY_EXAMPLE in primary-key order.
    enum eLoadMode { LOAD_MODE_BY_KEY = 0, LOAD_MODE_BY_EXAMPLE = 1 };

    // The kind of database a file holds, which selects the schema it is created with.
    enum eSchema {
        SCHEMA_NONE = 0,      // no schema is created or checked
        SCHEMA_ARTICLES = 1,  // the article database
        SCHEMA_RECEIPTS = 2,  // the receipt database
    };

    // State values, as the device's systems use them.
    enum eState { STATE_CREATED = 1, STATE_OPEN = 3, STATE_FAILED = 4, STATE_CLOSED = 5 };

    // Receives every message of the database layer: (level, text).
    using LogHandler = void (*)(int level, const QString& text);
    // Receives SQL texts; see AddStatementObserver.
    using StatementObserver = std::function<void(const QString& sql)>;

    // Nothing is opened until Open().
    explicit DBManager(const QString& fileName, eSchema schema = SCHEMA_ARTICLES);
    // Closes the database.
    ~DBManager();

    DBManager(const DBManager&) = delete;
    DBManager& operator=(const DBManager&) = delete;

    // Opens or creates the file and brings its schema up to date. The state is 3 afterwards,
    // 4 when it failed (a file that is not a database, of another kind, of a newer schema).
    eDBOperationResult Open();
    // Closes the database; deferred while a DBCloser keeps it open. State 5 afterwards.
    void Close();
    // 1 constructed, 3 open, 4 opening failed, 5 closed.
    int GetState() const;
    bool IsOpen() const;
    const QString& GetFileName() const;
    eSchema GetSchema() const;
    // PRAGMA user_version of the open file.
    int GetSchemaVersion() const;
    // The version that Open() brings a file of that kind to.
    static int LatestSchemaVersion(eSchema schema);
    // SQLite's text for the last failure on this connection.
    QString GetLastError() const;

    // The table of that name in the live schema, or null when the database has none. The
    // pointer stays valid until the database is closed.
    DBTable* GetTable(const QString& name) const;

    // Rows of the query row's table that match every field of the query row (`like` true: the
    // field values are LIKE patterns, matched case-insensitively). `order`: an ORDER BY
    // expression (ties in key order), empty for the mode's order; `limit` > 0 caps the rows.
    // `result` is replaced
    // by a new DBData holding every column of each row; no match is success with no rows.
    eDBOperationResult Load(const QSharedPointer<DBData>& query, eLoadMode mode,
                            QSharedPointer<DBData>& result, bool like = false,
                            const QString& order = QString(), int limit = 0);
    // SELECT `columns` (all when empty) FROM `table` WHERE `where` (none when empty). `where`
    // is placed as written after WHERE and may end in a LIMIT clause.
    eDBOperationResult Load(const QString& table, const QStringList& columns, const QString& where,
                            QSharedPointer<DBData>& result);
    // Every row of the table, in table order.
    eDBOperationResult LoadAll(const QString& table, QSharedPointer<DBData>& result);
    // Rows whose `column` begins with `prefix` (taken literally: % and _ are ordinary
    // characters), ordered by `orderColumn` (table order when empty). `ignoreCase` folds every
    // Unicode letter.
    eDBOperationResult LoadPrefix(const QString& table, const QString& column,
                                  const QString& prefix, QSharedPointer<DBData>& result,
                                  const QString& orderColumn, bool ignoreCase);

    // Runs exactly one statement; a text holding a second statement is refused (7) and nothing
    // runs. A SELECT fills `result` (may be null); other statements leave it empty. A query
    // that runs longer than the read time limit is stopped and fails (4).
    eDBOperationResult Execute(const QString& sql, DBDirectQueryResult* result);
    // How long a query run by Execute may take, in milliseconds (0: no limit; 10 s by default).
    // Scanned or typed text goes into the library's statements as written and must not be able
    // to stop the register with a query that never ends.
    void SetReadTimeLimit(int milliseconds);
    int GetReadTimeLimit() const;

    // Adds the rows (all of one table) in one transaction: all or none. A row whose primary key
    // is already stored replaces that row (columns it does not give take their defaults, as in a
    // new row); any other constraint violation refuses the whole call with 5 and leaves the
    // stored rows untouched.
    eDBOperationResult Insert(const QSharedPointer<DBData>& rows);
    // Updates each row's record, found by the table's primary key (which the row must hold),
    // with the row's other fields; in one transaction. A key that matches no record refuses the
    // whole call with 3.
    eDBOperationResult Update(const QSharedPointer<DBData>& rows);
    // Sets the fields of `values` in every record matching all fields of `key`. Matching no
    // record is success.
    eDBOperationResult Update(const QSharedPointer<DBData>& key,
                              const QSharedPointer<DBData>& values);
    // Deletes every record matching all fields of a row, for each row. A row without fields is
    // refused (use ClearTable). Matching no record is success.
    eDBOperationResult Delete(const QSharedPointer<DBData>& where);
    // Removes every row of the table.
    eDBOperationResult ClearTable(const QString& table);

    eDBOperationResult Count(const QString& table, unsigned long& count);
    // Rows matching `where` (a condition text; all rows when empty).
    eDBOperationResult CountInRange(const QString& table, const QString& where,
                                    unsigned int& count);
    // Largest / smallest value of the column among the rows matching `where` (all when empty);
    // a null QVariant when no row matches.
    eDBOperationResult MaxValue(const QString& table, const QString& column, const QString& where,
                                QVariant& value);
    eDBOperationResult MinValue(const QString& table, const QString& column, const QString& where,
                                QVariant& value);
    // The smallest integer >= 1 that the column does not hold.
    eDBOperationResult MinUnusedValue(const QString& table, const QString& column, QVariant& value);

    // When on, a write outside BeginTransaction/CommitTransaction is refused (7). Off by
    // default.
    void SetWriteOnlyInTransaction(bool on);
    bool IsWriteOnlyInTransaction() const;

    // An explicit transaction; it belongs to the calling thread until committed or rolled back.
    eDBOperationResult BeginTransaction();
    eDBOperationResult CommitTransaction();
    eDBOperationResult RollbackTransaction();
    bool IsInTransaction() const;

    // Changes whenever the file's content changed, through this manager or another connection
    // (seen by this one from its next read). Lets callers keep caches of small tables.
    quint64 GetDataVersion() const;
    // Changes whenever rows of `table` may have changed: at once for this manager's writes
    // (inside a transaction too, where writes to other tables leave it alone), and for another
    // connection's commits from this manager's next read on. Costs no database access: lets
    // callers check caches of small tables at every use.
    quint64 GetTableVersion(const QString& table) const;

    // Observers receive every SQL text handed to Execute, as given, before it runs. Setting the
    // environment variable ARTICLEDB_TRACE_SQL=1 adds one that logs each text at level 3.
    // Returns an id for RemoveStatementObserver.
    int AddStatementObserver(const StatementObserver& observer);
    void RemoveStatementObserver(int id);

    // Where the database layer's messages go (null: standard error).
    static void SetLogHandler(LogHandler handler);

    // Used by DBCloser.
    void AcquireKeepOpen();
    void ReleaseKeepOpen();

private:
    class Private;
    std::unique_ptr<Private> d;
};
