#include "CatalogueBackup.h"

#include <errno.h>
#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QThread>
#include <cstring>
#include <thread>

#include "DBManager.h"

namespace {

// How long a copy waits for the register or another tool to release the file.
constexpr int busyTimeoutMs = 10000;
constexpr int pagesPerStep = 256;

QString errorOf(sqlite3* connection, int rc) {
    return connection ? QString::fromUtf8(sqlite3_errmsg(connection))
                      : QString::fromUtf8(sqlite3_errstr(rc));
}

// A rename is only durable once the folder that holds the name is on disk too.
void syncFolder(const QString& folder) {
    const int fd = ::open(QFile::encodeName(folder).constData(), O_RDONLY | O_DIRECTORY);
    if (fd >= 0) {
        ::fsync(fd);
        ::close(fd);
    }
}

}  // namespace

namespace CatalogueBackup {

QString Folder(const QString& database) {
    return database + QStringLiteral(".backups");
}

QStringList List(const QString& database) {
    const QDir folder(Folder(database));
    const QString pattern = QFileInfo(database).fileName() + QStringLiteral(".*.db");
    QStringList copies;
    for (const QString& name : folder.entryList({pattern}, QDir::Files, QDir::Name)) {
        copies.append(folder.filePath(name));
    }
    return copies;
}

}  // namespace CatalogueBackup

