#include "DBManager.h"

#include <sqlite3.h>

#include <QPair>
#include <QVarLengthArray>
#include <QVector>
#include <atomic>
#include <functional>
#include <mutex>
#include <thread>

#include "ChangeTracker.h"
#include "DatabaseLog.h"
#include "OffsetWalk.h"
#include "QueryLimits.h"
#include "SchemaCatalogue.h"
#include "SchemaMigrator.h"
#include "SqlText.h"
#include "SqliteConnection.h"
#include "SqliteTransaction.h"
#include "StatementRunner.h"
#include "TextSearchIndex.h"
#include "UnusedValueSearch.h"

namespace {

constexpr quint32 articlesApplicationId = 0x414D4152;  // "AMAR"
constexpr quint32 receiptsApplicationId = 0x414D5243;  // "AMRC"
// How long a query handed to Execute may run: the library puts scanned and typed text into
// its statements, and nothing it holds may stop the register.
constexpr int defaultReadTimeLimitMs = 10000;

const SchemaMigrator* migratorFor(DBManager::eSchema schema) {
    static const SchemaMigrator articles(QStringLiteral(":/articledb/schema/articles"),
                                         articlesApplicationId);
    static const SchemaMigrator receipts(QStringLiteral(":/articledb/schema/receipts"),
                                         receiptsApplicationId);
    switch (schema) {
        case DBManager::SCHEMA_ARTICLES:
            return &articles;
        case DBManager::SCHEMA_RECEIPTS:
            return &receipts;
        case DBManager::SCHEMA_NONE:
        default:
            return nullptr;
    }
}

using Lock = std::lock_guard<std::recursive_mutex>;

}  // namespace

// The parts of one open database. `mutex` guards all of them: the connection serves one
// thread at a time, and BeginTransaction keeps it locked until the transaction ends.
class DBManager::Private {
public:
    Private(const QString& fileName, eSchema schema)
        : fileName(fileName), schema(schema), failures(fileName) {}

    // False (with `rc` set and logged) when the database is not open.
    bool checkOpen(const char* operation, eDBOperationResult& rc);
    // False (with `rc` set and logged) when writes must wait for a transaction.
    bool writeAllowed(const char* operation, eDBOperationResult& rc);
    // Reads the schema again when it changed, and what the search index derives from it.
    void refreshSchema();
    // The current description of a table, read from the schema when not known yet.
    DBTable* describe(const QString& name);
    // Load of `columns` of `table` under `where`: its statement and the values taken out of it
    // handed to `read` with the lock held, or the failure when the database is not open.
    eDBOperationResult loadColumns(
        const QString& table, const QStringList& columns, const QString& where,
        const std::function<eDBOperationResult(const QString&, const QVector<QVariant>&)>& read);
    // The table a row was built on, as currently described, once every field of the row names
    // one of its columns; null (with `result` set and logged) otherwise.
    const DBTable* rowTable(const char* operation, const DBRow* row, eDBOperationResult& result);
    // Appends the row's fields to `sql` as conditions joined by AND, their values to `values`;
    // false (with `result` set and logged) when a field names no column of `table`.
    bool appendConditions(const char* operation, const DBRow* row, const DBTable* table, bool like,
                          QString& sql, QVector<QVariant>& values, eDBOperationResult& result);
    void closeNow();
    void notifyObservers(const QString& sql);
    // Execute with a row handler, observers already told.
    eDBOperationResult executeRows(const GivenText& sql, const DBRowHandler& handler);

    // The statements of the last few shapes a call was made in: a register and an import repeat
    // a few shapes over and over.
    template <typename Shape>
    struct RecentShapes {
        static constexpr int count = 4;
        Shape shapes[count];
        int next = 0;
        template <typename Matches>
        Shape* Find(Matches matches) {
            for (Shape& shape : shapes) {
                if (matches(shape)) {
                    return &shape;
                }
            }
            return nullptr;
        }
        // A fresh shape in place of the oldest.
        Shape& Replace() {
            Shape& shape = shapes[next++ % count];
            shape = Shape();
            return shape;
        }
    };

    // LoadByKey's statements for the last shapes of key asked for: the register looks up by PLU
    // or id at every sale.
    struct KeyShape {
        QString table;             // quoted
        QVector<QString> columns;  // quoted, in the key's order
        QVector<bool> nulls;       // which values are NULL
        QString sql;
        StatementCache::Hint compiled;
    };
    RecentShapes<KeyShape> keyShapes;
    KeyShape& keyShape(const DBTable* table, std::initializer_list<KeyField> key,
                       const DBColumn* const* columns);

    // Insert's statements for the last shapes of row inserted: a price list import inserts
    // thousands of rows of the same two shapes, and building, checking and hashing their text
    // cost more than binding their values.
    struct InsertShape {
        // The description's own quoted name: a description is never changed or freed (a changed
        // table is described anew), so while this text shares its data the row's columns are
        // known to be the table's and the text below to be right.
        QString table;
        QVector<QString> fields;  // the row's column names, in its order
        QString sql;
        StatementCache::Hint compiled;
    };
    RecentShapes<InsertShape> insertShapes;
    // The remembered shape of `row` (its table described as it stands), or null.
    InsertShape* knownInsert(const DBRow* row);

    const QString fileName;
    const eSchema schema;
    mutable std::recursive_mutex mutex;
    std::atomic<int> state{STATE_CREATED};
    FailureLog failures;
    QueryLimits limits;
    ChangeTracker changes;
    SqliteConnection connection;
    StatementRunner runner{failures, limits};
    OffsetWalk walk{runner};
    SchemaCatalogue catalogue;
    TextSearchIndex search{runner, catalogue};
    // BeginTransaction's transaction, and the thread it belongs to.
    std::unique_ptr<SqliteTransaction> transaction;
    std::thread::id transactionOwner;
    int schemaVersion = 0;
    bool readOnly = false;
    int readTimeLimitMs = defaultReadTimeLimitMs;
    bool writeOnlyInTransaction = false;
    int keepOpen = 0;
    bool closePending = false;
    // Observers have their own lock: they are told before the database's lock is taken.
    std::mutex observerMutex;
    QVector<QPair<int, StatementObserver>> observers;
    std::atomic<int> observerCount{0};  // observers.size(), read without the lock
    int nextObserverId = 1;
};

