#include "SchemaMigrator.h"

#include <sqlite3.h>

#include <QDir>
#include <QFile>
#include <algorithm>

namespace {

int readPragma(sqlite3* connection, const char* pragma, qint64& value) {
    sqlite3_stmt* statement = nullptr;
    int rc = sqlite3_prepare_v2(connection, pragma, -1, &statement, nullptr);
    if (rc == SQLITE_OK) {
        rc = sqlite3_step(statement);
        if (rc == SQLITE_ROW) {
            value = sqlite3_column_int64(statement, 0);
            rc = SQLITE_OK;
        }
    }
    sqlite3_finalize(statement);
    return rc;
}

int execute(sqlite3* connection, const QByteArray& sql, QString& error) {
    char* message = nullptr;
    const int rc = sqlite3_exec(connection, sql.constData(), nullptr, nullptr, &message);
    if (rc != SQLITE_OK) {
        error = QString::fromUtf8(message ? message : sqlite3_errstr(rc));
    }
    sqlite3_free(message);
    return rc;
}

}  // namespace

SchemaMigrator::SchemaMigrator(const QString& scriptFolder, quint32 applicationId)
    : scriptFolder(scriptFolder), applicationId(applicationId) {}

QList<SchemaMigrator::Script> SchemaMigrator::scripts() const {
    QList<Script> found;
    const QStringList names =
        QDir(scriptFolder).entryList(QStringList{QStringLiteral("*.sql")}, QDir::Files);
    for (const QString& name : names) {
        bool ok = false;
        const int version = name.section(QLatin1Char('_'), 0, 0).toInt(&ok);
        if (ok && version > 0) {
            found.append(Script{version, scriptFolder + QLatin1Char('/') + name});
        }
    }
    std::sort(found.begin(), found.end(),
              [](const Script& a, const Script& b) { return a.version < b.version; });
    return found;
}

int SchemaMigrator::LatestVersion() const {
    const QList<Script> all = scripts();
    return all.isEmpty() ? 0 : all.last().version;
}

int SchemaMigrator::Migrate(sqlite3* connection, QString& error) const {
    qint64 fileKind = 0;
    qint64 version = 0;
    int rc = readPragma(connection, "PRAGMA application_id", fileKind);
    if (rc == SQLITE_OK) {
        rc = readPragma(connection, "PRAGMA user_version", version);
    }
    if (rc != SQLITE_OK) {
        error = QString::fromUtf8(sqlite3_errmsg(connection));
        return rc;
    }
    if (fileKind != 0 && static_cast<quint32>(fileKind) != applicationId) {
        error = QStringLiteral("the file holds another kind of database (application id %1)")
                    .arg(fileKind);
        return SQLITE_MISMATCH;
    }
    const int latest = LatestVersion();
    if (version > latest) {
        error = QStringLiteral("schema version %1 is newer than this library supports (%2)")
                    .arg(version)
                    .arg(latest);
        return SQLITE_MISMATCH;
    }
    for (const Script& script : scripts()) {
        if (script.version <= version) {
            continue;
        }
        QFile file(script.path);
        if (!file.open(QIODevice::ReadOnly)) {
            error = QStringLiteral("cannot read schema script %1").arg(script.path);
            return SQLITE_INTERNAL;
        }
        const QByteArray body = file.readAll();
        rc = execute(connection, "BEGIN IMMEDIATE", error);
        if (rc != SQLITE_OK) {
            return rc;
        }
        rc = execute(connection, body, error);
        if (rc == SQLITE_OK) {
            rc = execute(connection,
                         QByteArray("PRAGMA user_version = ") + QByteArray::number(script.version) +
                             "; PRAGMA application_id = " + QByteArray::number(applicationId),
                         error);
        }
        if (rc == SQLITE_OK) {
            rc = execute(connection, "COMMIT", error);
        }
        if (rc != SQLITE_OK) {
            QString ignored;
            execute(connection, "ROLLBACK", ignored);
            error = QStringLiteral("%1: %2").arg(QFileInfo(script.path).fileName(), error);
            return rc;
        }
    }
    return SQLITE_OK;
}
