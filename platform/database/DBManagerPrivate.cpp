#include "DBManagerPrivate.h"

#include <QFileInfo>
#include <cstdio>

#include "SqlLiteralParameterizer.h"

namespace DBManagerDetail {

namespace {
std::atomic<DBManager::LogHandler> logHandler{nullptr};
}  // namespace

void logMessage(int level, const QString& text) {
    DBManager::LogHandler handler = logHandler.load();
    if (handler) {
        handler(level, text);
    } else {
        std::fprintf(stderr, "%s\n", text.toLocal8Bit().constData());
    }
}

void setLogHandler(DBManager::LogHandler handler) {
    logHandler.store(handler);
}

QString quoteIdentifier(const QString& name) {
    QString quoted = name;
    quoted.replace(QLatin1Char('"'), QLatin1String("\"\""));
    return QLatin1Char('"') + quoted + QLatin1Char('"');
}

eDBOperationResult resultFor(int rc) {
    switch (rc & 0xff) {
        case SQLITE_OK:
        case SQLITE_ROW:
        case SQLITE_DONE:
            return DB_OPERATION_SUCCESS;
        case SQLITE_CONSTRAINT:
            return DB_OPERATION_CONSTRAINT;
        default:
            return DB_OPERATION_ERROR;
    }
}

QString escapeLikePattern(const QString& text) {
    QString escaped;
    escaped.reserve(text.size() + 4);
    for (const QChar c : text) {
        if (c == QLatin1Char('%') || c == QLatin1Char('_') || c == QLatin1Char('\\')) {
            escaped.append(QLatin1Char('\\'));
        }
        escaped.append(c);
    }
    return escaped;
}

}  // namespace DBManagerDetail

using namespace DBManagerDetail;

namespace {

bool sameColumns(const DBTable* table, const QVector<DBTable::ColumnInfo>& columns) {
    if (table->GetColumns().size() != columns.size()) {
        return false;
    }
    for (int i = 0; i < columns.size(); ++i) {
        const DBColumn* column = table->GetColumns()[i];
        if (column->GetName() != columns[i].name || column->GetType() != columns[i].declaredType ||
            column->IsNotNull() != columns[i].notNull ||
            column->GetDefaultValue() != columns[i].defaultValue ||
            column->GetPrimaryKeyPosition() != columns[i].primaryKeyPosition) {
            return false;
        }
    }
    return true;
}

}  // namespace

void DBManager::Private::countRowChange(void* owner, int, const char*, const char* table,
                                        sqlite3_int64) {
    auto* d = static_cast<Private*>(owner);
    // A bulk statement changes one table row after row: remember the last one's counter.
    if (d->lastChangedCount && d->lastChangedTable == table) {
        ++*d->lastChangedCount;
        return;
    }
    d->lastChangedTable = table;
    d->lastChangedCount = &d->tableChanges[d->lastChangedTable];
    ++*d->lastChangedCount;
}

int DBManager::Private::checkDeadline(void* owner) {
    const auto* d = static_cast<const Private*>(owner);
    return d->deadlineSet && std::chrono::steady_clock::now() > d->deadline ? 1 : 0;
}

void DBManager::Private::countTableWrite(const QString& table) {
    ++tableChanges[table.toStdString()];
}

int DBManager::Private::exec(const char* sql) {
    return sqlite3_exec(connection, sql, nullptr, nullptr, nullptr);
}

eDBOperationResult DBManager::Private::fail(const char* operation, int rc, const QString& sql) {
    lastError = connection ? QString::fromUtf8(sqlite3_errmsg(connection))
                           : QString::fromUtf8(sqlite3_errstr(rc));
    QString text = QStringLiteral("DBManager::%1() on %2: %3")
                       .arg(QLatin1String(operation), QFileInfo(fileName).fileName(), lastError);
    if (!sql.isEmpty()) {
        text += QStringLiteral(" [") + sql + QLatin1Char(']');
    }
    logMessage(logLevelError, text);
    const eDBOperationResult result = resultFor(rc);
    return result == DB_OPERATION_SUCCESS ? DB_OPERATION_ERROR : result;
}

eDBOperationResult DBManager::Private::refuse(const char* operation, eDBOperationResult code,
                                              const QString& why) {
    lastError = why;
    logMessage(logLevelError,
               QStringLiteral("DBManager::%1() on %2: %3")
                   .arg(QLatin1String(operation), QFileInfo(fileName).fileName(), why));
    return code;
}

bool DBManager::Private::checkOpen(const char* operation, eDBOperationResult& rc) {
    if (connection) {
        return true;
    }
    rc =
        refuse(operation, DB_OPERATION_NOT_INITIALIZED, QStringLiteral("the database is not open"));
    return false;
}

bool DBManager::Private::writeAllowed(const char* operation, eDBOperationResult& rc) {
    if (!writeOnlyInTransaction || inTransaction) {
        return true;
    }
    rc = refuse(operation, DB_OPERATION_INVALID_ARGUMENT,
                QStringLiteral("writes are allowed only inside a transaction"));
    return false;
}