bool DBManager::Private::checkOpen(const char* operation, eDBOperationResult& rc) {
    if (connection.IsOpen()) {
        return true;
    }
    rc = failures.Refuse(operation, DB_OPERATION_NOT_INITIALIZED,
                         QStringLiteral("the database is not open"));
    return false;
}

bool DBManager::Private::writeAllowed(const char* operation, eDBOperationResult& rc) {
    if (!writeOnlyInTransaction || transaction) {
        return true;
    }
    rc = failures.Refuse(operation, DB_OPERATION_INVALID_ARGUMENT,
                         QStringLiteral("writes are allowed only inside a transaction"));
    return false;
}

void DBManager::Private::refreshSchema() {
    if (catalogue.Refresh(connection.Handle())) {
        search.Describe();
    }
}

DBTable* DBManager::Private::describe(const QString& name) {
    if (DBTable* table = catalogue.Find(name, false)) {
        return table;
    }
    refreshSchema();
    return catalogue.Find(name, true);
}

const DBTable* DBManager::Private::rowTable(const char* operation, const DBRow* row,
                                            eDBOperationResult& result) {
    if (!row || !row->GetTable()) {
        result = failures.Refuse(operation, DB_OPERATION_INVALID_ARGUMENT,
                                 QStringLiteral("the row belongs to no table"));
        return nullptr;
    }
    const DBTable* table = describe(row->GetTable()->GetName());
    if (!table) {
        result = failures.Refuse(operation, DB_OPERATION_ERROR,
                                 QStringLiteral("no such table: ") + row->GetTable()->GetName());
        return nullptr;
    }
    for (const DBField* field : row->GetFields()) {
        if (!table->GetColumn(field->GetColumnName())) {
            result = failures.Refuse(operation, DB_OPERATION_INVALID_ARGUMENT,
                                     QStringLiteral("no such column: %1 in table %2")
                                         .arg(field->GetColumnName(), table->GetName()));
            return nullptr;
        }
    }
    return table;
}

bool DBManager::Private::appendConditions(const char* operation, const DBRow* row,
                                          const DBTable* table, bool like, QString& sql,
                                          QVector<QVariant>& values, eDBOperationResult& result) {
    bool first = true;
    for (const DBField* field : row->GetFields()) {
        const DBColumn* column = table->GetColumn(field->GetColumnName());
        if (!column) {
            result = failures.Refuse(operation, DB_OPERATION_INVALID_ARGUMENT,
                                     QStringLiteral("no such column: %1 in table %2")
                                         .arg(field->GetColumnName(), table->GetName()));
            return false;
        }
        sql += first ? QStringLiteral(" WHERE ") : QStringLiteral(" AND ");
        first = false;
        sql += column->GetQuotedName();
        if (!field->GetValue().isValid()) {
            sql += QStringLiteral(" IS NULL");
        } else {
            sql += like ? QStringLiteral(" LIKE ?") : QStringLiteral(" = ?");
            values.append(field->GetValue());
        }
    }
    return true;
}

void DBManager::Private::closeNow() {
    if (!connection.IsOpen()) {
        return;
    }
    if (transaction) {
        transaction.reset();  // rolls back
        mutex.unlock();       // the level BeginTransaction kept
    }
    search.Clear();
    catalogue.Clear();
    walk.Forget();
    runner.Detach();
    connection.Close();
    state = STATE_CLOSED;
}

void DBManager::Private::notifyObservers(const QString& sql) {
    // Most registers run with no observer: no lock and no copy for them.
    if (observerCount.load(std::memory_order_acquire) == 0) {
        return;
    }
    QVector<QPair<int, StatementObserver>> copy;
    {
        std::lock_guard<std::mutex> lock(observerMutex);
        copy = observers;
    }
    for (const auto& observer : copy) {
        observer.second(sql);
    }
}

// ---- Opening and closing ----------------------------------------------------------------------

DBManager::DBManager(const QString& fileName, eSchema schema)
    : d(std::make_unique<Private>(fileName, schema)) {
    if (qEnvironmentVariableIntValue("ARTICLEDB_TRACE_SQL") != 0) {
        AddStatementObserver([](const QString& sql) {
            DatabaseLog::Message(DatabaseLog::levelNotice, QStringLiteral("SQL: ") + sql);
        });
    }
}

DBManager::~DBManager() {
    Lock lock(d->mutex);
    d->closeNow();
}

eDBOperationResult DBManager::Open() {
    static const char* const operation = "Open";
    Lock lock(d->mutex);
    if (d->connection.IsOpen()) {
        return DB_OPERATION_SUCCESS;
    }
    auto abandon = [this](int rc, const QString& why) {
        d->connection.Close();
        d->state = STATE_FAILED;
        const eDBOperationResult result = DatabaseLog::ResultFor(rc);
        return d->failures.Refuse(
            operation, result == DB_OPERATION_SUCCESS ? DB_OPERATION_ERROR : result, why);
    };
    const SchemaMigrator* migrator = migratorFor(d->schema);
    QString error;
    if (migrator) {
        // Looked at before anything is written: switching the journal to WAL alone rewrites
        // the file's header.
        SchemaMigrator::FileFacts facts;
        int rc = SchemaMigrator::ReadFacts(d->fileName, facts, error);
        if (rc == SQLITE_OK) {
            rc = migrator->Accepts(facts, error);
        }
        if (rc == SQLITE_OK && d->readOnly) {
            rc = migrator->AcceptsAsIs(facts, error);
        }
        if (rc != SQLITE_OK) {
            return abandon(rc, error);
        }
    }
    int rc = d->connection.Open(d->fileName, d->readOnly, d->limits, d->changes, error);
    if (rc == SQLITE_OK && migrator && !d->readOnly) {
        rc = migrator->Migrate(d->connection.Handle(), error);
    }
    if (rc != SQLITE_OK) {
        return abandon(rc, error);
    }
    d->runner.Attach(d->connection.Handle());
    QVariant version;
    d->runner.ReadValue(operation, QStringLiteral("PRAGMA user_version"), {}, version);
    d->schemaVersion = version.toInt();
    d->refreshSchema();
    d->state = STATE_OPEN;
    return DB_OPERATION_SUCCESS;
}

