#include "DBRow.h"

DBRow::DBRow(const DBTable* table) : table(table) {}

DBRow::DBRow(const DBTable* table, const QVector<DBField*>& fields)
    : table(table), fields(fields) {}

DBRow::~DBRow() {
    qDeleteAll(fields);
}

bool DBRow::AppendField(const QString& columnName, const QVariant& value) {
    const DBColumn* column = table ? table->GetColumn(columnName) : nullptr;
    fields.append(column ? new DBField(column, value) : new DBField(columnName, value));
    return column != nullptr;
}

void DBRow::AppendField(DBField* field) {
    if (field) {
        fields.append(field);
    }
}

const DBField* DBRow::GetField(const QString& columnName) const {
    for (const DBField* field : fields) {
        if (field->GetColumnName() == columnName) {
            return field;
        }
    }
    return nullptr;
}

QVariant DBRow::GetValue(const QString& columnName) const {
    const DBField* field = GetField(columnName);
    return field ? field->GetValue() : QVariant();
}
