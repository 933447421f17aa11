#pragma once

#include <QString>
#include <QVariant>
#include <QVector>
#include <functional>

#include "DataBaseManagerGlobal.h"

class SqliteStatement;

// One row of a result, read where it lies: values by position, typed, without a DBRow, DBField
// or QVariant being built. Valid only during the call that receives it. The register's
// single-row lookups read their rows this way.
class DATABASEMANAGER_EXPORT DBRowReader {
public:
    // The storage class of a value, as SQLite numbers them.
    enum eType { TYPE_INTEGER = 1, TYPE_FLOAT = 2, TYPE_TEXT = 3, TYPE_BLOB = 4, TYPE_NULL = 5 };

    int ColumnCount() const { return names->size(); }
    // The name of a result column, as Execute's result gives it.
    const QString& ColumnName(int column) const { return (*names)[column]; }
    // An id of the result's column names: the same for every row of a statement until it is
    // compiled with other columns, and never given to other names. A caller that maps columns
    // by name can map them once per id.
    quint64 ColumnsId() const;
    eType Type(int column) const;
    // The value of a TYPE_INTEGER column.
    qint64 Integer(int column) const;
    // Whether the column holds an integer, with its value in `value` then: Type and Integer in
    // one call, for a row read at every scan.
    bool Integer(int column, qint64& value) const;
    // The integers among the first `count` columns (at most 32) in one call: bit i of the
    // result tells that column i holds one, whose value is then values[i] (the others are left
    // as they are); bit i of `texts`, when given, that it holds a text. A lookup reads its whole
    // row so.
    quint32 Integers(int count, qint64* values, quint32* texts = nullptr) const;
    // The value of a TYPE_TEXT column, decoded as Value() decodes it.
    QString Text(int column) const;
    // The value as Load and Execute put it in their rows: integer as qlonglong, real as double,
    // text as QString, blob as QByteArray, NULL as an invalid QVariant.
    QVariant Value(int column) const;

private:
    friend class StatementRunner;
    DBRowReader(SqliteStatement* statement, const QVector<QString>* names)
        : statement(statement), names(names) {}

    SqliteStatement* statement;
    const QVector<QString>* names;
};

// Receives each row of a read in turn; returns false to read no more.
using DBRowHandler = std::function<bool(const DBRowReader& row)>;