void DBManager::Close() {
    Lock lock(d->mutex);
    if (d->keepOpen > 0) {
        d->closePending = true;
        return;
    }
    d->closeNow();
}

int DBManager::GetState() const {
    return d->state.load();
}

bool DBManager::IsOpen() const {
    return d->state.load() == STATE_OPEN;
}

const QString& DBManager::GetFileName() const {
    return d->fileName;
}

void DBManager::SetReadOnly(bool readOnly) {
    Lock lock(d->mutex);
    d->readOnly = readOnly;
}

bool DBManager::IsReadOnly() const {
    Lock lock(d->mutex);
    return d->readOnly;
}

DBManager::eSchema DBManager::GetSchema() const {
    return d->schema;
}

int DBManager::GetSchemaVersion() const {
    Lock lock(d->mutex);
    return d->schemaVersion;
}

int DBManager::LatestSchemaVersion(eSchema schema) {
    const SchemaMigrator* migrator = migratorFor(schema);
    return migrator ? migrator->LatestVersion() : 0;
}

quint32 DBManager::ApplicationId(eSchema schema) {
    switch (schema) {
        case SCHEMA_ARTICLES:
            return articlesApplicationId;
        case SCHEMA_RECEIPTS:
            return receiptsApplicationId;
        case SCHEMA_NONE:
        default:
            return 0;
    }
}

QString DBManager::GetLastError() const {
    Lock lock(d->mutex);
    return d->failures.LastError();
}

DBTable* DBManager::GetTable(const QString& name) const {
    Lock lock(d->mutex);
    if (!d->connection.IsOpen()) {
        return nullptr;
    }
    d->refreshSchema();
    return d->describe(name);
}

// ---- Reading ------------------------------------------------------------------------------------

eDBOperationResult DBManager::Load(const QSharedPointer<DBData>& query, eLoadMode mode,
                                   QSharedPointer<DBData>& result, bool like, const QString& order,
                                   int limit) {
    static const char* const operation = "Load";
    Lock lock(d->mutex);
    eDBOperationResult outcome = DB_OPERATION_SUCCESS;
    if (!d->checkOpen(operation, outcome)) {
        return outcome;
    }
    if (!query || query->RowCount() != 1) {
        return d->failures.Refuse(operation, DB_OPERATION_INVALID_ARGUMENT,
                                  QStringLiteral("the query must hold exactly one row"));
    }
    const DBRow* row = query->GetRow(0);
    const DBTable* table = d->rowTable(operation, row, outcome);
    if (!table) {
        return outcome;
    }
    if (like && row->FieldCount() == 1 &&
        d->search.LoadLike(table, row->GetFields().first(), mode, order, limit, result)) {
        return DB_OPERATION_SUCCESS;
    }
    QString sql;
    sql.reserve(128);
    sql += QStringLiteral("SELECT * FROM ");
    sql += table->GetQuotedName();
    QVector<QVariant> values;
    if (!d->appendConditions(operation, row, table, like, sql, values, outcome)) {
        return outcome;
    }
    auto keyOrder = [table] {
        QStringList key;
        for (const DBColumn* column : table->GetPrimaryKey()) {
            key.append(column->GetQuotedName());
        }
        return key.isEmpty() ? QStringLiteral("rowid") : key.join(QStringLiteral(", "));
    };
    if (!order.trimmed().isEmpty()) {
        // Rows that tie on the expression keep key order, so that every run lists them alike.
        sql += QStringLiteral(" ORDER BY ") + order + QStringLiteral(", ") + keyOrder();
    } else if (mode == LOAD_MODE_BY_EXAMPLE) {
        sql += QStringLiteral(" ORDER BY ") + keyOrder();
    }
    if (limit > 0) {
        sql += QStringLiteral(" LIMIT ?");
        values.append(limit);
    }
    return d->runner.ReadRows(operation, sql, values, table, result);
}

eDBOperationResult DBManager::LoadByKey(const QString& table, std::initializer_list<KeyField> key,
                                        const DBRowHandler& handler) {
    // Load's statement, checks and failures, without a query row to build or rows to collect.
    static const char* const operation = "Load";
    Lock lock(d->mutex);
    eDBOperationResult outcome = DB_OPERATION_SUCCESS;
    if (!d->checkOpen(operation, outcome)) {
        return outcome;
    }
    const DBTable* described = d->describe(table);
    if (!described) {
        return d->failures.Refuse(operation, DB_OPERATION_ERROR,
                                  QStringLiteral("no such table: ") + table);
    }
    QVarLengthArray<QVariant, 4> values;
    QVarLengthArray<const DBColumn*, 4> columns;
    for (const KeyField& field : key) {
        const DBColumn* column = described->GetColumn(field.column);
        if (!column) {
            return d->failures.Refuse(operation, DB_OPERATION_INVALID_ARGUMENT,
                                      QStringLiteral("no such column: %1 in table %2")
                                          .arg(field.column, described->GetName()));
        }
        columns.append(column);
        if (field.value.isValid()) {
            values.append(field.value);
        }
    }
    Private::KeyShape& shape = d->keyShape(described, key, columns.constData());
    return d->runner.ReadEach(operation, shape.sql, values.constData(), values.size(), handler,
                              &shape.compiled);
}

DBManager::Private::InsertShape* DBManager::Private::knownInsert(const DBRow* row) {
    if (!row || !row->GetTable()) {
        return nullptr;
    }
    const DBTable* table = catalogue.Find(row->GetTable()->GetName(), false);
    if (!table) {
        return nullptr;
    }
    const QVector<DBField*>& fields = row->GetFields();
    return insertShapes.Find([&](const InsertShape& shape) {
        if (shape.table.constData() != table->GetQuotedName().constData() ||
            shape.fields.size() != fields.size()) {
            return false;
        }
        for (int i = 0; i < fields.size(); ++i) {
            if (!SqlText::Same(shape.fields.at(i), fields[i]->GetColumnName())) {
                return false;
            }
        }
        return true;
    });
}

