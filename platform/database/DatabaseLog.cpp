#include "DatabaseLog.h"

#include <sqlite3.h>

#include <QFileInfo>
#include <atomic>
#include <cstdio>

namespace DatabaseLog {

namespace {
std::atomic<DBManager::LogHandler> handler{nullptr};
// Long enough for every statement the library builds around a name or a barcode.
constexpr int excerptLength = 600;
}  // namespace

void Message(int level, const QString& text) {
    DBManager::LogHandler installed = handler.load();
    if (installed) {
        installed(level, text);
    } else {
        std::fprintf(stderr, "%s\n", text.toLocal8Bit().constData());
    }
}

void SetHandler(DBManager::LogHandler newHandler) {
    handler.store(newHandler);
}

eDBOperationResult ResultFor(int rc) {
    switch (rc & 0xff) {
        case SQLITE_OK:
        case SQLITE_ROW:
        case SQLITE_DONE:
            return DB_OPERATION_SUCCESS;
        case SQLITE_CONSTRAINT:
            return DB_OPERATION_CONSTRAINT;
        default:
            return DB_OPERATION_ERROR;
    }
}

QString Excerpt(const QString& sql) {
    if (sql.size() <= excerptLength) {
        return sql;
    }
    return sql.left(excerptLength) + QStringLiteral("... (%1 characters in all)").arg(sql.size());
}

}  // namespace DatabaseLog

FailureLog::FailureLog(const QString& fileName) : fileName(QFileInfo(fileName).fileName()) {}

eDBOperationResult FailureLog::Fail(const char* operation, sqlite3* connection, int rc,
                                    const QString& sql) {
    lastError = connection ? QString::fromUtf8(sqlite3_errmsg(connection))
                           : QString::fromUtf8(sqlite3_errstr(rc));
    log(operation, sql.isEmpty() ? lastError
                                 : lastError + QStringLiteral(" [") + DatabaseLog::Excerpt(sql) +
                                       QLatin1Char(']'));
    const eDBOperationResult result = DatabaseLog::ResultFor(rc);
    return result == DB_OPERATION_SUCCESS ? DB_OPERATION_ERROR : result;
}

eDBOperationResult FailureLog::Refuse(const char* operation, eDBOperationResult code,
                                      const QString& why) {
    lastError = why;
    log(operation, why);
    return code;
}

void FailureLog::log(const char* operation, const QString& why) {
    DatabaseLog::Message(
        DatabaseLog::levelError,
        QStringLiteral("DBManager::%1() on %2: %3").arg(QLatin1String(operation), fileName, why));
}
