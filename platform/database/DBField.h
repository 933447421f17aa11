#pragma once

#include <QString>
#include <QVariant>

#include "DBColumn.h"
#include "DataBaseManagerGlobal.h"

// One (column, value) pair of a row. A field made for a name that its table does not have
// keeps the name and no column; operations refuse rows holding such a field.
class DATABASEMANAGER_EXPORT DBField {
public:
    DBField(const DBColumn* column, const QVariant& value);
    // A field for a column that was not found: keeps the name for the error message.
    DBField(const QString& unknownColumnName, const QVariant& value);

    DBField(const DBField&) = delete;
    DBField& operator=(const DBField&) = delete;
    DBField(DBField&&) noexcept = default;
    DBField& operator=(DBField&&) noexcept = default;

    // Null when the field names no column of its table.
    const DBColumn* GetColumn() const { return column; }
    const QString& GetColumnName() const { return column ? column->GetName() : columnName; }
    const QVariant& GetValue() const { return value; }
    void SetValue(const QVariant& newValue) { value = newValue; }

private:
    const DBColumn* column;
    QString columnName;
    QVariant value;
};
