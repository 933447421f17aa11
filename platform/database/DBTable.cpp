#include "DBTable.h"

#include <algorithm>

DBTable::DBTable(const QString& name, const QVector<ColumnInfo>& infos)
    : name(name)
    , quotedName(QLatin1Char('"') + QString(name).replace(QLatin1Char('"'), QLatin1String("\"\"")) +
                 QLatin1Char('"')) {
    int index = 0;
    for (const ColumnInfo& info : infos) {
        columns.push_back(std::make_unique<DBColumn>(this, index++, info.name, info.declaredType,
                                                     info.notNull, info.defaultValue,
                                                     info.primaryKeyPosition));
        columnList.append(columns.back().get());
        if (info.primaryKeyPosition > 0) {
            primaryKey.append(columns.back().get());
        }
    }
    std::sort(primaryKey.begin(), primaryKey.end(), [](const DBColumn* a, const DBColumn* b) {
        return a->GetPrimaryKeyPosition() < b->GetPrimaryKeyPosition();
    });
}

DBTable::~DBTable() = default;

const DBColumn* DBTable::GetColumn(const QString& columnName) const {
    for (const DBColumn* column : columnList) {
        if (column->GetName() == columnName) {
            return column;
        }
    }
    return nullptr;
}
