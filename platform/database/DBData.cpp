#include "DBData.h"

DBData::DBData() = default;

DBData::~DBData() {
    qDeleteAll(rows);
}

void DBData::AppendRow(DBRow* row) {
    if (row) {
        rows.append(row);
    }
}

void DBData::Clear() {
    qDeleteAll(rows);
    rows.clear();
}
