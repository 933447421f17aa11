#pragma once

#include <QSharedPointer>
#include <QString>
#include <QStringList>
#include <QStringView>
#include <QVariant>
#include <functional>
#include <initializer_list>
#include <memory>

#include "DBData.h"
#include "DBDirectQueryResult.h"
#include "DBRowReader.h"
#include "DBTable.h"
#include "DataBaseManagerGlobal.h"
#include "eDBOperationResult.h"

// One open SQLite database file.
//
// Opening creates a missing file with the full schema of its kind and migrates an older file
// to the newest schema (PRAGMA user_version holds the version). The journal is WAL and every
// commit is durable (synchronous=FULL). A file it must not take (not a database, another kind
// of database, another program's tables, a newer schema) is refused before a byte of it is
// written.
//
// Every operation returns 0 on success and a non-zero eDBOperationResult otherwise; it never
// throws. A failure is logged at level 5 with SQLite's own error text through the log handler
// (the core library routes it to G::appLogger). Outputs are left untouched on failure.
//
// Thread-safe: calls from several threads are serialised on the one connection. A transaction
// opened with BeginTransaction() belongs to its thread: other threads wait until it ends.
// Reads, searches included, never wait for another connection's write; writes and
// BeginTransaction (which takes the write lock at once) wait for it up to 5 s.
//
// Dialect of the SQL texts it is given: SQLite's, with text in double quotes always a string
// value (never a column name), and like(), upper() and lower() folding every Unicode letter.
//
// Work per statement is bounded. The register stores names of at most 40 characters and
// barcodes of at most 20; these limits leave a wide margin above that:
//  - a text or blob value: 16 KiB (a text pasted into a declared statement template may be
//    longer: it is bound as it is); an SQL text: 64 KiB; expression depth 100; 20 compound
//    SELECT terms; 32 function arguments; 250 parameters; 100 columns; printf() widths and
//    precisions 16 KiB; GLOB patterns 1000 bytes; no attached databases (QueryLimits.h lists
//    them all);
//  - a query run by Execute: the read time limit (10 s by default), 16 MiB of SQLite's heap
//    above what was in use when it started (a process-wide figure), both checked every 1000
//    virtual-machine steps and inside like(), upper() and lower(), and 16 MiB of rows in its
//    result. A query past any of them fails with 4 and is logged.
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
    // 4 when it failed. Refused, with the file left byte for byte as it was: a file that is not
    // a database, one of another kind (its PRAGMA application_id not this schema's), one
    // holding tables but no application id (another program's), one of a newer schema.
    eDBOperationResult Open();
    // Before Open(): open the file for reading only. A missing file is then refused, nothing is
    // created, migrated or checkpointed, and every write fails with SQLite's reason ("attempt to
    // write a readonly database"). A file whose schema is not the latest is refused.
    void SetReadOnly(bool readOnly);
    bool IsReadOnly() const;
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
    // The PRAGMA application_id that marks a file of that kind (0 for SCHEMA_NONE).
    static quint32 ApplicationId(eSchema schema);
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
    // One equality condition of LoadByKey: `column` = `value` (an invalid value: IS NULL).
    struct KeyField {
        const QString& column;
        const QVariant& value;
    };
    // The rows Load(query, LOAD_MODE_BY_KEY, result) gives for a query row of `table` holding
    // `key`, handed to `handler` one by one where they lie (no DBData is built) until it returns
    // false. For the lookups a register makes at every scan.
    eDBOperationResult LoadByKey(const QString& table, std::initializer_list<KeyField> key,
                                 const DBRowHandler& handler);
    // SELECT `columns` (all when empty) FROM `table` WHERE `where` (none when empty). `where`
    // is placed as written after WHERE and may end in a LIMIT clause.
    eDBOperationResult Load(const QString& table, const QStringList& columns, const QString& where,
                            QSharedPointer<DBData>& result);
    // The same rows handed to `handler` where they lie until it returns false, none collected.
    eDBOperationResult Load(const QString& table, const QStringList& columns, const QString& where,
                            const DBRowHandler& handler);
    // Every row of the table, in table order.
    eDBOperationResult LoadAll(const QString& table, QSharedPointer<DBData>& result);
    // Rows whose `column` begins with `prefix` (taken literally: % and _ are ordinary
    // characters), ordered by `orderColumn` (table order when empty). `ignoreCase` folds every
    // Unicode letter.
    eDBOperationResult LoadPrefix(const QString& table, const QString& column,
                                  const QString& prefix, QSharedPointer<DBData>& result,
                                  const QString& orderColumn, bool ignoreCase);

    // Runs exactly one statement; a text holding a second statement is refused (7) and nothing
    // runs. A text of a declared template runs as that template with its pasted text bound as
    // one value; any other text has its literal values bound as parameters, and one that does
    // not compile so is refused (logged), never run another way. A SELECT fills `result` (may
    // be null); other statements leave it empty. A query over its time or memory budget is
    // stopped and fails (4).
    eDBOperationResult Execute(const QString& sql, DBDirectQueryResult* result);
    // The same, handing the rows of a SELECT to `handler` where they lie until it returns false,
    // instead of collecting them.
    eDBOperationResult Execute(const QString& sql, const DBRowHandler& handler);
    // Execute(head + value + tail, handler) for a text of a declared shape (below) given in its
    // parts: the same statement, value, rows, results and messages, and observers still receive
    // the whole text, but while none listens the text is never built. The lookups made at
    // every scan come this way.
    eDBOperationResult Execute(const QString& head, QStringView value, const QString& tail,
                               const DBRowHandler& handler);
    // Declares the shape of a statement its caller builds by pasting one text into fixed SQL
    // without escaping it (a scanned barcode, a typed name): `head` ends with the double quote
    // that opens the pasted text and each of `tails` begins with the one that closes it (more
    // than one tail: optional clauses after it). Execute then runs every text that begins with
    // `head` and ends with one of `tails` as one prepared statement, head + "?" + tail, with
    // all that lies between them bound as a single text value: quotes, comments, UNION, a
    // second statement or NUL in the pasted text change the value, never the statement.
    // `rowsRead` > 0: the caller reads no more than that many rows of the result, and no more
    // are fetched (a lookup that wants the first match stops there). Declaring a shape again
    // keeps the larger need; shapes live as long as this object. 0 on success; 7 (logged) for a
    // shape whose texts could be read two ways (a tail ending another tail, or overlapping an
    // earlier shape) or not quoted as above.
    eDBOperationResult DeclareStatementTemplate(const QString& head, const QStringList& tails,
                                                int rowsRead = 0);
    // How long a query run by Execute may take, in milliseconds (0: no limit; 10 s by default):
    // no query may keep the register waiting.
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

    // The number of rows of `table`. `unsigned long` is 32 bits on the register's board (64 on a
    // PC): a count beyond 4,294,967,295, more rows than the board's storage can hold, is given
    // as that maximum on every platform.
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

    // An explicit transaction; it belongs to the calling thread, which holds this database's
    // lock until it commits or rolls back (other threads wait). DBTransaction does this for a
    // scope and rolls back on every path that does not commit.
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