DBManager::Private::KeyShape& DBManager::Private::keyShape(const DBTable* table,
                                                           std::initializer_list<KeyField> key,
                                                           const DBColumn* const* columns) {
    // The text depends on the quoted names and on which values are NULL only.
    const auto matches = [&](const KeyShape& shape) {
        if (shape.columns.size() != static_cast<int>(key.size()) ||
            !SqlText::Same(shape.table, table->GetQuotedName())) {
            return false;
        }
        int i = 0;
        for (const KeyField& field : key) {
            if (shape.nulls.at(i) != !field.value.isValid() ||
                !SqlText::Same(shape.columns.at(i), columns[i]->GetQuotedName())) {
                return false;
            }
            ++i;
        }
        return true;
    };
    if (KeyShape* known = keyShapes.Find(matches)) {
        return *known;
    }
    KeyShape& shape = keyShapes.Replace();
    shape.table = table->GetQuotedName();
    shape.sql.reserve(96);
    shape.sql += QLatin1String("SELECT * FROM ");
    shape.sql += shape.table;
    int i = 0;
    for (const KeyField& field : key) {
        const bool null = !field.value.isValid();
        shape.columns.append(columns[i]->GetQuotedName());
        shape.nulls.append(null);
        shape.sql += i == 0 ? QLatin1String(" WHERE ") : QLatin1String(" AND ");
        shape.sql += columns[i]->GetQuotedName();
        shape.sql += null ? QLatin1String(" IS NULL") : QLatin1String(" = ?");
        ++i;
    }
    return shape;
}

eDBOperationResult DBManager::Private::loadColumns(
    const QString& table, const QStringList& columns, const QString& where,
    const std::function<eDBOperationResult(const QString&, const QVector<QVariant>&)>& read) {
    Lock lock(mutex);
    eDBOperationResult outcome = DB_OPERATION_SUCCESS;
    if (!checkOpen("Load", outcome)) {
        return outcome;
    }
    QStringList selected;
    for (const QString& column : columns) {
        selected.append(SqlText::QuoteIdentifier(column));
    }
    QVector<QVariant> values;
    const QString sql = runner.WithCondition(
        QStringLiteral("SELECT ") +
            (selected.isEmpty() ? QStringLiteral("*") : selected.join(QStringLiteral(", "))) +
            QStringLiteral(" FROM ") + SqlText::QuoteIdentifier(table),
        where, values);
    return read(sql, values);
}

eDBOperationResult DBManager::Load(const QString& table, const QStringList& columns,
                                   const QString& where, QSharedPointer<DBData>& result) {
    return d->loadColumns(table, columns, where, [&](const QString& sql, const auto& values) {
        return d->runner.ReadRows("Load", sql, values, d->describe(table), result);
    });
}

eDBOperationResult DBManager::Load(const QString& table, const QStringList& columns,
                                   const QString& where, const DBRowHandler& handler) {
    return d->loadColumns(table, columns, where, [&](const QString& sql, const auto& values) {
        return d->runner.ReadEach("Load", sql, values.constData(), values.size(), handler);
    });
}

eDBOperationResult DBManager::LoadAll(const QString& table, QSharedPointer<DBData>& result) {
    static const char* const operation = "LoadAll";
    Lock lock(d->mutex);
    eDBOperationResult outcome = DB_OPERATION_SUCCESS;
    if (!d->checkOpen(operation, outcome)) {
        return outcome;
    }
    return d->runner.ReadRows(operation,
                              QStringLiteral("SELECT * FROM ") + SqlText::QuoteIdentifier(table),
                              {}, d->describe(table), result);
}

eDBOperationResult DBManager::LoadPrefix(const QString& table, const QString& column,
                                         const QString& prefix, QSharedPointer<DBData>& result,
                                         const QString& orderColumn, bool ignoreCase) {
    static const char* const operation = "LoadPrefix";
    Lock lock(d->mutex);
    eDBOperationResult outcome = DB_OPERATION_SUCCESS;
    if (!d->checkOpen(operation, outcome)) {
        return outcome;
    }
    const DBTable* described = d->describe(table);
    const DBColumn* searched = described ? described->GetColumn(column) : nullptr;
    const DBColumn* ordered = described ? described->GetColumn(orderColumn) : nullptr;
    if (ignoreCase && searched && (orderColumn.isEmpty() || ordered) &&
        d->search.LoadPrefix(described, searched, prefix, ordered, result)) {
        return DB_OPERATION_SUCCESS;
    }
    QString sql = QStringLiteral("SELECT * FROM ") + SqlText::QuoteIdentifier(table);
    QVector<QVariant> values;
    if (ignoreCase) {
        sql += QStringLiteral(" WHERE ") + SqlText::QuoteIdentifier(column) +
               QStringLiteral(" LIKE ? ESCAPE '\\'");
        values.append(SqlText::EscapeLikePattern(prefix) + QLatin1Char('%'));
    } else {
        sql += QStringLiteral(" WHERE substr(") + SqlText::QuoteIdentifier(column) +
               QStringLiteral(", 1, ?) = ?");
        values.append(prefix.size());
        values.append(prefix);
    }
    if (!orderColumn.isEmpty()) {
        // Rows that tie keep row order, so that every run lists them alike.
        sql += QStringLiteral(" ORDER BY ") + SqlText::QuoteIdentifier(orderColumn) +
               QStringLiteral(", rowid");
    }
    return d->runner.ReadRows(operation, sql, values, described, result);
}

