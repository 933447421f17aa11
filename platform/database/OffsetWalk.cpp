#include "OffsetWalk.h"

#include <QRegularExpression>

#include "SqlText.h"

namespace {

QString quoted(const QString& name) {
    return SqlText::QuoteIdentifier(name);
}

}  // namespace

bool OffsetWalk::parse(const QString& sql, Shape& shape) {
    // Cheap refusals first: most texts handed to Execute are no walk.
    if (!sql.startsWith(QLatin1String("SELECT * FROM ")) ||
        !sql.contains(QLatin1String(" LIMIT 1"))) {
        return false;
    }
    static const QRegularExpression walk(
        QStringLiteral("^SELECT \\* FROM ([A-Za-z_][A-Za-z0-9_]*) WHERE ([A-Za-z_][A-Za-z0-9_]*) = "
                       "(-?[0-9]{1,18}) LIMIT 1(?: OFFSET ([0-9]{1,18}))?$"));
    const QRegularExpressionMatch match = walk.match(sql);
    if (!match.hasMatch()) {
        return false;
    }
    shape.table = match.captured(1);
    shape.column = match.captured(2);
    shape.value = match.captured(3).toLongLong();
    shape.offset = match.captured(4).isEmpty() ? 0 : match.captured(4).toLongLong();
    return true;
}

bool OffsetWalk::stamp(quint32& version, sqlite3_int64& changes) const {
    unsigned int dataVersion = 0;
    if (sqlite3_file_control(runner.Connection(), "main", SQLITE_FCNTL_DATA_VERSION,
                             &dataVersion) != SQLITE_OK) {
        return false;
    }
    version = dataVersion;
    changes = sqlite3_total_changes64(runner.Connection());
    return true;
}

bool OffsetWalk::readsInRowidOrder(const Shape& shape) {
    const QStringList details = runner.QueryPlan(
        QStringLiteral("SELECT * FROM ") + quoted(shape.table) + QStringLiteral(" WHERE ") +
        quoted(shape.column) + QStringLiteral(" = ?1 LIMIT 1 OFFSET ?2"));
    if (details.size() != 1) {
        return false;
    }
    if (details.first() == QStringLiteral("SCAN ") + shape.table) {
        return true;
    }
    // An index whose only column is `c`: its entries for one value lie in rowid order.
    static const QRegularExpression search(
        QStringLiteral("^SEARCH ([A-Za-z0-9_]+) USING (?:COVERING )?INDEX ([A-Za-z0-9_]+) "
                       "\\(([A-Za-z0-9_]+)=\\?\\)$"));
    const QRegularExpressionMatch match = search.match(details.first());
    if (!match.hasMatch() || match.captured(1) != shape.table ||
        match.captured(3) != shape.column) {
        return false;
    }
    StatementRunner::Lease columns =
        runner.TryPrepare(QStringLiteral("SELECT count(*) FROM pragma_index_info(?1)"));
    if (!columns || columns->Bind(1, match.captured(2)) != SQLITE_OK ||
        sqlite3_step(columns->Handle()) != SQLITE_ROW) {
        return false;
    }
    return sqlite3_column_int(columns->Handle(), 0) == 1;
}

void OffsetWalk::Ran(const QString& sql, const DBDirectQueryResult& result) {
    Shape shape;
    if (!parse(sql, shape)) {
        return;
    }
    position.valid = false;
    if (result.RowCount() != 1 || !sqlite3_get_autocommit(runner.Connection()) ||
        !readsInRowidOrder(shape)) {
        return;
    }
    StatementRunner::Lease where = runner.TryPrepare(
        QStringLiteral("SELECT rowid FROM ") + quoted(shape.table) + QStringLiteral(" WHERE ") +
        quoted(shape.column) + QStringLiteral(" = ?1 LIMIT 1 OFFSET ?2"));
    if (!where || where->Bind(1, shape.value) != SQLITE_OK ||
        where->Bind(2, shape.offset) != SQLITE_OK || sqlite3_step(where->Handle()) != SQLITE_ROW) {
        return;
    }
    // The row's rowid and the version of the file it was read from, in one transaction.
    position.rowid = sqlite3_column_int64(where->Handle(), 0);
    position.shape = shape;
    position.valid = stamp(position.version, position.changes);
}

bool OffsetWalk::Continue(const QString& sql, DBDirectQueryResult* result,
                          eDBOperationResult& outcome) {
    Shape shape;
    if (!position.valid || !result || !parse(sql, shape) ||
        shape.offset != position.shape.offset + 1 || shape.table != position.shape.table ||
        shape.column != position.shape.column || shape.value != position.shape.value ||
        !sqlite3_get_autocommit(runner.Connection())) {
        return false;
    }
    StatementRunner::Lease next = runner.TryPrepare(
        QStringLiteral("SELECT rowid, * FROM ") + quoted(shape.table) + QStringLiteral(" WHERE ") +
        quoted(shape.column) + QStringLiteral(" = ?1 AND rowid > ?2 ORDER BY rowid LIMIT 1"));
    if (!next || next->Bind(1, shape.value) != SQLITE_OK ||
        next->Bind(2, position.rowid) != SQLITE_OK) {
        return false;
    }
    const int rc = sqlite3_step(next->Handle());
    quint32 version = 0;
    sqlite3_int64 changes = 0;
    // Whatever changed the file since the last step, the text answers for itself.
    if ((rc != SQLITE_ROW && rc != SQLITE_DONE) || !stamp(version, changes) ||
        version != position.version || changes != position.changes) {
        position.valid = false;
        return false;
    }
    const int columns = next->ColumnCount();
    QVector<QString> names;
    for (int i = 1; i < columns; ++i) {
        names << next->ColumnName(i);
    }
    DBDirectQueryResult rows;
    rows.SetColumnNames(names);
    if (rc == SQLITE_ROW) {
        QVector<QVariant> row(columns - 1);
        for (int i = 1; i < columns; ++i) {
            row[i - 1] = next->ColumnValue(i);
        }
        rows.AppendRow(row);
        position.rowid = sqlite3_column_int64(next->Handle(), 0);
    }
    position.shape.offset = shape.offset;
    *result = rows;
    outcome = DB_OPERATION_SUCCESS;
    return true;
}
