#include "StatementRunner.h"

#include <sqlite3.h>

#include "DatabaseLog.h"
#include "QueryLimits.h"
#include "Utf8.h"

QString GivenText::Text() const {
    if (whole) {
        return *whole;
    }
    QString text;
    text.reserve(head->size() + static_cast<int>(value.size()) + tail->size());
    text += *head;
    text.append(value.data(), static_cast<int>(value.size()));
    text += *tail;
    return text;
}

StatementRunner::StatementRunner(FailureLog& failures, QueryLimits& limits)
    : failures(failures), limits(limits) {}

void StatementRunner::Attach(sqlite3* newConnection) {
    connection = newConnection;
    cache.SetConnection(newConnection);
}

void StatementRunner::Detach() {
    cache.SetConnection(nullptr);
    connection = nullptr;
}

StatementRunner::Lease& StatementRunner::Lease::operator=(Lease&& other) noexcept {
    if (this != &other) {
        release();
        cache = other.cache;
        statement = other.statement;
        other.statement = nullptr;
    }
    return *this;
}

void StatementRunner::Lease::release() {
    if (statement) {
        cache->Release(statement);
        statement = nullptr;
    }
}

namespace {

// Compiles `text` (found through `hint` when given); failures name `shown`, the text the caller
// gave.
StatementRunner::Lease prepareShown(StatementCache& cache, FailureLog& failures,
                                    sqlite3* connection, const char* operation, const QString& text,
                                    const GivenText& shown, eDBOperationResult& result,
                                    StatementCache::Hint* hint = nullptr) {
    int rc = SQLITE_OK;
    bool multiple = false;
    if (SqliteStatement* statement =
            hint ? cache.Acquire(text, *hint, rc, multiple) : cache.Acquire(text, rc, multiple)) {
        return StatementRunner::Lease(cache, statement);
    }
    if (multiple) {
        result = failures.Refuse(operation, DB_OPERATION_INVALID_ARGUMENT,
                                 QStringLiteral("the text holds more than one statement [") +
                                     DatabaseLog::Excerpt(shown.Text()) + QLatin1Char(']'));
    } else if (rc == SQLITE_MISUSE && (!connection || sqlite3_errcode(connection) == SQLITE_OK)) {
        result = failures.Refuse(operation, DB_OPERATION_INVALID_ARGUMENT,
                                 QStringLiteral("the text holds no statement"));
    } else {
        result = failures.Fail(operation, connection, rc, shown.Text());
    }
    return StatementRunner::Lease();
}

}  // namespace

StatementRunner::Lease StatementRunner::Prepare(const char* operation, const QString& sql,
                                                eDBOperationResult& result,
                                                StatementCache::Hint* hint) {
    return prepareShown(cache, failures, connection, operation, sql, sql, result, hint);
}

StatementRunner::Lease StatementRunner::TryPrepare(const QString& sql) {
    int rc = SQLITE_OK;
    bool multiple = false;
    SqliteStatement* statement = cache.Acquire(sql, rc, multiple);
    return statement ? Lease(cache, statement) : Lease();
}

StatementRunner::Lease StatementRunner::prepareBound(const char* operation, const QString& sql,
                                                     const QVector<QVariant>& values,
                                                     eDBOperationResult& result,
                                                     StatementCache::Hint* hint) {
    Lease statement = Prepare(operation, sql, result, hint);
    if (statement) {
        const int rc = statement->BindAll(values);
        if (rc != SQLITE_OK) {
            result = failures.Fail(operation, connection, rc, sql);
            return Lease();
        }
    }
    return statement;
}

eDBOperationResult StatementRunner::ReadRows(const char* operation, const QString& sql,
                                             const QVector<QVariant>& values, const DBTable* table,
                                             QSharedPointer<DBData>& result) {
    eDBOperationResult outcome = DB_OPERATION_SUCCESS;
    const Lease statement = prepareBound(operation, sql, values, outcome);
    if (!statement) {
        return outcome;
    }
    QSharedPointer<DBData> rows = QSharedPointer<DBData>::create();
    const int rc = AppendRows(statement.get(), table, *rows);
    if (rc != SQLITE_DONE) {
        return failures.Fail(operation, connection, rc, sql);
    }
    result = rows;
    return DB_OPERATION_SUCCESS;
}