eDBOperationResult DBManager::Execute(const QString& sql, DBDirectQueryResult* result) {
    static const char* const operation = "Execute";
    d->notifyObservers(sql);
    Lock lock(d->mutex);
    eDBOperationResult outcome = DB_OPERATION_SUCCESS;
    if (!d->checkOpen(operation, outcome)) {
        return outcome;
    }
    StatementRunner::Resolved resolved;
    if (!d->runner.Resolve(operation, sql, resolved, outcome)) {
        return outcome;
    }
    if (!resolved.statement->IsReadOnly()) {
        if (!d->writeAllowed(operation, outcome)) {
            return outcome;
        }
        // A DELETE without a condition may empty its table without reporting rows.
        d->changes.CountUnattributedWrite();
    }
    // A row-by-row walk by position is answered by a seek past the last row (same rows).
    if (resolved.statement->IsReadOnly() && d->walk.Continue(sql, result, outcome)) {
        return outcome;
    }
    // A scan for a name or a name pattern is answered through an index (same rows, same order).
    if (result && resolved.statement->IsReadOnly() &&
        d->search.AnswerLike(*resolved.statement.get(), resolved.values, resolved.rowsRead,
                             *result)) {
        return outcome;
    }
    outcome = d->runner.Run(operation, sql, resolved, result, d->readTimeLimitMs);
    if (outcome == DB_OPERATION_SUCCESS && result) {
        d->walk.Ran(sql, *result);
    }
    return outcome;
}

eDBOperationResult DBManager::Execute(const QString& sql, const DBRowHandler& handler) {
    d->notifyObservers(sql);
    return d->executeRows(sql, handler);
}

eDBOperationResult DBManager::Execute(const QString& head, QStringView value, const QString& tail,
                                      const DBRowHandler& handler) {
    if (d->observerCount.load(std::memory_order_acquire) != 0) {
        return Execute(GivenText(head, value, tail).Text(), handler);
    }
    return d->executeRows(GivenText(head, value, tail), handler);
}

eDBOperationResult DBManager::Private::executeRows(const GivenText& sql,
                                                   const DBRowHandler& handler) {
    static const char* const operation = "Execute";
    Lock lock(mutex);
    eDBOperationResult outcome = DB_OPERATION_SUCCESS;
    if (!checkOpen(operation, outcome)) {
        return outcome;
    }
    StatementRunner::Resolved resolved;
    if (!runner.Resolve(operation, sql, resolved, outcome)) {
        return outcome;
    }
    if (!resolved.statement->IsReadOnly()) {
        if (!writeAllowed(operation, outcome)) {
            return outcome;
        }
        changes.CountUnattributedWrite();
    }
    return runner.Run(operation, sql, resolved, nullptr, readTimeLimitMs, &handler);
}

eDBOperationResult DBManager::DeclareStatementTemplate(const QString& head,
                                                       const QStringList& tails, int rowsRead) {
    Lock lock(d->mutex);
    QString why;
    if (!d->runner.Templates().Declare(head, tails, rowsRead, why)) {
        return d->failures.Refuse("DeclareStatementTemplate", DB_OPERATION_INVALID_ARGUMENT, why);
    }
    return DB_OPERATION_SUCCESS;
}

void DBManager::SetReadTimeLimit(int milliseconds) {
    Lock lock(d->mutex);
    d->readTimeLimitMs = qMax(0, milliseconds);
}

int DBManager::GetReadTimeLimit() const {
    Lock lock(d->mutex);
    return d->readTimeLimitMs;
}

// ---- Writing ------------------------------------------------------------------------------------

eDBOperationResult DBManager::Insert(const QSharedPointer<DBData>& rows) {
    static const char* const operation = "Insert";
    Lock lock(d->mutex);
    eDBOperationResult outcome = DB_OPERATION_SUCCESS;
    if (!d->checkOpen(operation, outcome) || !d->writeAllowed(operation, outcome)) {
        return outcome;
    }
    if (!rows || rows->IsEmpty()) {
        return d->failures.Refuse(operation, DB_OPERATION_INVALID_ARGUMENT,
                                  QStringLiteral("there is no row to insert"));
    }
    SqliteTransaction transaction(d->connection.Handle());
    if (rows->RowCount() > 1) {
        const int rc = transaction.Begin();
        if (rc != SQLITE_OK) {
            return d->failures.Fail(operation, d->connection.Handle(), rc);
        }
    }
    for (const DBRow* row : *rows) {
        Private::InsertShape* known = d->knownInsert(row);
        const DBTable* table = known ? nullptr : d->rowTable(operation, row, outcome);
        if (!known && !table) {
            return outcome;
        }
        if (row->GetTable()->GetName() != rows->GetRow(0)->GetTable()->GetName()) {
            return d->failures.Refuse(
                operation, DB_OPERATION_INVALID_ARGUMENT,
                QStringLiteral("all rows of one insert must belong to one table"));
        }
        if (known) {
            QVector<QVariant> values;
            values.reserve(row->FieldCount());
            for (const DBField* field : row->GetFields()) {
                values.append(field->GetValue());
            }
            outcome = d->runner.Write(operation, known->sql, values, nullptr, &known->compiled);
            if (outcome != DB_OPERATION_SUCCESS) {
                return outcome;
            }
            continue;
        }
        // Built from the names quoted once per table description.
        QString sql;
        sql.reserve(96 + 48 * row->FieldCount());
        sql += QLatin1String("INSERT INTO ");
        sql += table->GetQuotedName();
        QVector<QVariant> values;
        if (row->FieldCount() == 0) {
            sql += QLatin1String(" DEFAULT VALUES");
        } else {
            values.reserve(row->FieldCount());
            QString updates;
            int keyColumnsGiven = 0;
            sql += QLatin1String(" (");
            for (const DBField* field : row->GetFields()) {
                const DBColumn* column = table->GetColumn(field->GetColumnName());
                const QString& name = column->GetQuotedName();
                if (!values.isEmpty()) {
                    sql += QLatin1String(", ");
                }
                sql += name;
                values.append(field->GetValue());
                if (column->IsPrimaryKey()) {
                    ++keyColumnsGiven;
                } else {
                    if (!updates.isEmpty()) {
                        updates += QLatin1String(", ");
                    }
                    updates += name;
                    updates += QLatin1String(" = excluded.");
                    updates += name;
                }
            }
            sql += QLatin1String(") VALUES (?");
            for (int i = 1; i < values.size(); ++i) {
                sql += QLatin1String(", ?");
            }
            sql += QLatin1Char(')');
            const QVector<const DBColumn*>& key = table->GetPrimaryKey();
            if (!key.isEmpty() && keyColumnsGiven == key.size()) {
                // The stored row is replaced, not merged: the columns the row does not give
                // take their defaults, as they would in a new row.
                for (const DBColumn* column : table->GetColumns()) {
                    if (column->IsPrimaryKey() || row->GetField(column->GetName())) {
                        continue;
                    }
                    if (!updates.isEmpty()) {
                        updates += QLatin1String(", ");
                    }
                    updates += column->GetQuotedName();
                    updates += QLatin1String(" = ");
                    updates +=
                        column->GetDefaultValue().isEmpty()
                            ? QStringLiteral("NULL")
                            : QLatin1Char('(') + column->GetDefaultValue() + QLatin1Char(')');
                }
                // An upsert on the key only: other unique constraints still refuse the row.
                sql += QLatin1String(" ON CONFLICT (");
                for (int i = 0; i < key.size(); ++i) {
                    if (i > 0) {
                        sql += QLatin1String(", ");
                    }
                    sql += key[i]->GetQuotedName();
                }
                sql += QLatin1String(") DO ");
                if (updates.isEmpty()) {
                    sql += QLatin1String("NOTHING");
                } else {
                    sql += QLatin1String("UPDATE SET ");
                    sql += updates;
                }
            }
        }
        Private::InsertShape& shape = d->insertShapes.Replace();
        shape.table = table->GetQuotedName();
        shape.fields.reserve(row->FieldCount());
        for (const DBField* field : row->GetFields()) {
            shape.fields.append(field->GetColumnName());
        }
        shape.sql = sql;
        outcome = d->runner.Write(operation, sql, values, nullptr, &shape.compiled);
        if (outcome != DB_OPERATION_SUCCESS) {
            return outcome;
        }
    }
    if (transaction.IsActive()) {
        const int rc = transaction.Commit();
        if (rc != SQLITE_OK) {
            return d->failures.Fail(operation, d->connection.Handle(), rc);
        }
    }
    return DB_OPERATION_SUCCESS;
}