void DBManager::Private::refreshTables() const {
    qint64 version = -1;
    {
        int rc = 0;
        bool multiple = false;
        SqliteStatement* statement =
            cache.Acquire(QStringLiteral("PRAGMA schema_version"), rc, multiple);
        if (!statement) {
            return;
        }
        Lease lease(cache, statement);
        if (sqlite3_step(statement->Handle()) == SQLITE_ROW) {
            version = sqlite3_column_int64(statement->Handle(), 0);
        }
    }
    if (version < 0 || version == describedSchemaVersion) {
        return;
    }
    QStringList names;
    {
        sqlite3_stmt* list = nullptr;
        if (sqlite3_prepare_v2(connection,
                               "SELECT name FROM sqlite_master WHERE type = 'table' AND "
                               "substr(name, 1, 7) != 'sqlite_' ORDER BY name",
                               -1, &list, nullptr) != SQLITE_OK) {
            sqlite3_finalize(list);
            return;
        }
        while (sqlite3_step(list) == SQLITE_ROW) {
            names.append(
                QString::fromUtf8(reinterpret_cast<const char*>(sqlite3_column_text(list, 0))));
        }
        sqlite3_finalize(list);
    }
    QHash<QString, DBTable*> fresh;
    sqlite3_stmt* info = nullptr;
    if (sqlite3_prepare_v2(connection,
                           "SELECT name, type, \"notnull\", dflt_value, pk "
                           "FROM pragma_table_info(?1)",
                           -1, &info, nullptr) != SQLITE_OK) {
        sqlite3_finalize(info);
        return;
    }
    for (const QString& name : names) {
        const QByteArray utf8 = name.toUtf8();
        sqlite3_bind_text(info, 1, utf8.constData(), utf8.size(), SQLITE_TRANSIENT);
        QVector<DBTable::ColumnInfo> columns;
        while (sqlite3_step(info) == SQLITE_ROW) {
            auto text = [info](int column) {
                const unsigned char* value = sqlite3_column_text(info, column);
                return value ? QString::fromUtf8(reinterpret_cast<const char*>(value)) : QString();
            };
            columns.append(DBTable::ColumnInfo{text(0), text(1), sqlite3_column_int(info, 2) != 0,
                                               text(3), sqlite3_column_int(info, 4)});
        }
        sqlite3_reset(info);
        DBTable* known = tables.value(name, nullptr);
        if (known && sameColumns(known, columns)) {
            fresh.insert(name, known);
        } else {
            describedTables.push_back(std::make_unique<DBTable>(name, columns));
            fresh.insert(name, describedTables.back().get());
        }
    }
    sqlite3_finalize(info);
    tables = fresh;
    describedSchemaVersion = version;
    describeSearchPaths();
}

DBTable* DBManager::Private::describe(const QString& name) const {
    DBTable* table = tables.value(name, nullptr);
    if (!table) {
        refreshTables();
        table = tables.value(name, nullptr);
        if (!table) {
            for (auto it = tables.cbegin(); it != tables.cend(); ++it) {
                if (it.key().compare(name, Qt::CaseInsensitive) == 0) {
                    return it.value();
                }
            }
        }
    }
    return table;
}

SqliteStatement* DBManager::Private::prepare(const char* operation, const QString& sql,
                                             eDBOperationResult& result) {
    int rc = SQLITE_OK;
    bool multiple = false;
    SqliteStatement* statement = cache.Acquire(sql, rc, multiple);
    if (statement) {
        return statement;
    }
    if (multiple) {
        result = refuse(
            operation, DB_OPERATION_INVALID_ARGUMENT,
            QStringLiteral("the text holds more than one statement [") + sql + QLatin1Char(']'));
    } else if (rc == SQLITE_MISUSE && sqlite3_errcode(connection) == SQLITE_OK) {
        result = refuse(operation, DB_OPERATION_INVALID_ARGUMENT,
                        QStringLiteral("the text holds no statement"));
    } else {
        result = fail(operation, rc, sql);
    }
    return nullptr;
}

