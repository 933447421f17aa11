#pragma once

#include <QString>
#include <QStringView>
#include <QVariant>
#include <QVector>

struct sqlite3;
struct sqlite3_stmt;
class DBColumn;
class DBTable;

// Owns one prepared statement. Internal to the database layer.
class SqliteStatement {
public:
    SqliteStatement(sqlite3_stmt* statement, const QString& text);
    ~SqliteStatement();

    SqliteStatement(const SqliteStatement&) = delete;
    SqliteStatement& operator=(const SqliteStatement&) = delete;

    sqlite3_stmt* Handle() const { return statement; }
    const QString& Text() const { return text; }
    bool IsReadOnly() const;

    // Binds every value in order, from parameter 1. Returns an SQLite result code.
    int BindAll(const QVector<QVariant>& values);
    int Bind(int index, const QVariant& value);
    // Binds a text without going through a QVariant (a null view is bound as "", as in Bind).
    int BindText(int index, QStringView value);
    // Binds `bytes` of UTF-8 without copying them: they must stay as they are until the
    // statement is reset.
    int BindUnowned(int index, const char* utf8, int bytes);
    // Makes the statement ready to run again and drops its bindings.
    void Reset();

    // Lent out by the statement cache, which keeps a pinned statement.
    void Pin() { ++pins; }
    void Unpin() { pins = pins > 0 ? pins - 1 : 0; }
    bool IsPinned() const { return pins > 0; }

    // Value of a result column as the QVariant type matching its SQLite storage class: integer
    // as qlonglong, real as double, text as QString, blob as QByteArray, NULL as invalid.
    QVariant ColumnValue(int column) const;
    // A text column's value, decoded from UTF-8 as ColumnValue decodes it.
    static QString TextOf(sqlite3_stmt* statement, int column);
    int ColumnCount() const;
    QString ColumnName(int column) const;
    // The names of the result columns, read once per compiled shape of the statement.
    const QVector<QString>& ColumnNames();
    // An id of those names, given to no other names in this process: a reader that maps
    // columns by name maps each shape once.
    quint64 NamesId() const { return namesId; }
    // For each result column, the column of `table` of that name (null where it has none);
    // worked out once per table description.
    const QVector<const DBColumn*>& ColumnsOf(const DBTable* table);

private:
    sqlite3_stmt* statement;
    QString text;
    int pins = 0;
    QVector<QString> names;
    quint64 namesId = 0;
    const DBTable* mappedTable = nullptr;
    QVector<const DBColumn*> mappedColumns;
};