eDBOperationResult DBManager::Update(const QSharedPointer<DBData>& rows) {
    static const char* const operation = "Update";
    Lock lock(d->mutex);
    eDBOperationResult outcome = DB_OPERATION_SUCCESS;
    if (!d->checkOpen(operation, outcome) || !d->writeAllowed(operation, outcome)) {
        return outcome;
    }
    if (!rows || rows->IsEmpty()) {
        return d->failures.Refuse(operation, DB_OPERATION_INVALID_ARGUMENT,
                                  QStringLiteral("there is no row to update"));
    }
    SqliteTransaction transaction(d->connection.Handle());
    if (rows->RowCount() > 1) {
        const int rc = transaction.Begin();
        if (rc != SQLITE_OK) {
            return d->failures.Fail(operation, d->connection.Handle(), rc);
        }
    }
    for (const DBRow* row : *rows) {
        const DBTable* table = d->rowTable(operation, row, outcome);
        if (!table) {
            return outcome;
        }
        if (table->GetPrimaryKey().isEmpty()) {
            return d->failures.Refuse(
                operation, DB_OPERATION_INVALID_ARGUMENT,
                QStringLiteral("table %1 has no primary key").arg(table->GetName()));
        }
        QStringList assignments;
        QVector<QVariant> values;
        for (const DBField* field : row->GetFields()) {
            const DBColumn* column = table->GetColumn(field->GetColumnName());
            if (!column->IsPrimaryKey()) {
                assignments.append(column->GetQuotedName() + QStringLiteral(" = ?"));
                values.append(field->GetValue());
            }
        }
        QStringList keyConditions;
        for (const DBColumn* key : table->GetPrimaryKey()) {
            const DBField* field = row->GetField(key->GetName());
            if (!field) {
                return d->failures.Refuse(
                    operation, DB_OPERATION_INVALID_ARGUMENT,
                    QStringLiteral("the row lacks the key column %1 of table %2")
                        .arg(key->GetName(), table->GetName()));
            }
            keyConditions.append(key->GetQuotedName() + QStringLiteral(" = ?"));
            values.append(field->GetValue());
        }
        if (assignments.isEmpty()) {
            continue;
        }
        const QString sql = QStringLiteral("UPDATE ") + table->GetQuotedName() +
                            QStringLiteral(" SET ") + assignments.join(QStringLiteral(", ")) +
                            QStringLiteral(" WHERE ") + keyConditions.join(QStringLiteral(" AND "));
        int changed = 0;
        outcome = d->runner.Write(operation, sql, values, &changed);
        if (outcome != DB_OPERATION_SUCCESS) {
            return outcome;
        }
        if (changed == 0) {
            return d->failures.Refuse(
                operation, DB_OPERATION_NOT_FOUND,
                QStringLiteral("no record of table %1 has the given key").arg(table->GetName()));
        }
    }
    if (transaction.IsActive()) {
        const int rc = transaction.Commit();
        if (rc != SQLITE_OK) {
            return d->failures.Fail(operation, d->connection.Handle(), rc);
        }
    }
    return DB_OPERATION_SUCCESS;
}

eDBOperationResult DBManager::Update(const QSharedPointer<DBData>& key,
                                     const QSharedPointer<DBData>& values) {
    static const char* const operation = "Update";
    Lock lock(d->mutex);
    eDBOperationResult outcome = DB_OPERATION_SUCCESS;
    if (!d->checkOpen(operation, outcome) || !d->writeAllowed(operation, outcome)) {
        return outcome;
    }
    if (!key || key->RowCount() != 1 || !values || values->RowCount() != 1 ||
        key->GetRow(0)->FieldCount() == 0 || values->GetRow(0)->FieldCount() == 0) {
        return d->failures.Refuse(operation, DB_OPERATION_INVALID_ARGUMENT,
                                  QStringLiteral("an update needs one key row and one row of "
                                                 "values, neither empty"));
    }
    const DBTable* table = d->rowTable(operation, values->GetRow(0), outcome);
    if (!table || !d->rowTable(operation, key->GetRow(0), outcome)) {
        return outcome;
    }
    QStringList assignments;
    QVector<QVariant> parameters;
    for (const DBField* field : values->GetRow(0)->GetFields()) {
        assignments.append(table->GetColumn(field->GetColumnName())->GetQuotedName() +
                           QStringLiteral(" = ?"));
        parameters.append(field->GetValue());
    }
    QString sql = QStringLiteral("UPDATE ") + table->GetQuotedName() + QStringLiteral(" SET ") +
                  assignments.join(QStringLiteral(", "));
    if (!d->appendConditions(operation, key->GetRow(0), table, false, sql, parameters, outcome)) {
        return outcome;
    }
    return d->runner.Write(operation, sql, parameters);
}

