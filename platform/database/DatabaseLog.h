#pragma once

// Internal to the database layer: where its messages go, and how an operation's failure is
// reported.

#include <QString>

#include "DBManager.h"

struct sqlite3;

namespace DatabaseLog {

constexpr int levelNotice = 3;
constexpr int levelError = 5;

// Hands a message to the installed handler (standard error when none is installed).
// Thread-safe.
void Message(int level, const QString& text);
void SetHandler(DBManager::LogHandler handler);
// The operation result for an SQLite result code.
eDBOperationResult ResultFor(int rc);
// An SQL text cut to what one log line can carry: a scanned text may be a megabyte long.
QString Excerpt(const QString& sql);

}  // namespace DatabaseLog

// Logs the failures of one database's operations ("DBManager::Op() on file: why") at level 5
// and remembers the last reason for GetLastError. Guarded by the DBManager's mutex.
class FailureLog {
public:
    explicit FailureLog(const QString& fileName);

    // SQLite refused: its error text (of `connection`, or of `rc` when there is none), with the
    // statement when given. Returns the result for `rc`, never success.
    eDBOperationResult Fail(const char* operation, sqlite3* connection, int rc,
                            const QString& sql = QString());
    // This layer refused: `why`, returned as `code`.
    eDBOperationResult Refuse(const char* operation, eDBOperationResult code, const QString& why);
    const QString& LastError() const { return lastError; }

private:
    void log(const char* operation, const QString& why);

    QString fileName;
    QString lastError;
};
