#include "SchemaMigrator.h"

#include <sqlite3.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <algorithm>

#include "SqliteConnection.h"
#include "SqliteTransaction.h"

namespace {

int readInteger(sqlite3* connection, const char* sql, qint64& value) {
    sqlite3_stmt* statement = nullptr;
    int rc = sqlite3_prepare_v2(connection, sql, -1, &statement, nullptr);
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

int SchemaMigrator::readFacts(sqlite3* connection, FileFacts& facts) {
    qint64 objects = 0;
    int rc = readInteger(connection, "PRAGMA application_id", facts.applicationId);
    if (rc == SQLITE_OK) {
        rc = readInteger(connection, "PRAGMA user_version", facts.userVersion);
    }
    if (rc == SQLITE_OK) {
        rc = readInteger(connection, "SELECT COUNT(*) FROM sqlite_master", objects);
    }
    facts.schemaObjects = static_cast<int>(objects);
    return rc;
}

int SchemaMigrator::ReadFacts(const QString& path, FileFacts& facts, QString& error) {
    facts = FileFacts();
    facts.exists = QFileInfo::exists(path);
    if (!facts.exists) {
        return SQLITE_OK;
    }
    sqlite3* connection = nullptr;
    int rc = sqlite3_open_v2(path.toUtf8().constData(), &connection,
                             SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX, nullptr);
    if (rc == SQLITE_OK) {
        // A read-only look: the file of another program stays as it is, byte for byte.
        sqlite3_db_config(connection, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
        // Even a read of a WAL file can find it briefly locked while another process restarts
        // the log: wait as long as the connection that opens next would.
        sqlite3_busy_timeout(connection, SqliteConnection::busyTimeoutMs);
        rc = readFacts(connection, facts);
    }
    if (rc != SQLITE_OK) {
        error = connection ? QString::fromUtf8(sqlite3_errmsg(connection))
                           : QString::fromUtf8(sqlite3_errstr(rc));
    }
    sqlite3_close_v2(connection);
    return rc;
}

int SchemaMigrator::AcceptsAsIs(const FileFacts& facts, QString& error) const {
    if (!facts.exists) {
        error = QStringLiteral("the file does not exist");
        return SQLITE_CANTOPEN;
    }
    if (facts.userVersion != LatestVersion()) {
        error = QStringLiteral(
                    "schema version %1 must first be brought to %2 by opening the file "
                    "for writing")
                    .arg(facts.userVersion)
                    .arg(LatestVersion());
        return SQLITE_MISMATCH;
    }
    return SQLITE_OK;
}

int SchemaMigrator::Accepts(const FileFacts& facts, QString& error) const {
    if (facts.applicationId != 0 && static_cast<quint32>(facts.applicationId) != applicationId) {
        error = QStringLiteral("the file holds another kind of database (application id %1)")
                    .arg(facts.applicationId);
        return SQLITE_MISMATCH;
    }
    if (facts.applicationId == 0 && facts.schemaObjects > 0) {
        error = QStringLiteral(
                    "the file holds %1 tables or indexes of another program (no application id "
                    "of this library)")
                    .arg(facts.schemaObjects);
        return SQLITE_MISMATCH;
    }
    const int latest = LatestVersion();
    if (facts.userVersion > latest) {
        error = QStringLiteral("schema version %1 is newer than this library supports (%2)")
                    .arg(facts.userVersion)
                    .arg(latest);
        return SQLITE_MISMATCH;
    }
    return SQLITE_OK;
}

int SchemaMigrator::Migrate(sqlite3* connection, QString& error) const {
    FileFacts facts;
    facts.exists = true;
    int rc = readFacts(connection, facts);
    if (rc != SQLITE_OK) {
        error = QString::fromUtf8(sqlite3_errmsg(connection));
        return rc;
    }
    rc = Accepts(facts, error);
    if (rc != SQLITE_OK) {
        return rc;
    }
    for (const Script& script : scripts()) {
        if (script.version <= facts.userVersion) {
            continue;
        }
        QFile file(script.path);
        if (!file.open(QIODevice::ReadOnly)) {
            error = QStringLiteral("cannot read schema script %1").arg(script.path);
            return SQLITE_INTERNAL;
        }
        const QByteArray body = file.readAll();
        SqliteTransaction transaction(connection);
        rc = transaction.Begin();
        if (rc != SQLITE_OK) {
            error = QString::fromUtf8(sqlite3_errmsg(connection));
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
            rc = transaction.Commit();
            if (rc != SQLITE_OK) {
                error = QString::fromUtf8(sqlite3_errmsg(connection));
            }
        }
        if (rc != SQLITE_OK) {
            error = QStringLiteral("%1: %2").arg(QFileInfo(script.path).fileName(), error);
            return rc;  // the transaction rolls back
        }
    }
    return SQLITE_OK;
}