eDBOperationResult DBManager::Delete(const QSharedPointer<DBData>& where) {
    static const char* const operation = "Delete";
    Lock lock(d->mutex);
    eDBOperationResult outcome = DB_OPERATION_SUCCESS;
    if (!d->checkOpen(operation, outcome) || !d->writeAllowed(operation, outcome)) {
        return outcome;
    }
    if (!where || where->IsEmpty()) {
        return d->failures.Refuse(operation, DB_OPERATION_INVALID_ARGUMENT,
                                  QStringLiteral("there is no row to delete"));
    }
    SqliteTransaction transaction(d->connection.Handle());
    if (where->RowCount() > 1) {
        const int rc = transaction.Begin();
        if (rc != SQLITE_OK) {
            return d->failures.Fail(operation, d->connection.Handle(), rc);
        }
    }
    for (const DBRow* row : *where) {
        const DBTable* table = d->rowTable(operation, row, outcome);
        if (!table) {
            return outcome;
        }
        if (row->FieldCount() == 0) {
            return d->failures.Refuse(operation, DB_OPERATION_INVALID_ARGUMENT,
                                      QStringLiteral("a delete without conditions is refused; "
                                                     "ClearTable empties a table"));
        }
        QString sql = QStringLiteral("DELETE FROM ") + table->GetQuotedName();
        QVector<QVariant> values;
        if (!d->appendConditions(operation, row, table, false, sql, values, outcome)) {
            return outcome;
        }
        outcome = d->runner.Write(operation, sql, values);
        if (outcome != DB_OPERATION_SUCCESS) {
            return outcome;
        }
    }
    if (transaction.IsActive()) {
        const int rc = transaction.Commit();
        if (rc != SQLITE_OK) {
            return d->failures.Fail(operation, d->connection.Handle(), rc);
        }
    }
    return DB_OPERATION_SUCCESS;
}

eDBOperationResult DBManager::ClearTable(const QString& table) {
    static const char* const operation = "ClearTable";
    Lock lock(d->mutex);
    eDBOperationResult outcome = DB_OPERATION_SUCCESS;
    if (!d->checkOpen(operation, outcome) || !d->writeAllowed(operation, outcome)) {
        return outcome;
    }
    // SQLite empties a table without triggers at once, without reporting each row.
    d->changes.CountTableWrite(table);
    return d->runner.Write(operation,
                           QStringLiteral("DELETE FROM ") + SqlText::QuoteIdentifier(table), {});
}

// ---- Aggregates ---------------------------------------------------------------------------------

eDBOperationResult DBManager::Count(const QString& table, unsigned long& count) {
    static const char* const operation = "Count";
    Lock lock(d->mutex);
    eDBOperationResult outcome = DB_OPERATION_SUCCESS;
    if (!d->checkOpen(operation, outcome)) {
        return outcome;
    }
    QVariant value;
    outcome = d->runner.ReadValue(
        operation, QStringLiteral("SELECT COUNT(*) FROM ") + SqlText::QuoteIdentifier(table), {},
        value);
    if (outcome == DB_OPERATION_SUCCESS) {
        count = static_cast<unsigned long>(qMin<qulonglong>(value.toULongLong(), 0xFFFFFFFFu));
    }
    return outcome;
}

eDBOperationResult DBManager::CountInRange(const QString& table, const QString& where,
                                           unsigned int& count) {
    static const char* const operation = "CountInRange";
    Lock lock(d->mutex);
    eDBOperationResult outcome = DB_OPERATION_SUCCESS;
    if (!d->checkOpen(operation, outcome)) {
        return outcome;
    }
    QVector<QVariant> values;
    const QString sql = d->runner.WithCondition(
        QStringLiteral("SELECT COUNT(*) FROM ") + SqlText::QuoteIdentifier(table), where, values);
    QVariant value;
    outcome = d->runner.ReadValue(operation, sql, values, value);
    if (outcome == DB_OPERATION_SUCCESS) {
        count = value.toUInt();
    }
    return outcome;
}

namespace {

QString aggregateHead(const char* function, const QString& table, const QString& column) {
    return QLatin1String(function) + QLatin1Char('(') + SqlText::QuoteIdentifier(column) +
           QStringLiteral(") FROM ") + SqlText::QuoteIdentifier(table);
}

}  // namespace

eDBOperationResult DBManager::MaxValue(const QString& table, const QString& column,
                                       const QString& where, QVariant& value) {
    static const char* const operation = "MaxValue";
    Lock lock(d->mutex);
    eDBOperationResult outcome = DB_OPERATION_SUCCESS;
    if (!d->checkOpen(operation, outcome)) {
        return outcome;
    }
    QVector<QVariant> values;
    const QString sql =
        d->runner.WithCondition(aggregateHead("SELECT MAX", table, column), where, values);
    return d->runner.ReadValue(operation, sql, values, value);
}

eDBOperationResult DBManager::MinValue(const QString& table, const QString& column,
                                       const QString& where, QVariant& value) {
    static const char* const operation = "MinValue";
    Lock lock(d->mutex);
    eDBOperationResult outcome = DB_OPERATION_SUCCESS;
    if (!d->checkOpen(operation, outcome)) {
        return outcome;
    }
    QVector<QVariant> values;
    const QString sql =
        d->runner.WithCondition(aggregateHead("SELECT MIN", table, column), where, values);
    return d->runner.ReadValue(operation, sql, values, value);
}

