#include "DBManager.h"

#include <sqlite3.h>

#include <QFileInfo>

#include "DBManagerPrivate.h"
#include "SchemaMigrator.h"
#include "SqlLiteralParameterizer.h"
#include "UnicodeSqlFunctions.h"

using namespace DBManagerDetail;

namespace {

constexpr quint32 articlesApplicationId = 0x414D4152;  // "AMAR"
constexpr quint32 receiptsApplicationId = 0x414D5243;  // "AMRC"

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

}  // namespace

DBManager::DBManager(const QString& fileName, eSchema schema)
    : d(std::make_unique<Private>(fileName, schema)) {
    if (qEnvironmentVariableIntValue("ARTICLEDB_TRACE_SQL") != 0) {
        AddStatementObserver(
            [](const QString& sql) { logMessage(logLevelNotice, QStringLiteral("SQL: ") + sql); });
    }
}

DBManager::~DBManager() {
    std::lock_guard<std::recursive_mutex> lock(d->mutex);
    d->closeNow();
}

eDBOperationResult DBManager::Open() {
    std::lock_guard<std::recursive_mutex> lock(d->mutex);
    if (d->connection) {
        return DB_OPERATION_SUCCESS;
    }
    const QByteArray path = d->fileName.toUtf8();
    int rc =
        sqlite3_open_v2(path.constData(), &d->connection,
                        SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
    auto abandon = [this](int code, const QString& why) {
        const QString reason =
            why.isEmpty() ? (d->connection ? QString::fromUtf8(sqlite3_errmsg(d->connection))
                                           : QString::fromUtf8(sqlite3_errstr(code)))
                          : why;
        d->lastError = reason;
        logMessage(logLevelError, QStringLiteral("DBManager::Open() on %1: %2")
                                      .arg(QFileInfo(d->fileName).fileName(), reason));
        d->cache.SetConnection(nullptr);
        sqlite3_close_v2(d->connection);
        d->connection = nullptr;
        d->state = STATE_FAILED;
        const eDBOperationResult result = resultFor(code);
        return result == DB_OPERATION_SUCCESS ? DB_OPERATION_ERROR : result;
    };
    if (rc != SQLITE_OK) {
        return abandon(rc, QString());
    }
    sqlite3_extended_result_codes(d->connection, 1);
    // Double quotes name identifiers only: a misspelt column must never become a text value.
    sqlite3_db_config(d->connection, SQLITE_DBCONFIG_DQS_DML, 0, nullptr);
    sqlite3_db_config(d->connection, SQLITE_DBCONFIG_DQS_DDL, 0, nullptr);
    sqlite3_busy_timeout(d->connection, busyTimeoutMs);
    sqlite3_update_hook(d->connection, &Private::countRowChange, d.get());
    sqlite3_progress_handler(d->connection, progressSteps, &Private::checkDeadline, d.get());
    // Reading the schema first tells a file that is not a database before anything is written.
    rc = d->exec("PRAGMA schema_version");
    if (rc == SQLITE_OK) {
        rc = d->exec("PRAGMA journal_mode = WAL");
    }
    if (rc == SQLITE_OK) {
        rc = d->exec("PRAGMA synchronous = FULL");
    }
    if (rc == SQLITE_OK) {
        // A bounded page cache rather than a mapped file: every mapped page a search or a scan
        // touches would stay in the register's resident memory.
        rc = d->exec("PRAGMA mmap_size = 0");
    }
    if (rc == SQLITE_OK) {
        rc = d->exec("PRAGMA cache_size = -4096");
    }
    if (rc == SQLITE_OK) {
        // Statement journals in memory: inside a long transaction SQLite otherwise writes the
        // pages every statement touches to a temporary file, which cost a price list import
        // most of its time (and would wear the register's flash).
        rc = d->exec("PRAGMA temp_store = MEMORY");
    }
    if (rc == SQLITE_OK) {
        rc = UnicodeSqlFunctions::Register(d->connection);
    }
    if (rc != SQLITE_OK) {
        return abandon(rc, QString());
    }
    if (const SchemaMigrator* migrator = migratorFor(d->schema)) {
        QString error;
        rc = migrator->Migrate(d->connection, error);
        if (rc != SQLITE_OK) {
            return abandon(rc, error);
        }
    }
    d->cache.SetConnection(d->connection);
    QVariant version;
    d->readValue("Open", QStringLiteral("PRAGMA user_version"), {}, version);
    d->schemaVersion = version.toInt();
    d->refreshTables();
    d->state = STATE_OPEN;
    return DB_OPERATION_SUCCESS;
}

void DBManager::Close() {
    std::lock_guard<std::recursive_mutex> lock(d->mutex);
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

DBManager::eSchema DBManager::GetSchema() const {
    return d->schema;
}

int DBManager::GetSchemaVersion() const {
    std::lock_guard<std::recursive_mutex> lock(d->mutex);
    return d->schemaVersion;
}

int DBManager::LatestSchemaVersion(eSchema schema) {
    const SchemaMigrator* migrator = migratorFor(schema);
    return migrator ? migrator->LatestVersion() : 0;
}

QString DBManager::GetLastError() const {
    std::lock_guard<std::recursive_mutex> lock(d->mutex);
    return d->lastError;
}

DBTable* DBManager::GetTable(const QString& name) const {
    std::lock_guard<std::recursive_mutex> lock(d->mutex);
    if (!d->connection) {
        return nullptr;
    }
    d->refreshTables();
    return d->describe(name);
}

eDBOperationResult DBManager::Load(const QSharedPointer<DBData>& query, eLoadMode mode,
                                   QSharedPointer<DBData>& result, bool like, const QString& order,
                                   int limit) {
    static const char* const operation = "Load";
    std::lock_guard<std::recursive_mutex> lock(d->mutex);
    eDBOperationResult outcome = DB_OPERATION_SUCCESS;
    if (!d->checkOpen(operation, outcome)) {
        return outcome;
    }
    if (!query || query->RowCount() != 1) {
        return d->refuse(operation, DB_OPERATION_INVALID_ARGUMENT,
                         QStringLiteral("the query must hold exactly one row"));
    }
    const DBTable* table = d->rowTable(operation, query->GetRow(0), outcome);
    if (!table) {
        return outcome;
    }
    if (like && query->GetRow(0)->FieldCount() == 1 &&
        d->loadLikeByIndex(table, query->GetRow(0)->GetFields().first(), mode, order, limit, result,
                           outcome)) {
        return outcome;
    }
    QString sql;
    sql.reserve(128);
    sql += QStringLiteral("SELECT * FROM ");
    sql += table->GetQuotedName();
    QVector<QVariant> values;
    if (!d->appendConditions(operation, query->GetRow(0), table, like, sql, values, outcome)) {
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
    return d->readRows(operation, sql, values, table, result);
}

eDBOperationResult DBManager::Load(const QString& table, const QStringList& columns,
                                   const QString& where, QSharedPointer<DBData>& result) {
    static const char* const operation = "Load";
    std::lock_guard<std::recursive_mutex> lock(d->mutex);
    eDBOperationResult outcome = DB_OPERATION_SUCCESS;
    if (!d->checkOpen(operation, outcome)) {
        return outcome;
    }
    QStringList selected;
    for (const QString& column : columns) {
        selected.append(quoteIdentifier(column));
    }
    QVector<QVariant> values;
    const QString sql = d->withCondition(
        QStringLiteral("SELECT ") +
            (selected.isEmpty() ? QStringLiteral("*") : selected.join(QStringLiteral(", "))) +
            QStringLiteral(" FROM ") + quoteIdentifier(table),
        where, values);
    return d->readRows(operation, sql, values, d->describe(table), result);
}

eDBOperationResult DBManager::LoadAll(const QString& table, QSharedPointer<DBData>& result) {
    static const char* const operation = "LoadAll";
    std::lock_guard<std::recursive_mutex> lock(d->mutex);
    eDBOperationResult outcome = DB_OPERATION_SUCCESS;
    if (!d->checkOpen(operation, outcome)) {
        return outcome;
    }
    return d->readRows(operation, QStringLiteral("SELECT * FROM ") + quoteIdentifier(table), {},
                       d->describe(table), result);
}

eDBOperationResult DBManager::LoadPrefix(const QString& table, const QString& column,
                                         const QString& prefix, QSharedPointer<DBData>& result,
                                         const QString& orderColumn, bool ignoreCase) {
    static const char* const operation = "LoadPrefix";
    std::lock_guard<std::recursive_mutex> lock(d->mutex);
    eDBOperationResult outcome = DB_OPERATION_SUCCESS;
    if (!d->checkOpen(operation, outcome)) {
        return outcome;
    }
    const DBTable* described = d->describe(table);
    const DBColumn* searched = described ? described->GetColumn(column) : nullptr;
    const DBColumn* ordered = described ? described->GetColumn(orderColumn) : nullptr;
    if (ignoreCase && searched && (orderColumn.isEmpty() || ordered) &&
        d->loadPrefixByIndex(described, searched, prefix, ordered, result, outcome)) {
        return outcome;
    }
    QString sql = QStringLiteral("SELECT * FROM ") + quoteIdentifier(table);
    QVector<QVariant> values;
    if (ignoreCase) {
        sql += QStringLiteral(" WHERE ") + quoteIdentifier(column) +
               QStringLiteral(" LIKE ? ESCAPE '\\'");
        values.append(escapeLikePattern(prefix) + QLatin1Char('%'));
    } else {
        sql += QStringLiteral(" WHERE substr(") + quoteIdentifier(column) +
               QStringLiteral(", 1, ?) = ?");
        values.append(prefix.size());
        values.append(prefix);
    }
    if (!orderColumn.isEmpty()) {
        // Rows that tie keep row order, so that every run lists them alike.
        sql +=
            QStringLiteral(" ORDER BY ") + quoteIdentifier(orderColumn) + QStringLiteral(", rowid");
    }
    return d->readRows(operation, sql, values, described, result);
}

eDBOperationResult DBManager::Execute(const QString& sql, DBDirectQueryResult* result) {
    static const char* const operation = "Execute";
    d->notifyObservers(sql);
    std::lock_guard<std::recursive_mutex> lock(d->mutex);
    eDBOperationResult outcome = DB_OPERATION_SUCCESS;
    if (!d->checkOpen(operation, outcome)) {
        return outcome;
    }
    const SqlLiteralParameterizer::Result parameterized = d->parameterizer.Parameterize(sql);
    int rc = SQLITE_OK;
    bool multiple = false;
    SqliteStatement* statement = d->cache.Acquire(parameterized.text, rc, multiple);
    QVector<QVariant> values = parameterized.values;
    if (!statement && !multiple && parameterized.changed) {
        // Quoted text where SQLite allows no value (e.g. an alias): take the text as written.
        bool verbatimMultiple = false;
        int verbatimRc = SQLITE_OK;
        statement = d->cache.Acquire(sql, verbatimRc, verbatimMultiple);
        values.clear();
        multiple = verbatimMultiple;
    }
    if (!statement) {
        if (multiple) {
            return d->refuse(operation, DB_OPERATION_INVALID_ARGUMENT,
                             QStringLiteral("the text holds more than one statement [") + sql +
                                 QLatin1Char(']'));
        }
        if (rc == SQLITE_MISUSE && sqlite3_errcode(d->connection) == SQLITE_OK) {
            return d->refuse(operation, DB_OPERATION_INVALID_ARGUMENT,
                             QStringLiteral("the text holds no statement"));
        }
        return d->fail(operation, rc, sql);
    }
    Private::Lease lease(d->cache, statement);
    if (!statement->IsReadOnly()) {
        if (!d->writeAllowed(operation, outcome)) {
            return outcome;
        }
        // A DELETE without a condition may empty its table without reporting rows.
        ++d->unattributedWrites;
    }
    rc = statement->BindAll(values);
    if (rc != SQLITE_OK) {
        return d->fail(operation, rc, sql);
    }
    DBDirectQueryResult rows;
    const int columnCount = statement->ColumnCount();
    if (result) {
        rows.SetColumnNames(statement->ColumnNames());
    }
    // A query gets a time limit (writes are the library's own fixed statements and must run
    // to their end, e.g. a price conversion of the whole catalogue).
    struct Deadline {
        Private& d;
        explicit Deadline(Private& d, bool limited) : d(d) {
            d.deadlineSet = limited && d.readTimeLimitMs > 0;
            d.deadline =
                std::chrono::steady_clock::now() + std::chrono::milliseconds(d.readTimeLimitMs);
        }
        ~Deadline() { d.deadlineSet = false; }
    } limit(*d, statement->IsReadOnly());
    while ((rc = sqlite3_step(statement->Handle())) == SQLITE_ROW) {
        if (result) {
            QVector<QVariant> row(columnCount);
            for (int i = 0; i < columnCount; ++i) {
                row[i] = statement->ColumnValue(i);
            }
            rows.AppendRow(row);
        }
    }
    if ((rc & 0xff) == SQLITE_INTERRUPT && d->deadlineSet) {
        sqlite3_reset(statement->Handle());
        return d->refuse(operation, DB_OPERATION_ERROR,
                         QStringLiteral("the query ran longer than %1 ms and was stopped [%2]")
                             .arg(d->readTimeLimitMs)
                             .arg(sql));
    }
    if (rc != SQLITE_DONE) {
        return d->fail(operation, rc, sql);
    }
    if (result) {
        *result = rows;
    }
    return DB_OPERATION_SUCCESS;
}

eDBOperationResult DBManager::Insert(const QSharedPointer<DBData>& rows) {
    static const char* const operation = "Insert";
    std::lock_guard<std::recursive_mutex> lock(d->mutex);
    eDBOperationResult outcome = DB_OPERATION_SUCCESS;
    if (!d->checkOpen(operation, outcome) || !d->writeAllowed(operation, outcome)) {
        return outcome;
    }
    if (!rows || rows->IsEmpty()) {
        return d->refuse(operation, DB_OPERATION_INVALID_ARGUMENT,
                         QStringLiteral("there is no row to insert"));
    }
    Private::WriteScope scope(*d);
    if (rows->RowCount() > 1) {
        const int rc = scope.Begin();
        if (rc != SQLITE_OK) {
            return d->fail(operation, rc);
        }
    }
    for (const DBRow* row : *rows) {
        const DBTable* table = d->rowTable(operation, row, outcome);
        if (!table) {
            return outcome;
        }
        if (row->GetTable()->GetName() != rows->GetRow(0)->GetTable()->GetName()) {
            return d->refuse(operation, DB_OPERATION_INVALID_ARGUMENT,
                             QStringLiteral("all rows of one insert must belong to one table"));
        }
        // Built from the names quoted once per table description: this runs for every row of
        // a price list import.
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
        outcome = d->write(operation, sql, values);
        if (outcome != DB_OPERATION_SUCCESS) {
            return outcome;
        }
    }
    if (rows->RowCount() > 1) {
        const int rc = scope.Commit();
        if (rc != SQLITE_OK) {
            return d->fail(operation, rc);
        }
    }
    return DB_OPERATION_SUCCESS;
}

eDBOperationResult DBManager::Update(const QSharedPointer<DBData>& rows) {
    static const char* const operation = "Update";
    std::lock_guard<std::recursive_mutex> lock(d->mutex);
    eDBOperationResult outcome = DB_OPERATION_SUCCESS;
    if (!d->checkOpen(operation, outcome) || !d->writeAllowed(operation, outcome)) {
        return outcome;
    }
    if (!rows || rows->IsEmpty()) {
        return d->refuse(operation, DB_OPERATION_INVALID_ARGUMENT,
                         QStringLiteral("there is no row to update"));
    }
    Private::WriteScope scope(*d);
    if (rows->RowCount() > 1) {
        const int rc = scope.Begin();
        if (rc != SQLITE_OK) {
            return d->fail(operation, rc);
        }
    }
    for (const DBRow* row : *rows) {
        const DBTable* table = d->rowTable(operation, row, outcome);
        if (!table) {
            return outcome;
        }
        if (table->GetPrimaryKey().isEmpty()) {
            return d->refuse(operation, DB_OPERATION_INVALID_ARGUMENT,
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
                return d->refuse(operation, DB_OPERATION_INVALID_ARGUMENT,
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
        int changes = 0;
        outcome = d->write(operation, sql, values, &changes);
        if (outcome != DB_OPERATION_SUCCESS) {
            return outcome;
        }
        if (changes == 0) {
            return d->refuse(
                operation, DB_OPERATION_NOT_FOUND,
                QStringLiteral("no record of table %1 has the given key").arg(table->GetName()));
        }
    }
    if (rows->RowCount() > 1) {
        const int rc = scope.Commit();
        if (rc != SQLITE_OK) {
            return d->fail(operation, rc);
        }
    }
    return DB_OPERATION_SUCCESS;
}

eDBOperationResult DBManager::Update(const QSharedPointer<DBData>& key,
                                     const QSharedPointer<DBData>& values) {
    static const char* const operation = "Update";
    std::lock_guard<std::recursive_mutex> lock(d->mutex);
    eDBOperationResult outcome = DB_OPERATION_SUCCESS;
    if (!d->checkOpen(operation, outcome) || !d->writeAllowed(operation, outcome)) {
        return outcome;
    }
    if (!key || key->RowCount() != 1 || !values || values->RowCount() != 1 ||
        key->GetRow(0)->FieldCount() == 0 || values->GetRow(0)->FieldCount() == 0) {
        return d->refuse(operation, DB_OPERATION_INVALID_ARGUMENT,
                         QStringLiteral("an update needs one key row and one row of values, "
                                        "neither empty"));
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
    return d->write(operation, sql, parameters);
}

eDBOperationResult DBManager::Delete(const QSharedPointer<DBData>& where) {
    static const char* const operation = "Delete";
    std::lock_guard<std::recursive_mutex> lock(d->mutex);
    eDBOperationResult outcome = DB_OPERATION_SUCCESS;
    if (!d->checkOpen(operation, outcome) || !d->writeAllowed(operation, outcome)) {
        return outcome;
    }
    if (!where || where->IsEmpty()) {
        return d->refuse(operation, DB_OPERATION_INVALID_ARGUMENT,
                         QStringLiteral("there is no row to delete"));
    }
    Private::WriteScope scope(*d);
    if (where->RowCount() > 1) {
        const int rc = scope.Begin();
        if (rc != SQLITE_OK) {
            return d->fail(operation, rc);
        }
    }
    for (const DBRow* row : *where) {
        const DBTable* table = d->rowTable(operation, row, outcome);
        if (!table) {
            return outcome;
        }
        if (row->FieldCount() == 0) {
            return d->refuse(operation, DB_OPERATION_INVALID_ARGUMENT,
                             QStringLiteral("a delete without conditions is refused; "
                                            "ClearTable empties a table"));
        }
        QString sql = QStringLiteral("DELETE FROM ") + table->GetQuotedName();
        QVector<QVariant> values;
        if (!d->appendConditions(operation, row, table, false, sql, values, outcome)) {
            return outcome;
        }
        outcome = d->write(operation, sql, values);
        if (outcome != DB_OPERATION_SUCCESS) {
            return outcome;
        }
    }
    if (where->RowCount() > 1) {
        const int rc = scope.Commit();
        if (rc != SQLITE_OK) {
            return d->fail(operation, rc);
        }
    }
    return DB_OPERATION_SUCCESS;
}

eDBOperationResult DBManager::ClearTable(const QString& table) {
    static const char* const operation = "ClearTable";
    std::lock_guard<std::recursive_mutex> lock(d->mutex);
    eDBOperationResult outcome = DB_OPERATION_SUCCESS;
    if (!d->checkOpen(operation, outcome) || !d->writeAllowed(operation, outcome)) {
        return outcome;
    }
    // SQLite empties a table without triggers at once, without reporting each row.
    d->countTableWrite(table);
    return d->write(operation, QStringLiteral("DELETE FROM ") + quoteIdentifier(table), {});
}

eDBOperationResult DBManager::Count(const QString& table, unsigned long& count) {
    static const char* const operation = "Count";
    std::lock_guard<std::recursive_mutex> lock(d->mutex);
    eDBOperationResult outcome = DB_OPERATION_SUCCESS;
    if (!d->checkOpen(operation, outcome)) {
        return outcome;
    }
    QVariant value;
    outcome = d->readValue(
        operation, QStringLiteral("SELECT COUNT(*) FROM ") + quoteIdentifier(table), {}, value);
    if (outcome == DB_OPERATION_SUCCESS) {
        count = static_cast<unsigned long>(value.toULongLong());
    }
    return outcome;
}

eDBOperationResult DBManager::CountInRange(const QString& table, const QString& where,
                                           unsigned int& count) {
    static const char* const operation = "CountInRange";
    std::lock_guard<std::recursive_mutex> lock(d->mutex);
    eDBOperationResult outcome = DB_OPERATION_SUCCESS;
    if (!d->checkOpen(operation, outcome)) {
        return outcome;
    }
    QVector<QVariant> values;
    const QString sql = d->withCondition(
        QStringLiteral("SELECT COUNT(*) FROM ") + quoteIdentifier(table), where, values);
    QVariant value;
    outcome = d->readValue(operation, sql, values, value);
    if (outcome == DB_OPERATION_SUCCESS) {
        count = value.toUInt();
    }
    return outcome;
}

eDBOperationResult DBManager::MaxValue(const QString& table, const QString& column,
                                       const QString& where, QVariant& value) {
    static const char* const operation = "MaxValue";
    std::lock_guard<std::recursive_mutex> lock(d->mutex);
    eDBOperationResult outcome = DB_OPERATION_SUCCESS;
    if (!d->checkOpen(operation, outcome)) {
        return outcome;
    }
    QVector<QVariant> values;
    const QString sql = d->withCondition(QStringLiteral("SELECT MAX(") + quoteIdentifier(column) +
                                             QStringLiteral(") FROM ") + quoteIdentifier(table),
                                         where, values);
    return d->readValue(operation, sql, values, value);
}

eDBOperationResult DBManager::MinValue(const QString& table, const QString& column,
                                       const QString& where, QVariant& value) {
    static const char* const operation = "MinValue";
    std::lock_guard<std::recursive_mutex> lock(d->mutex);
    eDBOperationResult outcome = DB_OPERATION_SUCCESS;
    if (!d->checkOpen(operation, outcome)) {
        return outcome;
    }
    QVector<QVariant> values;
    const QString sql = d->withCondition(QStringLiteral("SELECT MIN(") + quoteIdentifier(column) +
                                             QStringLiteral(") FROM ") + quoteIdentifier(table),
                                         where, values);
    return d->readValue(operation, sql, values, value);
}

eDBOperationResult DBManager::MinUnusedValue(const QString& table, const QString& column,
                                             QVariant& value) {
    static const char* const operation = "MinUnusedValue";
    std::lock_guard<std::recursive_mutex> lock(d->mutex);
    eDBOperationResult outcome = DB_OPERATION_SUCCESS;
    if (!d->checkOpen(operation, outcome)) {
        return outcome;
    }
    const DBTable* described = d->describe(table);
    const DBColumn* counted = described ? described->GetColumn(column) : nullptr;
    if (counted && d->minUnusedByIndex(described, counted, value, outcome)) {
        return outcome;
    }
    const QString t = quoteIdentifier(table);
    const QString c = quoteIdentifier(column);
    const QString sql =
        QStringLiteral(
            "SELECT 1 WHERE NOT EXISTS (SELECT 1 FROM %1 WHERE %2 = 1) "
            "UNION ALL "
            "SELECT MIN(a.%2) + 1 FROM %1 AS a WHERE typeof(a.%2) = 'integer' "
            "AND a.%2 >= 1 AND NOT EXISTS (SELECT 1 FROM %1 AS b WHERE b.%2 = a.%2 + 1) "
            "LIMIT 1")
            .arg(t, c);
    return d->readValue(operation, sql, {}, value);
}

void DBManager::SetWriteOnlyInTransaction(bool on) {
    std::lock_guard<std::recursive_mutex> lock(d->mutex);
    d->writeOnlyInTransaction = on;
}

bool DBManager::IsWriteOnlyInTransaction() const {
    std::lock_guard<std::recursive_mutex> lock(d->mutex);
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
    if (d->inTransaction) {
        d->mutex.unlock();
        return d->refuse(operation, DB_OPERATION_INVALID_ARGUMENT,
                         QStringLiteral("a transaction is already open"));
    }
    const int rc = d->exec("BEGIN IMMEDIATE");
    if (rc != SQLITE_OK) {
        outcome = d->fail(operation, rc);
        d->mutex.unlock();
        return outcome;
    }
    d->inTransaction = true;
    d->transactionOwner = std::this_thread::get_id();
    return DB_OPERATION_SUCCESS;
}

eDBOperationResult DBManager::CommitTransaction() {
    static const char* const operation = "CommitTransaction";
    std::lock_guard<std::recursive_mutex> lock(d->mutex);
    if (!d->inTransaction || d->transactionOwner != std::this_thread::get_id()) {
        return d->refuse(operation, DB_OPERATION_INVALID_ARGUMENT,
                         QStringLiteral("no transaction of this thread is open"));
    }
    // A bulk write pays for its search index entries at once, not at the next search.
    d->syncSearchIndexes();
    int rc = d->exec("COMMIT");
    eDBOperationResult outcome = DB_OPERATION_SUCCESS;
    if (rc != SQLITE_OK) {
        outcome = d->fail(operation, rc);
        d->exec("ROLLBACK");
    }
    d->inTransaction = false;
    d->mutex.unlock();
    return outcome;
}

eDBOperationResult DBManager::RollbackTransaction() {
    static const char* const operation = "RollbackTransaction";
    std::lock_guard<std::recursive_mutex> lock(d->mutex);
    if (!d->inTransaction || d->transactionOwner != std::this_thread::get_id()) {
        return d->refuse(operation, DB_OPERATION_INVALID_ARGUMENT,
                         QStringLiteral("no transaction of this thread is open"));
    }
    const int rc = d->exec("ROLLBACK");
    d->inTransaction = false;
    d->mutex.unlock();
    return rc == SQLITE_OK ? DB_OPERATION_SUCCESS : d->fail(operation, rc);
}

bool DBManager::IsInTransaction() const {
    std::lock_guard<std::recursive_mutex> lock(d->mutex);
    return d->inTransaction;
}

quint64 DBManager::GetDataVersion() const {
    std::lock_guard<std::recursive_mutex> lock(d->mutex);
    if (!d->connection) {
        return 0;
    }
    unsigned int version = 0;
    sqlite3_file_control(d->connection, "main", SQLITE_FCNTL_DATA_VERSION, &version);
    return version;
}

void DBManager::SetReadTimeLimit(int milliseconds) {
    std::lock_guard<std::recursive_mutex> lock(d->mutex);
    d->readTimeLimitMs = qMax(0, milliseconds);
}

int DBManager::GetReadTimeLimit() const {
    std::lock_guard<std::recursive_mutex> lock(d->mutex);
    return d->readTimeLimitMs;
}

quint64 DBManager::GetTableVersion(const QString& table) const {
    std::lock_guard<std::recursive_mutex> lock(d->mutex);
    if (!d->connection) {
        return 0;
    }
    // The pager's data version moves with every commit, this connection's own included, and
    // shows another connection's commit from this connection's next read on. Asking it starts
    // no transaction (a read transaction costs a lookup several file-lock calls). Own writes
    // inside an open transaction do not move it: the update hook's counts cover those.
    unsigned int pager = 0;
    sqlite3_file_control(d->connection, "main", SQLITE_FCNTL_DATA_VERSION, &pager);
    if (pager != d->seenDataVersion) {
        d->seenDataVersion = pager;
        ++d->commitEpoch;
    }
    const auto own = d->tableChanges.find(table.toStdString());
    const quint64 changes =
        d->unattributedWrites + (own == d->tableChanges.end() ? 0 : own->second);
    return (d->commitEpoch << 32) + (changes & 0xffffffffu);
}

int DBManager::AddStatementObserver(const StatementObserver& observer) {
    std::lock_guard<std::mutex> lock(d->observerMutex);
    const int id = d->nextObserverId++;
    d->observers.append(qMakePair(id, observer));
    return id;
}

void DBManager::RemoveStatementObserver(int id) {
    std::lock_guard<std::mutex> lock(d->observerMutex);
    for (int i = 0; i < d->observers.size(); ++i) {
        if (d->observers[i].first == id) {
            d->observers.remove(i);
            return;
        }
    }
}

void DBManager::SetLogHandler(LogHandler handler) {
    setLogHandler(handler);
}

void DBManager::AcquireKeepOpen() {
    std::lock_guard<std::recursive_mutex> lock(d->mutex);
    ++d->keepOpen;
}

void DBManager::ReleaseKeepOpen() {
    std::lock_guard<std::recursive_mutex> lock(d->mutex);
    if (d->keepOpen > 0 && --d->keepOpen == 0 && d->closePending) {
        d->closePending = false;
        d->closeNow();
    }
}
