#include "DBField.h"

DBField::DBField(const DBColumn* column, const QVariant& value) : column(column), value(value) {}

DBField::DBField(const QString& unknownColumnName, const QVariant& value)
    : column(nullptr), columnName(unknownColumnName), value(value) {}