eDBOperationResult DBManager::MinUnusedValue(const QString& table, const QString& column,
                                             QVariant& value) {
    static const char* const operation = "MinUnusedValue";
    Lock lock(d->mutex);
    eDBOperationResult outcome = DB_OPERATION_SUCCESS;
    if (!d->checkOpen(operation, outcome)) {
        return outcome;
    }
    const DBTable* described = d->describe(table);
    const DBColumn* counted = described ? described->GetColumn(column) : nullptr;
    if (counted && d->catalogue.HasUniqueIndex(described->GetName(), counted->GetName()) &&
        UnusedValueSearch::FindByIndex(d->runner, described, counted, value)) {
        return DB_OPERATION_SUCCESS;
    }
    const QString t = SqlText::QuoteIdentifier(table);
    const QString c = SqlText::QuoteIdentifier(column);
    const QString sql =
        QStringLiteral(
            "SELECT 1 WHERE NOT EXISTS (SELECT 1 FROM %1 WHERE %2 = 1) "
            "UNION ALL "
            "SELECT MIN(a.%2) + 1 FROM %1 AS a WHERE typeof(a.%2) = 'integer' "
            "AND a.%2 >= 1 AND NOT EXISTS (SELECT 1 FROM %1 AS b WHERE b.%2 = a.%2 + 1) "
            "LIMIT 1")
            .arg(t, c);
    return d->runner.ReadValue(operation, sql, {}, value);
}

// ---- Transactions -------------------------------------------------------------------------------

void DBManager::SetWriteOnlyInTransaction(bool on) {
    Lock lock(d->mutex);
    d->writeOnlyInTransaction = on;
}

bool DBManager::IsWriteOnlyInTransaction() const {
    Lock lock(d->mutex);
    return d->writeOnlyInTransaction;
}

eDBOperationResult DBManager::BeginTransaction() {
    static const char* const operation = "BeginTransaction";
    d->mutex.lock();  // kept until the transaction ends
    eDBOperationResult outcome = DB_OPERATION_SUCCESS;
    if (!d->checkOpen(operation, outcome)) {
        d->mutex.unlock();
        return outcome;
    }
    if (d->transaction) {
        d->mutex.unlock();
        return d->failures.Refuse(operation, DB_OPERATION_INVALID_ARGUMENT,
                                  QStringLiteral("a transaction is already open"));
    }
    auto transaction = std::make_unique<SqliteTransaction>(d->connection.Handle());
    const int rc = transaction->Begin();
    if (rc != SQLITE_OK) {
        outcome = d->failures.Fail(operation, d->connection.Handle(), rc);
        d->mutex.unlock();
        return outcome;
    }
    d->transaction = std::move(transaction);
    d->transactionOwner = std::this_thread::get_id();
    return DB_OPERATION_SUCCESS;
}

eDBOperationResult DBManager::CommitTransaction() {
    static const char* const operation = "CommitTransaction";
    Lock lock(d->mutex);
    if (!d->transaction || d->transactionOwner != std::this_thread::get_id()) {
        return d->failures.Refuse(operation, DB_OPERATION_INVALID_ARGUMENT,
                                  QStringLiteral("no transaction of this thread is open"));
    }
    // A bulk write pays for its search index entries at once, not at the next search.
    d->search.FoldAll();
    const int rc = d->transaction->Commit();
    const eDBOperationResult outcome =
        rc == SQLITE_OK ? DB_OPERATION_SUCCESS
                        : d->failures.Fail(operation, d->connection.Handle(), rc);
    d->transaction.reset();  // rolls back what a failed commit left
    d->mutex.unlock();
    return outcome;
}

eDBOperationResult DBManager::RollbackTransaction() {
    static const char* const operation = "RollbackTransaction";
    Lock lock(d->mutex);
    if (!d->transaction || d->transactionOwner != std::this_thread::get_id()) {
        return d->failures.Refuse(operation, DB_OPERATION_INVALID_ARGUMENT,
                                  QStringLiteral("no transaction of this thread is open"));
    }
    const int rc = d->transaction->Rollback();
    d->transaction.reset();
    d->mutex.unlock();
    return rc == SQLITE_OK ? DB_OPERATION_SUCCESS
                           : d->failures.Fail(operation, d->connection.Handle(), rc);
}

bool DBManager::IsInTransaction() const {
    Lock lock(d->mutex);
    return d->transaction != nullptr;
}

// ---- Change notes ------------------------------------------------------------------------------

quint64 DBManager::GetDataVersion() const {
    Lock lock(d->mutex);
    return d->connection.IsOpen() ? ChangeTracker::DataVersion(d->connection.Handle()) : 0;
}

quint64 DBManager::GetTableVersion(const QString& table) const {
    Lock lock(d->mutex);
    return d->connection.IsOpen() ? d->changes.TableVersion(d->connection.Handle(), table) : 0;
}

int DBManager::AddStatementObserver(const StatementObserver& observer) {
    std::lock_guard<std::mutex> lock(d->observerMutex);
    const int id = d->nextObserverId++;
    d->observers.append(qMakePair(id, observer));
    d->observerCount.store(d->observers.size(), std::memory_order_release);
    return id;
}

void DBManager::RemoveStatementObserver(int id) {
    std::lock_guard<std::mutex> lock(d->observerMutex);
    for (int i = 0; i < d->observers.size(); ++i) {
        if (d->observers[i].first == id) {
            d->observers.remove(i);
            d->observerCount.store(d->observers.size(), std::memory_order_release);
            return;
        }
    }
}

void DBManager::SetLogHandler(LogHandler handler) {
    DatabaseLog::SetHandler(handler);
}

void DBManager::AcquireKeepOpen() {
    Lock lock(d->mutex);
    ++d->keepOpen;
}

void DBManager::ReleaseKeepOpen() {
    Lock lock(d->mutex);
    if (d->keepOpen > 0 && --d->keepOpen == 0 && d->closePending) {
        d->closePending = false;
        d->closeNow();
    }
}
