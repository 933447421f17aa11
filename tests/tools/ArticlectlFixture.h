#pragma once

// articlectl run as a process on temporary files, as integrators and technicians use it.

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include "ChildLauncher.h"
#include "DBManager.h"

struct Outcome {
    int exit;
    QString out;
    QString err;

    QJsonDocument Json() const { return QJsonDocument::fromJson(out.toUtf8()); }
};

// The price lists shipped with the tool; pricelist.csv holds 15 articles and 14 barcodes.
constexpr const char* pricelist = ARTICLEMANAGER_SOURCE_DIR "/examples/pricelist.csv";
constexpr const char* cennik = ARTICLEMANAGER_SOURCE_DIR "/examples/cennik.csv";

inline QStringList words(std::initializer_list<const char*> list) {
    QStringList result;
    for (const char* word : list) {
        result.append(QString::fromUtf8(word));
    }
    return result;
}

// Text checks that show the whole text, whichever way they go.
inline ::testing::AssertionResult Shown(bool held, const QString& text, const char* part) {
    return (held ? ::testing::AssertionSuccess() : ::testing::AssertionFailure())
           << "\"" << part << "\" against:\n"
           << text.toStdString();
}
inline ::testing::AssertionResult Has(const QString& text, const char* part) {
    return Shown(text.contains(QString::fromUtf8(part)), text, part);
}
inline ::testing::AssertionResult Starts(const QString& text, const char* part) {
    return Shown(text.startsWith(QString::fromUtf8(part)), text, part);
}
inline ::testing::AssertionResult Ends(const QString& text, const char* part) {
    return Shown(text.endsWith(QString::fromUtf8(part)), text, part);
}

// A run that ended with `exit` and said `says` on its error output.
inline ::testing::AssertionResult Says(int exit, const Outcome& outcome, const char* says) {
    return Shown(outcome.exit == exit && outcome.err.contains(QString::fromUtf8(says)), outcome.err,
                 says)
           << "exit " << outcome.exit << ", expected " << exit;
}

class Articlectl : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(dir.isValid());
        ASSERT_EQ(0, Do({"init"}).exit);
    }

    QString Path(const QString& name) const { return dir.filePath(name); }

    // A command line (this machine's program first) run in the test's folder, `input` on its
    // standard input.
    Outcome Run(const QStringList& command, const QByteArray& input = QByteArray()) {
        const ChildOutcome ran = runChild(command, input, {}, dir.path(), 60000);
        return Outcome{ran.exit, QString::fromUtf8(ran.out), QString::fromUtf8(ran.err)};
    }

    // Runs the tool with exactly `arguments`.
    Outcome Tool(const QStringList& arguments, const QByteArray& input = QByteArray()) {
        return Run(childCommand(QStringLiteral(ARTICLECTL_PATH), arguments), input);
    }

    // Runs the tool on the test's database.
    Outcome Do(const QStringList& arguments, const QString& database = "shop.db",
               const QByteArray& input = QByteArray()) {
        return Tool(QStringList{"--db", Path(database)} + arguments, input);
    }
    Outcome Do(std::initializer_list<const char*> arguments, const QString& database = "shop.db") {
        return Do(words(arguments), database);
    }
    // The tool's --json answer; const, so that [] reads into nested values.
    const QJsonObject Json(std::initializer_list<const char*> arguments,
                           const QString& database = "shop.db") {
        return Do(words(arguments), database).Json().object();
    }

    qint64 Count() { return Json({"count", "--json"})["count"].toInt(-1); }

    void WriteFile(const QString& name, const QByteArray& content) {
        QFile file(Path(name));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(content);
    }

    // The register's receipt database beside the catalogue, empty.
    void MakeReceipts() {
        DBManager receipts(Path("receipts.db"), DBManager::SCHEMA_RECEIPTS);
        ASSERT_EQ(DB_OPERATION_SUCCESS, receipts.Open());
    }

    QByteArray ReadFile(const QString& name) {
        QFile file(Path(name));
        file.open(QIODevice::ReadOnly);
        return file.readAll();
    }

    QTemporaryDir dir;
};
