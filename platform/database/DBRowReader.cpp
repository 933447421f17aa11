#include "DBRowReader.h"

#include <sqlite3.h>

#include "SqliteStatement.h"

DBRowReader::eType DBRowReader::Type(int column) const {
    return static_cast<eType>(sqlite3_column_type(statement->Handle(), column));
}

quint64 DBRowReader::ColumnsId() const {
    return statement->NamesId();
}

qint64 DBRowReader::Integer(int column) const {
    return sqlite3_column_int64(statement->Handle(), column);
}

bool DBRowReader::Integer(int column, qint64& value) const {
    sqlite3_stmt* handle = statement->Handle();
    if (sqlite3_column_type(handle, column) != SQLITE_INTEGER) {
        return false;
    }
    value = sqlite3_column_int64(handle, column);
    return true;
}

QString DBRowReader::Text(int column) const {
    return SqliteStatement::TextOf(statement->Handle(), column);
}

QVariant DBRowReader::Value(int column) const {
    return statement->ColumnValue(column);
}