bool DBManager::Private::appendConditions(const char* operation, const DBRow* row,
                                          const DBTable* table, bool like, QString& sql,
                                          QVector<QVariant>& values, eDBOperationResult& result) {
    bool first = true;
    for (const DBField* field : row->GetFields()) {
        const DBColumn* column = table->GetColumn(field->GetColumnName());
        if (!column) {
            result = refuse(operation, DB_OPERATION_INVALID_ARGUMENT,
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

const DBTable* DBManager::Private::rowTable(const char* operation, const DBRow* row,
                                            eDBOperationResult& result) {
    if (!row || !row->GetTable()) {
        result = refuse(operation, DB_OPERATION_INVALID_ARGUMENT,
                        QStringLiteral("the row belongs to no table"));
        return nullptr;
    }
    const DBTable* table = describe(row->GetTable()->GetName());
    if (!table) {
        result = refuse(operation, DB_OPERATION_ERROR,
                        QStringLiteral("no such table: ") + row->GetTable()->GetName());
        return nullptr;
    }
    for (const DBField* field : row->GetFields()) {
        if (!table->GetColumn(field->GetColumnName())) {
            result = refuse(operation, DB_OPERATION_INVALID_ARGUMENT,
                            QStringLiteral("no such column: %1 in table %2")
                                .arg(field->GetColumnName(), table->GetName()));
            return nullptr;
        }
    }
    return table;
}

eDBOperationResult DBManager::Private::readRows(const char* operation, const QString& sql,
                                                const QVector<QVariant>& values,
                                                const DBTable* table,
                                                QSharedPointer<DBData>& result) {
    eDBOperationResult outcome = DB_OPERATION_SUCCESS;
    SqliteStatement* statement = prepare(operation, sql, outcome);
    if (!statement) {
        return outcome;
    }
    Lease lease(cache, statement);
    int rc = statement->BindAll(values);
    if (rc != SQLITE_OK) {
        return fail(operation, rc, sql);
    }
    QSharedPointer<DBData> rows = QSharedPointer<DBData>::create();
    rc = appendRows(statement, table, *rows);
    if (rc != SQLITE_DONE) {
        return fail(operation, rc, sql);
    }
    result = rows;
    return DB_OPERATION_SUCCESS;
}

int DBManager::Private::appendRows(SqliteStatement* statement, const DBTable* table, DBData& rows) {
    const QVector<QString>& names = statement->ColumnNames();
    const QVector<const DBColumn*>& columns = statement->ColumnsOf(table);
    const int columnCount = names.size();
    int rc = SQLITE_OK;
    while ((rc = sqlite3_step(statement->Handle())) == SQLITE_ROW) {
        auto* row = new DBRow(table);
        row->ReserveFields(columnCount);
        for (int i = 0; i < columnCount; ++i) {
            row->AppendField(columns[i], names[i], statement->ColumnValue(i));
        }
        rows.AppendRow(row);
    }
    return rc;
}

eDBOperationResult DBManager::Private::readValue(const char* operation, const QString& sql,
                                                 const QVector<QVariant>& values, QVariant& value) {
    eDBOperationResult outcome = DB_OPERATION_SUCCESS;
    SqliteStatement* statement = prepare(operation, sql, outcome);
    if (!statement) {
        return outcome;
    }
    Lease lease(cache, statement);
    int rc = statement->BindAll(values);
    if (rc != SQLITE_OK) {
        return fail(operation, rc, sql);
    }
    rc = sqlite3_step(statement->Handle());
    if (rc != SQLITE_ROW && rc != SQLITE_DONE) {
        return fail(operation, rc, sql);
    }
    value = rc == SQLITE_ROW ? statement->ColumnValue(0) : QVariant();
    return DB_OPERATION_SUCCESS;
}

eDBOperationResult DBManager::Private::write(const char* operation, const QString& sql,
                                             const QVector<QVariant>& values, int* changes) {
    eDBOperationResult outcome = DB_OPERATION_SUCCESS;
    SqliteStatement* statement = prepare(operation, sql, outcome);
    if (!statement) {
        return outcome;
    }
    Lease lease(cache, statement);
    int rc = statement->BindAll(values);
    if (rc != SQLITE_OK) {
        return fail(operation, rc, sql);
    }
    while ((rc = sqlite3_step(statement->Handle())) == SQLITE_ROW) {
    }
    if (rc != SQLITE_DONE) {
        return fail(operation, rc, sql);
    }
    if (changes) {
        *changes = sqlite3_changes(connection);
    }
    return DB_OPERATION_SUCCESS;
}

QString DBManager::Private::withCondition(const QString& head, const QString& where,
                                          QVector<QVariant>& values) {
    if (where.trimmed().isEmpty()) {
        return head;
    }
    const SqlLiteralParameterizer::Result fragment = parameterizer.ParameterizeFragment(where);
    values += fragment.values;
    return head + QStringLiteral(" WHERE ") + fragment.text;
}

void DBManager::Private::closeNow() {
    if (!connection) {
        return;
    }
    if (inTransaction) {
        exec("ROLLBACK");
        inTransaction = false;
        mutex.unlock();  // the level BeginTransaction kept
    }
    cache.Clear();
    sqlite3_close_v2(connection);
    connection = nullptr;
    tables.clear();
    describedSchemaVersion = -1;
    state = STATE_CLOSED;
}

void DBManager::Private::notifyObservers(const QString& sql) {
    QVector<QPair<int, StatementObserver>> copy;
    {
        std::lock_guard<std::mutex> lock(observerMutex);
        copy = observers;
    }
    for (const auto& observer : copy) {
        observer.second(sql);
    }
}
