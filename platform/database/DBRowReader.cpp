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

quint32 DBRowReader::Integers(int count, qint64* values, quint32* texts) const {
    sqlite3_stmt* handle = statement->Handle();
    quint32 integers = 0;
    quint32 textColumns = 0;
    for (int i = 0; i < count && i < 32; ++i) {
        // One call for the type and the value: rows are read under the database layer's lock,
        // the only way to this connection, so the column's own value may be asked directly.
        sqlite3_value* value = sqlite3_column_value(handle, i);
        const int type = sqlite3_value_type(value);
        if (type == SQLITE_INTEGER) {
            values[i] = sqlite3_value_int64(value);
            integers |= 1u << i;
        } else if (type == SQLITE_TEXT) {
            textColumns |= 1u << i;
        }
    }
    if (texts) {
        *texts = textColumns;
    }
    return integers;
}

QString DBRowReader::Text(int column) const {
    return SqliteStatement::TextOf(statement->Handle(), column);
}

QVariant DBRowReader::Value(int column) const {
    return statement->ColumnValue(column);
}
