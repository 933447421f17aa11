#include "RawSqlite.h"

#include <sqlite3.h>

RawSqlite::RawSqlite(const QString& fileName) {
    sqlite3_open_v2(fileName.toUtf8().constData(), &connection,
                    SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    sqlite3_busy_timeout(connection, 5000);
}

RawSqlite::~RawSqlite() {
    sqlite3_close_v2(connection);
}

int RawSqlite::Exec(const QString& sql) {
    return sqlite3_exec(connection, sql.toUtf8().constData(), nullptr, nullptr, nullptr);
}

QStringList RawSqlite::Rows(const QString& sql) {
    QStringList rows;
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(connection, sql.toUtf8().constData(), -1, &statement, nullptr) !=
        SQLITE_OK) {
        sqlite3_finalize(statement);
        return {QStringLiteral("error: ") + QString::fromUtf8(sqlite3_errmsg(connection))};
    }
    while (sqlite3_step(statement) == SQLITE_ROW) {
        QStringList columns;
        for (int i = 0; i < sqlite3_column_count(statement); ++i) {
            const unsigned char* text = sqlite3_column_text(statement, i);
            columns.append(text ? QString::fromUtf8(reinterpret_cast<const char*>(text))
                                : QStringLiteral("NULL"));
        }
        rows.append(columns.join(QLatin1Char('|')));
    }
    sqlite3_finalize(statement);
    return rows;
}

QString RawSqlite::Text(const QString& sql) {
    const QStringList rows = Rows(sql);
    return rows.isEmpty() ? QString() : rows.first().section(QLatin1Char('|'), 0, 0);
}

qint64 RawSqlite::Integer(const QString& sql) {
    return Text(sql).toLongLong();
}

qint64 RawSqlite::Count(const QString& table) {
    return Integer(QStringLiteral("SELECT COUNT(*) FROM ") + table);
}

void RawSqlite::FailOn(const QString& table, const QString& event) {
    Exec(QStringLiteral("CREATE TRIGGER fail_%1_%2 BEFORE %2 ON %1 "
                        "BEGIN SELECT RAISE(ABORT, 'injected'); END")
             .arg(table, event));
}

void RawSqlite::StopFailing(const QString& table, const QString& event) {
    Exec(QStringLiteral("DROP TRIGGER IF EXISTS fail_%1_%2").arg(table, event));
}