namespace {

// A read-only connection to `from` inside one read transaction: every page the copy reads is
// of the same moment, whatever other connections write meanwhile.
sqlite3* openSnapshot(const QString& from, QString& error) {
    sqlite3* source = nullptr;
    int rc = sqlite3_open_v2(QFile::encodeName(from).constData(), &source, SQLITE_OPEN_READONLY,
                             nullptr);
    if (rc == SQLITE_OK) {
        sqlite3_db_config(source, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
        sqlite3_busy_timeout(source, busyTimeoutMs);
        rc = sqlite3_exec(source, "BEGIN; SELECT count(*) FROM sqlite_master", nullptr, nullptr,
                          nullptr);
    }
    if (rc != SQLITE_OK) {
        error = QStringLiteral("cannot read %1: %2").arg(from, errorOf(source, rc));
        sqlite3_close_v2(source);
        return nullptr;
    }
    return source;
}

// Copies what `source` holds onto `to` (created when missing), waiting for other connections'
// locks on it.
bool copySnapshot(sqlite3* source, const QString& from, const QString& to, QString& error) {
    sqlite3* target = nullptr;
    int rc = sqlite3_open_v2(QFile::encodeName(to).constData(), &target,
                             SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    if (rc != SQLITE_OK) {
        error = QStringLiteral("cannot write %1: %2").arg(to, errorOf(target, rc));
    } else {
        sqlite3_busy_timeout(target, busyTimeoutMs);
        sqlite3_backup* backup = sqlite3_backup_init(target, "main", source, "main");
        if (!backup) {
            rc = sqlite3_errcode(target);
            error = QStringLiteral("cannot copy %1 to %2: %3").arg(from, to, errorOf(target, rc));
        } else {
            int waitedMs = 0;
            do {
                rc = sqlite3_backup_step(backup, pagesPerStep);
                if ((rc == SQLITE_BUSY || rc == SQLITE_LOCKED) && waitedMs < busyTimeoutMs) {
                    QThread::msleep(50);
                    waitedMs += 50;
                    rc = SQLITE_OK;
                }
            } while (rc == SQLITE_OK);
            const int finished = sqlite3_backup_finish(backup);
            if (rc == SQLITE_DONE) {
                rc = finished;
            }
            if (rc != SQLITE_OK) {
                error = QStringLiteral("cannot copy %1 to %2: %3")
                            .arg(from, to, QString::fromUtf8(sqlite3_errstr(rc)));
            }
        }
    }
    sqlite3_close_v2(target);
    return rc == SQLITE_OK;
}

}  // namespace

namespace CatalogueBackup {

bool Copy(const QString& from, const QString& to, QString& error) {
    sqlite3* source = openSnapshot(from, error);
    if (!source) {
        return false;
    }
    const bool copied = copySnapshot(source, from, to, error);
    sqlite3_close_v2(source);
    return copied;
}

struct Background::Work {
    QString database;
    QString folder;
    QString path;
    QString partial;
    QString error;
    sqlite3* source = nullptr;
    bool copied = false;
    std::thread thread;

    // Written under a temporary name: a copy cut short never looks like a finished one. The
    // name is taken by creating that file, so that another tool copying in the same
    // millisecond takes the next one instead of overwriting this copy.
    bool reserveName() {
        const QString stem = QDir(folder).filePath(
            QFileInfo(database).fileName() + QLatin1Char('.') +
            QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-HHmmss-zzz")));
        for (int n = 1;; ++n) {
            path = n == 1 ? stem + QStringLiteral(".db") : stem + QStringLiteral("-%1.db").arg(n);
            partial = path + QStringLiteral(".partial");
            if (QFileInfo::exists(path)) {
                continue;
            }
            const int fd =
                ::open(QFile::encodeName(partial).constData(), O_WRONLY | O_CREAT | O_EXCL, 0644);
            if (fd >= 0) {
                ::close(fd);
                return true;
            }
            if (errno != EEXIST) {
                error = QStringLiteral("cannot write %1: %2")
                            .arg(partial, QString::fromLocal8Bit(std::strerror(errno)));
                return false;
            }
        }
    }

    // On the copy's own thread: only this object, its connections and its files are touched.
    void copy() {
        copied = copySnapshot(source, database, partial, error);
        sqlite3_close_v2(source);
        source = nullptr;
        if (!copied) {
            QFile::remove(partial);
            return;
        }
        if (!QFile::rename(partial, path)) {
            QFile::remove(partial);
            error = QStringLiteral("cannot name the copy %1").arg(path);
            copied = false;
            return;
        }
        syncFolder(folder);
        const QStringList copies = List(database);
        for (int i = 0; i + kept < copies.size(); ++i) {
            QFile::remove(copies[i]);
        }
    }
};

Background::Background() = default;

Background::~Background() {
    if (work && work->thread.joinable()) {
        work->thread.join();
    }
}

bool Background::Start(const QString& database, QString& error) {
    work = std::make_unique<Work>();
    work->database = database;
    work->folder = Folder(database);
    if (!QDir().mkpath(work->folder)) {
        error = QStringLiteral("cannot make the folder %1").arg(work->folder);
        return false;
    }
    if (!work->reserveName()) {
        error = work->error;
        return false;
    }
    work->source = openSnapshot(database, error);
    if (!work->source) {
        QFile::remove(work->partial);
        return false;
    }
    Work* running = work.get();
    work->thread = std::thread([running]() { running->copy(); });
    return true;
}

QString Background::Finish(QString& error) {
    if (!work || !work->thread.joinable()) {
        error = QStringLiteral("no copy was started");
        return QString();
    }
    work->thread.join();
    if (!work->copied) {
        error = work->error;
        return QString();
    }
    return work->path;
}

QString Take(const QString& database, QString& error) {
    Background copy;
    return copy.Start(database, error) ? copy.Finish(error) : QString();
}

bool Verify(const QString& path, QString& error) {
    if (!QFileInfo(path).isFile()) {
        error = QStringLiteral("%1 does not exist").arg(path);
        return false;
    }
    sqlite3* connection = nullptr;
    int rc = sqlite3_open_v2(QFile::encodeName(path).constData(), &connection, SQLITE_OPEN_READONLY,
                             nullptr);
    QString verdict;
    if (rc == SQLITE_OK) {
        sqlite3_db_config(connection, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
        sqlite3_stmt* statement = nullptr;
        rc = sqlite3_prepare_v2(connection, "PRAGMA integrity_check(1)", -1, &statement, nullptr);
        if (rc == SQLITE_OK && sqlite3_step(statement) == SQLITE_ROW) {
            verdict =
                QString::fromUtf8(reinterpret_cast<const char*>(sqlite3_column_text(statement, 0)));
        } else {
            rc = sqlite3_errcode(connection);
        }
        sqlite3_finalize(statement);
    }
    if (rc != SQLITE_OK || verdict != QLatin1String("ok")) {
        error = QStringLiteral("%1 is damaged: %2")
                    .arg(path, verdict.isEmpty() ? errorOf(connection, rc) : verdict);
        sqlite3_close_v2(connection);
        return false;
    }
    sqlite3_close_v2(connection);
    DBManager copy(path, DBManager::SCHEMA_ARTICLES);
    copy.SetReadOnly(true);
    if (copy.Open() != DB_OPERATION_SUCCESS) {
        error = QStringLiteral("%1 is not an article database of this version: %2")
                    .arg(path, copy.GetLastError());
        return false;
    }
    return true;
}

}  // namespace CatalogueBackup
