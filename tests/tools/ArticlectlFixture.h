#pragma once

// articlectl run as a process on temporary files, as integrators and technicians use it.

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>

#include "DBManager.h"

struct Outcome {
    int exit;
    QString out;
    QString err;

    QJsonDocument Json() const { return QJsonDocument::fromJson(out.toUtf8()); }
};

class Articlectl : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(dir.isValid());
        ASSERT_EQ(0, Do({QStringLiteral("init")}).exit);
    }

    QString Path(const QString& name) const { return dir.filePath(name); }

    // Runs the tool on the test's database.
    Outcome Do(const QStringList& arguments, const QString& database = QStringLiteral("shop.db")) {
        QProcess process;
        process.setWorkingDirectory(dir.path());
        process.start(QStringLiteral(ARTICLECTL_PATH),
                      QStringList{QStringLiteral("--db"), Path(database)} + arguments);
        process.waitForFinished(60000);
        return Outcome{process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
                       QString::fromUtf8(process.readAllStandardError())};
    }

    // The same with `input` on the tool's standard input.
    Outcome DoWithInput(const QStringList& arguments, const QByteArray& input) {
        QProcess process;
        process.setWorkingDirectory(dir.path());
        process.start(
            QStringLiteral(ARTICLECTL_PATH),
            QStringList{QStringLiteral("--db"), Path(QStringLiteral("shop.db"))} + arguments);
        process.write(input);
        process.closeWriteChannel();
        process.waitForFinished(60000);
        return Outcome{process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
                       QString::fromUtf8(process.readAllStandardError())};
    }

    qint64 Count() {
        return Do({QStringLiteral("count"), QStringLiteral("--json")})
            .Json()[QStringLiteral("count")]
            .toInt(-1);
    }

    void WriteFile(const QString& name, const QByteArray& content) {
        QFile file(Path(name));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(content);
    }

    // The register's receipt database beside the catalogue, empty.
    void MakeReceipts() {
        DBManager receipts(Path(QStringLiteral("receipts.db")), DBManager::SCHEMA_RECEIPTS);
        ASSERT_EQ(DB_OPERATION_SUCCESS, receipts.Open());
    }

    QByteArray ReadFile(const QString& name) {
        QFile file(Path(name));
        file.open(QIODevice::ReadOnly);
        return file.readAll();
    }

    QTemporaryDir dir;
};
