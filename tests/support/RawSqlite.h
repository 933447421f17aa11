#pragma once

#include <QString>
#include <QStringList>

struct sqlite3;

// A second, plain SQLite connection to a database file: how tests look at stored rows behind
// the library's back and inject failures (drop a table, add a trigger that raises an error).
class RawSqlite {
public:
    explicit RawSqlite(const QString& fileName);
    ~RawSqlite();

    RawSqlite(const RawSqlite&) = delete;
    RawSqlite& operator=(const RawSqlite&) = delete;

    // Runs one or more statements; returns the SQLite result code.
    int Exec(const QString& sql);
    // The first column of the first row as text ("" when there is no row, "NULL" for null).
    QString Text(const QString& sql);
    qint64 Integer(const QString& sql);
    // Every row, its columns joined by "|".
    QStringList Rows(const QString& sql);
    qint64 Count(const QString& table);
    // Makes every `event` ("INSERT", "UPDATE" or "DELETE") on `table` fail with "injected".
    void FailOn(const QString& table, const QString& event);
    void StopFailing(const QString& table, const QString& event);

private:
    sqlite3* connection = nullptr;
};
