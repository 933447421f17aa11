#include "DBRow.h"

DBRow::DBRow(const DBTable* table) : table(table) {}

DBRow::DBRow(const DBTable* table, const QVector<DBField*>& fields)
    : table(table), fields(fields), owned(fields) {}

DBRow::~DBRow() {
    qDeleteAll(owned);
}

void DBRow::ReserveFields(int count) {
    fields.reserve(count);
    if (madeHere.empty()) {
        madeHere.reserve(static_cast<size_t>(count));
    }
}

bool DBRow::AppendField(const QString& columnName, const QVariant& value) {
    const DBColumn* column = table ? table->GetColumn(columnName) : nullptr;
    AppendField(column, columnName, value);
    return column != nullptr;
}

void DBRow::AppendField(const DBColumn* column, const QString& columnName, const QVariant& value) {
    if (madeHere.size() < madeHere.capacity()) {
        if (column) {
            madeHere.emplace_back(column, value);
        } else {
            madeHere.emplace_back(columnName, value);
        }
        fields.append(&madeHere.back());
        return;
    }
    DBField* field = column ? new DBField(column, value) : new DBField(columnName, value);
    fields.append(field);
    owned.append(field);
}

void DBRow::AppendField(DBField* field) {
    if (field) {
        fields.append(field);
        owned.append(field);
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
