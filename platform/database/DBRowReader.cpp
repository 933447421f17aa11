#include "DBRowReader.h"

#include <sqlite3.h>

#include "SqliteStatement.h"

DBRowReader::eType DBRowReader::Type(int column) const {
    return static_cast<eType>(sqlite3_column_type(statement->Handle(), column));
}

qint64 DBRowReader::Integer(int column) const {
    return sqlite3_column_int64(statement->Handle(), column);
}

QString DBRowReader::Text(int column) const {
    return SqliteStatement::TextOf(statement->Handle(), column);
}

QVariant DBRowReader::Value(int column) const {
    return statement->ColumnValue(column);
}
