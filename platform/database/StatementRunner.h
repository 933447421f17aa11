#pragma once

// Internal to the database layer: compiling, binding and running statements.

#include <QString>
#include <QStringList>
#include <QStringView>
#include <QVariant>
#include <QVector>

#include "DBData.h"
#include "DBDirectQueryResult.h"
#include "DBRowReader.h"
#include "DBTable.h"
#include "SqlLiteralParameterizer.h"
#include "SqliteStatement.h"
#include "StatementCache.h"
#include "StatementTemplates.h"
#include "eDBOperationResult.h"

struct sqlite3;
class FailureLog;
class QueryLimits;

// The text a statement was given as, named in failure messages: whole, or as the parts of a
// declared shape (head, pasted value, tail), joined only when a message needs it.
class GivenText {
public:
    GivenText(const QString& whole) : whole(&whole) {}  // NOLINT: any text is a given text
    GivenText(const QString& head, QStringView value, const QString& tail)
        : head(&head), value(value), tail(&tail) {}
    QString Text() const;

    // The text itself when given whole, else null and the parts below.
    const QString* whole = nullptr;
    const QString* head = nullptr;
    QStringView value;
    const QString* tail = nullptr;
};

// Runs the statements of one connection: compiles each distinct text once (StatementCache) and
// lends it out for one use (Lease); binds values; turns the literal values of a text handed to
// Execute into parameters (SqlLiteralParameterizer), or, for a text of a declared shape
// (StatementTemplates), binds the pasted text whole; runs a query within its QueryLimits.
// Failures are logged through FailureLog. Guarded by the DBManager's mutex.
class StatementRunner {
public:
    StatementRunner(FailureLog& failures, QueryLimits& limits);

    // Uses `connection` from now on; Detach finalises every statement before it closes.
    void Attach(sqlite3* connection);
    void Detach();
    sqlite3* Connection() const { return connection; }

    // A compiled statement pinned for one use: reset, unbound and evictable again when the
    // lease ends. Empty when the statement could not be compiled.
    class Lease {
    public:
        Lease() = default;
        Lease(StatementCache& cache, SqliteStatement* statement)
            : cache(&cache), statement(statement) {}
        ~Lease() { release(); }
        Lease(Lease&& other) noexcept : cache(other.cache), statement(other.statement) {
            other.statement = nullptr;
        }
        Lease& operator=(Lease&& other) noexcept;
        Lease(const Lease&) = delete;
        Lease& operator=(const Lease&) = delete;

        SqliteStatement* operator->() const { return statement; }
        SqliteStatement* get() const { return statement; }
        explicit operator bool() const { return statement != nullptr; }

    private:
        void release();
        StatementCache* cache = nullptr;
        SqliteStatement* statement = nullptr;
    };

    // The compiled statement for `sql`; when it does not compile, an empty lease with `result`
    // set and the failure logged (a text holding a second statement is refused with 7). A caller
    // that runs one text at every scan keeps a `hint` for it: the statement is then found without
    // hashing the text while it stays in the cache.
    Lease Prepare(const char* operation, const QString& sql, eDBOperationResult& result,
                  StatementCache::Hint* hint = nullptr);
    // The same for the layer's own statements, without a log line: empty when not compiled.
    Lease TryPrepare(const QString& sql);
    // The detail lines of EXPLAIN QUERY PLAN for `sql`; empty when it does not compile.
    QStringList QueryPlan(const QString& sql);

    // Runs a statement that returns rows into DBRows of `table` (columns found by name; a
    // column the table does not have keeps its name only). `result` is replaced on success.
    eDBOperationResult ReadRows(const char* operation, const QString& sql,
                                const QVector<QVariant>& values, const DBTable* table,
                                QSharedPointer<DBData>& result);
    // Runs a read with `count` values bound, handing its rows to `handler` in place until it
    // returns false or the rows end; `hint` as for Prepare.
    eDBOperationResult ReadEach(const char* operation, const QString& sql, const QVariant* values,
                                int count, const DBRowHandler& handler,
                                StatementCache::Hint* hint = nullptr);
    // Steps a bound statement, handing each row to `handler` until it returns false, the rows
    // end or `rowsRead` (> 0) rows were read; returns the last SQLite code (SQLITE_DONE when all
    // went well).
    static int StepEach(SqliteStatement* statement, const DBRowHandler& handler, int rowsRead);
    // Runs a statement that returns one value (null when it returns no row).
    eDBOperationResult ReadValue(const char* operation, const QString& sql,
                                 const QVector<QVariant>& values, QVariant& value);
    // Runs a statement that returns no rows; `changes` receives the rows it changed; `hint` as
    // for Prepare.
    eDBOperationResult Write(const char* operation, const QString& sql,
                             const QVector<QVariant>& values, int* changes = nullptr,
                             StatementCache::Hint* hint = nullptr);
    // Steps a bound statement to its end, appending its rows; returns the last SQLite code
    // (SQLITE_DONE when all went well).
    static int AppendRows(SqliteStatement* statement, const DBTable* table, DBData& rows);

    // `head` WHERE `where`, the literals of the condition turned into parameters appended to
    // `values`, so that the statement is compiled once for every value.
    QString WithCondition(const QString& head, const QString& where, QVector<QVariant>& values);

    // A text handed to Execute, ready to run.
    struct Resolved {
        // A short pasted text in UTF-8, bound without a copy: declared first, so that it
        // outlives the lease, which unbinds it.
        static constexpr int shortText = 128;
        char pastedUtf8[3 * shortText];
        Lease statement;
        QVector<QVariant> values;
        bool pasted = false;  // a declared shape given in its parts: `value` is bound
        QStringView value;    // the pasted text then
        int pastedBytes = 0;  // the text bound into a declared shape, in UTF-8
        int rowsRead = 0;     // rows its caller reads, 0: all
    };
    // Finds the statement for a text handed to Execute: its declared shape, else the text with
    // its literals as parameters. A text that does not compile so is refused (logged), never
    // run another way.
    bool Resolve(const char* operation, const QString& sql, Resolved& resolved,
                 eDBOperationResult& result);
    // The same for a given text. One given as a declared shape's head and tail with its value
    // between them is resolved with nothing joined or copied; a pair of head and tail never
    // declared is joined and resolved as a whole text.
    bool Resolve(const char* operation, const GivenText& sql, Resolved& resolved,
                 eDBOperationResult& result);
    // Runs a resolved text; a query (read-only statement) keeps to `timeLimitMs` (0: none) and
    // the memory budget, which its result's rows count against too. A SELECT fills `result`
    // when given, with no more rows than the caller reads; `handler`, when given, receives
    // those rows in place instead.
    eDBOperationResult Run(const char* operation, const GivenText& sql, Resolved& resolved,
                           DBDirectQueryResult* result, int timeLimitMs,
                           const DBRowHandler* handler = nullptr);

    StatementTemplates& Templates() { return templates; }

private:
    static constexpr int cacheCapacity = 128;

    // Prepare, then bind `values`; an empty lease with `result` set (and logged) on failure.
    Lease prepareBound(const char* operation, const QString& sql, const QVector<QVariant>& values,
                       eDBOperationResult& result, StatementCache::Hint* hint = nullptr);

    FailureLog& failures;
    QueryLimits& limits;
    sqlite3* connection = nullptr;
    StatementCache cache{cacheCapacity};
    SqlLiteralParameterizer parameterizer;
    StatementTemplates templates;
};
