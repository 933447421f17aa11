#pragma once

#include <QString>
#include <QVariant>
#include <QVector>

struct sqlite3;
struct sqlite3_stmt;

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
    // Makes the statement ready to run again and drops its bindings.
    void Reset();

    // Value of a result column as the QVariant type matching its SQLite storage class: integer
    // as qlonglong, real as double, text as QString, blob as QByteArray, NULL as invalid.
    QVariant ColumnValue(int column) const;
    int ColumnCount() const;
    QString ColumnName(int column) const;

private:
    sqlite3_stmt* statement;
    QString text;
};
