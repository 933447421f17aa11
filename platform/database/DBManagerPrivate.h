#pragma once

// Internal to the database layer: the state of an open DBManager and the helpers its
// operations share.

#include <sqlite3.h>

#include <QHash>
#include <QPair>
#include <QSet>
#include <QString>
#include <QVector>
#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "DBManager.h"
#include "SqlLiteralParameterizer.h"
#include "SqliteStatement.h"
#include "StatementCache.h"

namespace DBManagerDetail {

constexpr int logLevelNotice = 3;
constexpr int logLevelError = 5;
constexpr int statementCacheCapacity = 128;
constexpr int busyTimeoutMs = 5000;
// How long a query handed to Execute may run: the library puts scanned and typed text into
// its statements as written, and such text can turn a lookup into a query that never ends.
constexpr int defaultReadTimeLimitMs = 10000;
// Virtual-machine steps between two looks at the clock while a limit applies.
constexpr int progressSteps = 10000;

// Hands a message to the installed log handler (standard error when none is installed).
void logMessage(int level, const QString& text);
void setLogHandler(DBManager::LogHandler handler);
QString quoteIdentifier(const QString& name);
// The operation result for an SQLite result code.
eDBOperationResult resultFor(int rc);
// `text` with %, _ and \ escaped by \, for LIKE ... ESCAPE '\'.
QString escapeLikePattern(const QString& text);

}  // namespace DBManagerDetail

class DBManager::Private {
public:
    // Pins a cached statement for one use and resets it afterwards.
    class Lease {
    public:
        Lease(StatementCache& cache, SqliteStatement* statement)
            : cache(cache), statement(statement) {}
        ~Lease() { cache.Release(statement); }
        Lease(const Lease&) = delete;
        Lease& operator=(const Lease&) = delete;

    private:
        StatementCache& cache;
        SqliteStatement* statement;
    };

    // A write made of several statements: BEGIN IMMEDIATE, or a savepoint inside an open
    // transaction. Rolls back unless committed.
    class WriteScope {
    public:
        explicit WriteScope(Private& owner) : owner(owner) {}
        ~WriteScope() {
            if (active) {
                owner.exec(savepoint ? "ROLLBACK TO dbmanager_write; RELEASE dbmanager_write"
                                     : "ROLLBACK");
            }
        }
        WriteScope(const WriteScope&) = delete;
        WriteScope& operator=(const WriteScope&) = delete;

        int Begin() {
            savepoint = sqlite3_get_autocommit(owner.connection) == 0;
            const int rc = owner.exec(savepoint ? "SAVEPOINT dbmanager_write" : "BEGIN IMMEDIATE");
            active = rc == SQLITE_OK;
            return rc;
        }
        int Commit() {
            const int rc = owner.exec(savepoint ? "RELEASE dbmanager_write" : "COMMIT");
            if (rc == SQLITE_OK) {
                active = false;
            }
            return rc;
        }

    private:
        Private& owner;
        bool active = false;
        bool savepoint = false;
    };

    Private(const QString& fileName, eSchema schema) : fileName(fileName), schema(schema) {}

    int exec(const char* sql);

    eDBOperationResult fail(const char* operation, int rc, const QString& sql = QString());

    eDBOperationResult refuse(const char* operation, eDBOperationResult code, const QString& why);

    bool checkOpen(const char* operation, eDBOperationResult& rc);

    bool writeAllowed(const char* operation, eDBOperationResult& rc);

    // Reads the live schema again when it changed since it was last described. Descriptions of
    // unchanged tables are kept, so pointers handed out stay the same.
    void refreshTables() const;

    // The current description of a table, read from the schema when not known yet.
    DBTable* describe(const QString& name) const;

    SqliteStatement* prepare(const char* operation, const QString& sql, eDBOperationResult& result);

    // Checks every field of a row names a column of `table` and appends them as conditions
    // joined by AND. Returns false (with `result` set) for an unusable row.
    bool appendConditions(const char* operation, const DBRow* row, const DBTable* table, bool like,
                          QString& sql, QVector<QVariant>& values, eDBOperationResult& result);

    // The table a row was built on, as currently described, and a check that the row's fields
    // all name its columns.
    const DBTable* rowTable(const char* operation, const DBRow* row, eDBOperationResult& result);

    // Runs a statement that returns rows into DBRows of `table` (columns found by name; a column
    // the table does not have keeps its name only).
    // Steps a bound statement to its end, appending its rows; returns the last SQLite code
    // (SQLITE_DONE when all went well).
    static int appendRows(SqliteStatement* statement, const DBTable* table, DBData& rows);

    // A trigram index (FTS5) over some of a table's columns.
    struct TrigramIndex {
        QString quotedName;
        QString quotedContent;  // the table it indexes
        QSet<QString> columns;
        // The statements that fold the notes of its pending table (see the article schema)
        // into it; empty when it has no such table.
        QString anyPending;
        QByteArray foldRemoved;
        QByteArray foldWritten;
        QByteArray foldAll;  // when the indexed table is empty
        QByteArray clearPending;
        QString contentEmpty;
    };

    // The indexed search paths (TextSearch.cpp). Each returns false when it cannot serve the
    // request, which then takes the plain path; true with `outcome` and `result` set otherwise.