int StatementRunner::AppendRows(SqliteStatement* statement, const DBTable* table, DBData& rows) {
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

eDBOperationResult StatementRunner::ReadEach(const char* operation, const QString& sql,
                                             const QVariant* values, int count,
                                             const DBRowHandler& handler,
                                             StatementCache::Hint* hint) {
    eDBOperationResult outcome = DB_OPERATION_SUCCESS;
    const Lease statement = Prepare(operation, sql, outcome, hint);
    if (!statement) {
        return outcome;
    }
    for (int i = 0; i < count; ++i) {
        const int rc = statement->Bind(i + 1, values[i]);
        if (rc != SQLITE_OK) {
            return failures.Fail(operation, connection, rc, sql);
        }
    }
    const int rc = StepEach(statement.get(), handler, 0);
    if (rc != SQLITE_DONE) {
        return failures.Fail(operation, connection, rc, sql);
    }
    return DB_OPERATION_SUCCESS;
}

int StatementRunner::StepEach(SqliteStatement* statement, const DBRowHandler& handler,
                              int rowsRead) {
    int rc = SQLITE_OK;
    int seen = 0;
    while ((rc = sqlite3_step(statement->Handle())) == SQLITE_ROW) {
        // Named after the first step: a statement compiled again for a changed schema may
        // have other columns from then on.
        const DBRowReader row(statement, &statement->ColumnNames());
        if (!handler(row) || ++seen == rowsRead) {
            return SQLITE_DONE;
        }
    }
    return rc;
}

eDBOperationResult StatementRunner::ReadValue(const char* operation, const QString& sql,
                                              const QVector<QVariant>& values, QVariant& value) {
    eDBOperationResult outcome = DB_OPERATION_SUCCESS;
    const Lease statement = prepareBound(operation, sql, values, outcome);
    if (!statement) {
        return outcome;
    }
    const int rc = sqlite3_step(statement->Handle());
    if (rc != SQLITE_ROW && rc != SQLITE_DONE) {
        return failures.Fail(operation, connection, rc, sql);
    }
    value = rc == SQLITE_ROW ? statement->ColumnValue(0) : QVariant();
    return DB_OPERATION_SUCCESS;
}

eDBOperationResult StatementRunner::Write(const char* operation, const QString& sql,
                                          const QVector<QVariant>& values, int* changes,
                                          StatementCache::Hint* hint) {
    eDBOperationResult outcome = DB_OPERATION_SUCCESS;
    const Lease statement = prepareBound(operation, sql, values, outcome, hint);
    if (!statement) {
        return outcome;
    }
    int rc = SQLITE_OK;
    while ((rc = sqlite3_step(statement->Handle())) == SQLITE_ROW) {
    }
    if (rc != SQLITE_DONE) {
        return failures.Fail(operation, connection, rc, sql);
    }
    if (changes) {
        *changes = sqlite3_changes(connection);
    }
    return DB_OPERATION_SUCCESS;
}

QStringList StatementRunner::QueryPlan(const QString& sql) {
    QStringList details;
    const Lease plan = TryPrepare(QStringLiteral("EXPLAIN QUERY PLAN ") + sql);
    while (plan && sqlite3_step(plan->Handle()) == SQLITE_ROW) {
        details << QString::fromUtf8(
            reinterpret_cast<const char*>(sqlite3_column_text(plan->Handle(), 3)));
    }
    return details;
}

QString StatementRunner::WithCondition(const QString& head, const QString& where,
                                       QVector<QVariant>& values) {
    if (where.trimmed().isEmpty()) {
        return head;
    }
    const SqlLiteralParameterizer::Result fragment = parameterizer.ParameterizeFragment(where);
    values += fragment.values;
    return head + QStringLiteral(" WHERE ") + fragment.text;
}

namespace {

// What the pasted text takes in UTF-8 when that could pass SQLite's limit on a value, else 0:
// a code point takes at most three bytes for each UTF-16 unit.
int pastedBytesOf(QStringView value) {
    return value.size() * 3 > QueryLimits::maxValueBytes ? value.toUtf8().size() : 0;
}

}  // namespace

bool StatementRunner::Resolve(const char* operation, const GivenText& sql, Resolved& resolved,
                              eDBOperationResult& result) {
    StatementTemplates::Shape* shape =
        sql.whole ? nullptr : templates.FindParts(*sql.head, *sql.tail);
    if (!shape) {
        return Resolve(operation, sql.Text(), resolved, result);
    }
    resolved.statement = prepareShown(cache, failures, connection, operation, shape->statement, sql,
                                      result, &shape->compiled);
    resolved.pasted = true;
    resolved.value = sql.value;
    resolved.pastedBytes = pastedBytesOf(sql.value);
    resolved.rowsRead = shape->rowsRead;
    return static_cast<bool>(resolved.statement);
}

bool StatementRunner::Resolve(const char* operation, const QString& sql, Resolved& resolved,
                              eDBOperationResult& result) {
    StatementTemplates::Match match;
    if (templates.Find(sql, match)) {
        resolved.statement =
            prepareShown(cache, failures, connection, operation, match.statement, sql, result);
        resolved.pastedBytes = pastedBytesOf(match.value);
        resolved.values = {QVariant(match.value)};
        resolved.rowsRead = match.rowsRead;
        return static_cast<bool>(resolved.statement);
    }
    const SqlLiteralParameterizer::Result parameterized = parameterizer.Parameterize(sql);
    resolved.statement =
        prepareShown(cache, failures, connection, operation, parameterized.text, sql, result);
    resolved.values = parameterized.values;
    return static_cast<bool>(resolved.statement);
}

eDBOperationResult StatementRunner::Run(const char* operation, const GivenText& sql,
                                        Resolved& resolved, DBDirectQueryResult* result,
                                        int timeLimitMs, const DBRowHandler* handler) {
    SqliteStatement* statement = resolved.statement.get();
    const QueryLimits::LongValueScope longValue(connection, resolved.pastedBytes);
    int rc = SQLITE_OK;
    if (!resolved.pasted) {
        rc = statement->BindAll(resolved.values);
    } else {
        // A scanned code goes to SQLite with no copy made on either side.
        const int shortBytes = resolved.value.size() <= Resolved::shortText
                                   ? Utf8::Encode(resolved.value, resolved.pastedUtf8)
                                   : -1;
        rc = shortBytes >= 0 ? statement->BindUnowned(1, resolved.pastedUtf8, shortBytes)
                             : statement->BindText(1, resolved.value);
    }
    if (rc != SQLITE_OK) {
        return failures.Fail(operation, connection, rc, sql.Text());
    }
    DBDirectQueryResult rows;
    const int columnCount = statement->ColumnCount();
    if (result) {
        rows.SetColumnNames(statement->ColumnNames());
    }
    // Writes are the library's own fixed statements and run to their end (a price conversion
    // of the whole catalogue); queries carry scanned and typed text and keep to their budget.
    const bool query = statement->IsReadOnly();
    struct Budget {
        QueryLimits& limits;
        bool on;
        Budget(QueryLimits& limits, bool on, int timeLimitMs) : limits(limits), on(on) {
            if (on) {
                limits.Start(timeLimitMs);
            }
        }
        ~Budget() {
            if (on) {
                limits.Stop();
            }
        }
    } budget(limits, query, timeLimitMs);
    // What the rows held so far take, roughly: a query's budget covers what it hands back.
    qint64 resultBytes = 0;
    bool resultTooLarge = false;
    if (handler) {
        rc = StepEach(statement, *handler, resolved.rowsRead);
    }
    while (!handler && (rc = sqlite3_step(statement->Handle())) == SQLITE_ROW) {
        if (!result) {
            continue;
        }
        QVector<QVariant> row(columnCount);
        resultBytes += 32 + qint64(sizeof(QVariant)) * columnCount;
        for (int i = 0; i < columnCount; ++i) {
            row[i] = statement->ColumnValue(i);
            // Texts and blobs only; numbers are held in the variant itself.
            const int type = row[i].userType();
            if (type == QMetaType::QString) {
                resultBytes += 2 * static_cast<const QString*>(row[i].constData())->size();
            } else if (type == QMetaType::QByteArray) {
                resultBytes += static_cast<const QByteArray*>(row[i].constData())->size();
            }
        }
        rows.AppendRow(row);
        if (resolved.rowsRead > 0 && rows.RowCount() == resolved.rowsRead) {
            rc = SQLITE_DONE;
            break;
        }
        if (query && resultBytes > QueryLimits::maxQueryMemoryBytes) {
            resultTooLarge = true;
            break;
        }
    }
    if (resultTooLarge) {
        return failures.Refuse(
            operation, DB_OPERATION_ERROR,
            QStringLiteral("the query's result took more than %1 MiB and was stopped [%2]")
                .arg(QueryLimits::maxQueryMemoryBytes / (1024 * 1024))
                .arg(DatabaseLog::Excerpt(sql.Text())));
    }
    if (rc != SQLITE_DONE && query && limits.WasStopped()) {
        return failures.Refuse(operation, DB_OPERATION_ERROR,
                               limits.StopReason() + QStringLiteral(" [") +
                                   DatabaseLog::Excerpt(sql.Text()) + QLatin1Char(']'));
    }
    if (rc != SQLITE_DONE) {
        return failures.Fail(operation, connection, rc, sql.Text());
    }
    if (result) {
        *result = rows;
    }
    return DB_OPERATION_SUCCESS;
}
