#pragma once

#include <QString>
#include <QVariant>
#include <QVector>

#include "DataBaseManagerGlobal.h"

// The result set of DBManager::Execute: the column names in the order of the SELECT list and
// the rows, each a vector of values in the same order. The empty flag is set until a row is
// stored.
class DATABASEMANAGER_EXPORT DBDirectQueryResult {
public:
    DBDirectQueryResult();

    const QVector<QString>& GetColumnNames() const { return columnNames; }
    const QVector<QVector<QVariant>>& GetRows() const { return rows; }
    int RowCount() const { return rows.size(); }
    int ColumnCount() const { return columnNames.size(); }
    bool IsEmpty() const { return empty; }
    // Position of a column in the SELECT list, -1 when absent.
    int ColumnIndex(const QString& name) const { return columnNames.indexOf(name); }
    // The value at (row, column), or an invalid QVariant outside the result.
    QVariant GetValue(int row, int column) const;

    // Used by DBManager while reading a result set.
    void Clear();
    void SetColumnNames(const QVector<QString>& names) { columnNames = names; }
    void AppendRow(const QVector<QVariant>& row);

private:
    QVector<QString> columnNames;
    QVector<QVector<QVariant>> rows;
    bool empty;
};