    // Finds the trigram indexes and the indexed columns of the live schema.
    void describeSearchPaths() const;
    // Folds the rows written since the last fold into the index; false when that failed
    // (the index may then miss rows and must not be used).
    bool syncSearchIndex(const TrigramIndex& index);
    // The same for every index, before a transaction of this manager commits.
    void syncSearchIndexes();
    // Load with LIKE patterns on one column.
    bool loadLikeByIndex(const DBTable* table, const DBField* field, eLoadMode mode,
                         const QString& order, int limit, QSharedPointer<DBData>& result,
                         eDBOperationResult& outcome);
    // LoadPrefix, ignoring case.
    bool loadPrefixByIndex(const DBTable* table, const DBColumn* column, const QString& prefix,
                           const DBColumn* orderColumn, QSharedPointer<DBData>& result,
                           eDBOperationResult& outcome);
    // The rows of `table` with these rowids, in this order; false on a database error.
    bool loadRowsInOrder(const DBTable* table, const QVector<qint64>& rowids,
                         QSharedPointer<DBData>& result);
    // An FTS5 query for the rows holding the rarest trigrams of `run`, or empty when the run
    // cannot be looked up that way.
    QString trigramQuery(const TrigramIndex& index, const QString& run);
    // Roughly how many rows a trigram index covers (its table's largest rowid).
    double estimatedRows(const TrigramIndex& index);
    // MinUnusedValue on a column with a unique index.
    bool minUnusedByIndex(const DBTable* table, const DBColumn* column, QVariant& value,
                          eDBOperationResult& outcome);

    eDBOperationResult readRows(const char* operation, const QString& sql,
                                const QVector<QVariant>& values, const DBTable* table,
                                QSharedPointer<DBData>& result);

    // Runs a statement that returns one value.
    eDBOperationResult readValue(const char* operation, const QString& sql,
                                 const QVector<QVariant>& values, QVariant& value);

    // Runs a statement that returns no rows; `changes` receives the rows it changed.
    eDBOperationResult write(const char* operation, const QString& sql,
                             const QVector<QVariant>& values, int* changes = nullptr);

    // A statement over a table with an optional condition text; literals in the condition
    // become parameters so that the statement is compiled once for every value.
    QString withCondition(const QString& head, const QString& where, QVector<QVariant>& values);

    void closeNow();

    void notifyObservers(const QString& sql);

    QString fileName;
    eSchema schema;
    sqlite3* connection = nullptr;
    mutable std::recursive_mutex mutex;
    std::atomic<int> state{STATE_CREATED};
    mutable StatementCache cache{DBManagerDetail::statementCacheCapacity};
    SqlLiteralParameterizer parameterizer;
    mutable QHash<QString, DBTable*> tables;
    // Every description handed out, kept until close so that pointers stay valid.
    mutable std::vector<std::unique_ptr<DBTable>> describedTables;
    mutable qint64 describedSchemaVersion = -1;
    // What the indexed search paths may use, by table name.
    mutable QHash<QString, TrigramIndex> trigramIndexes;
    mutable QHash<QString, QSet<QString>> leadingIndexColumns;
    mutable QHash<QString, QSet<QString>> uniqueColumns;
    // Capped counts of index entries per trigram, to ask the index for the rarest.
    static constexpr int maxRememberedTrigrams = 20000;
    QHash<QString, int> trigramFrequencies;
    // The candidates of the last index lookup: the incremental search asks for the same run
    // twice in a row (as a prefix, then as an infix). Valid while the database is unchanged.
    struct SearchCandidate {
        qint64 rowid;
        int type;  // SQLite storage class of the text
        QByteArray text;
    };
    struct CandidateMemo {
        QString lookup;  // table, column and index query
        qint64 dataVersion = -1;
        qint64 changes = -1;
        qint64 schemaVersion = -1;
        QVector<SearchCandidate> rows;
    } candidateMemo;
    static constexpr int maxMemoCandidates = 4096;
    // Fills `rows` with the rows of `table` the index query `match` finds, with `column`'s
    // text; false on a database error.
    bool searchCandidates(const DBTable* table, const DBColumn* column, const QString& quotedIndex,
                          const QString& match, QVector<SearchCandidate>& rows);
    // Row changes this connection made, by table (the update hook counts them, triggers'
    // changes included), and writes whose tables are not known; see GetTableVersion.
    static void countRowChange(void* owner, int operation, const char* database, const char* table,
                               sqlite3_int64 rowid);
    void countTableWrite(const QString& table);
    std::unordered_map<std::string, quint64> tableChanges;
    std::string lastChangedTable;
    quint64* lastChangedCount = nullptr;
    quint64 unattributedWrites = 0;
    // The end of the time a query of Execute may take, while one runs.
    static int checkDeadline(void* owner);
    int readTimeLimitMs = DBManagerDetail::defaultReadTimeLimitMs;
    bool deadlineSet = false;
    std::chrono::steady_clock::time_point deadline;
    // The pager's data version last seen by GetTableVersion, and how often it moved.
    unsigned int seenDataVersion = 0;
    quint64 commitEpoch = 0;
    int schemaVersion = 0;
    bool writeOnlyInTransaction = false;
    bool inTransaction = false;
    std::thread::id transactionOwner;
    int keepOpen = 0;
    bool closePending = false;
    QString lastError;
    std::mutex observerMutex;
    QVector<QPair<int, StatementObserver>> observers;
    int nextObserverId = 1;
};
