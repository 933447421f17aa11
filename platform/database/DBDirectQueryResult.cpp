#include "DBDirectQueryResult.h"

DBDirectQueryResult::DBDirectQueryResult() : empty(true) {}

QVariant DBDirectQueryResult::GetValue(int row, int column) const {
    if (row < 0 || row >= rows.size() || column < 0 || column >= rows[row].size()) {
        return QVariant();
    }
    return rows[row][column];
}

void DBDirectQueryResult::Clear() {
    columnNames.clear();
    rows.clear();
    empty = true;
}

void DBDirectQueryResult::AppendRow(const QVector<QVariant>& row) {
    rows.append(row);
    empty = false;
}
