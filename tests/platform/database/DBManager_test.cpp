// A database as a whole: closed, kept open, used by several threads at once, failing.

#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <atomic>
#include <thread>
#include <vector>

#include "DBCloser.h"
#include "DatabaseFixture.h"
#include "Logger.h"

using DBManagerOpen = DatabaseFixture;

TEST(DBManagerFile, OperationsOnAClosedDatabaseFailCleanly) {
    QTemporaryDir dir;
    LogCapture log;
    DBManager db(dir.filePath(QStringLiteral("a.db")), DBManager::SCHEMA_ARTICLES);
    EXPECT_EQ(DBManager::STATE_CREATED, db.GetState());
    unsigned long count = 99;
    EXPECT_EQ(DB_OPERATION_NOT_INITIALIZED, db.Count(QStringLiteral("Article"), count));
    EXPECT_EQ(99u, count);
    EXPECT_EQ(nullptr, db.GetTable(QStringLiteral("Article")));
    ASSERT_EQ(DB_OPERATION_SUCCESS, db.Open());
    db.Close();
    EXPECT_EQ(DBManager::STATE_CLOSED, db.GetState());
    EXPECT_EQ(DB_OPERATION_NOT_INITIALIZED, db.Execute(QStringLiteral("SELECT 1"), nullptr));
}

TEST_F(DBManagerOpen, CloserKeepsTheDatabaseOpenUntilItEnds) {
    {
        DBCloser closer(articles.get());
        articles->Close();
        EXPECT_EQ(DBManager::STATE_OPEN, articles->GetState());
        unsigned long count = 0;
        EXPECT_EQ(DB_OPERATION_SUCCESS, articles->Count(QStringLiteral("Article"), count));
    }
    EXPECT_EQ(DBManager::STATE_CLOSED, articles->GetState());
    DBCloser onNothing(nullptr);  // allowed
}

TEST_F(DBManagerOpen, ConcurrentCallsFromSeveralThreadsAllSucceed) {
    DBTable* table = articles->GetTable(QStringLiteral("Article"));
    constexpr int threads = 6;
    constexpr int perThread = 60;
    std::atomic<int> failures{0};
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) {
        workers.emplace_back([&, t] {
            for (int i = 0; i < perThread; ++i) {
                const unsigned int plu = static_cast<unsigned int>(t * 1000 + i + 1);
                if (articles->Insert(Rows(table, {{{QStringLiteral("plu_no"), plu},
                                                   {QStringLiteral("art_name"),
                                                    QStringLiteral("T%1").arg(plu)}}})) != 0) {
                    ++failures;
                }
                QSharedPointer<DBData> result;
                if (articles->Load(Rows(table, {{{QStringLiteral("plu_no"), plu}}}),
                                   DBManager::LOAD_MODE_BY_KEY, result) != 0 ||
                    result->RowCount() != 1) {
                    ++failures;
                }
                DBDirectQueryResult direct;
                if (articles->Execute(QStringLiteral("SELECT COUNT(*) FROM Article"), &direct) !=
                    0) {
                    ++failures;
                }
            }
        });
    }
    for (auto& worker : workers) {
        worker.join();
    }
    EXPECT_EQ(0, failures.load());
    EXPECT_EQ(threads * perThread, Raw().Count(QStringLiteral("Article")));
}

TEST_F(DBManagerOpen, FailuresAreLoggedWithSqliteText) {
    log->Clear();
    EXPECT_EQ(DB_OPERATION_ERROR, articles->ClearTable(QStringLiteral("NoSuchTable")));
    ASSERT_EQ(1, log->Entries().size());
    EXPECT_EQ(Logger::LOG_ERROR, log->Entries().first().level);
    EXPECT_TRUE(log->Entries().first().text.startsWith(QStringLiteral("DBManager::ClearTable()")));
    EXPECT_TRUE(log->Mentions(QStringLiteral("no such table: NoSuchTable")));
    EXPECT_TRUE(articles->GetLastError().contains(QStringLiteral("no such table")));
}

TEST_F(DBManagerOpen, AReaderNeitherCreatesNorChangesAFile) {
    const QString missing = dir.filePath(QStringLiteral("mistyped.db"));
    DBManager none(missing, DBManager::SCHEMA_ARTICLES);
    none.SetReadOnly(true);
    EXPECT_NE(DB_OPERATION_SUCCESS, none.Open());
    EXPECT_FALSE(QFileInfo::exists(missing));

    DBTable* table = articles->GetTable(QStringLiteral("Article"));
    ASSERT_EQ(
        0, articles->Insert(Rows(table, {{{QStringLiteral("plu_no"), 7u},
                                          {QStringLiteral("art_name"), QStringLiteral("Ser")}}})));
    articles->Close();
    auto bytes = [this] {
        QFile file(ArticlesPath());
        file.open(QIODevice::ReadOnly);
        return file.readAll();
    };
    const QByteArray before = bytes();
    DBManager reader(ArticlesPath(), DBManager::SCHEMA_ARTICLES);
    reader.SetReadOnly(true);
    ASSERT_EQ(DB_OPERATION_SUCCESS, reader.Open());
    unsigned long count = 0;
    EXPECT_EQ(DB_OPERATION_SUCCESS, reader.Count(QStringLiteral("Article"), count));
    EXPECT_EQ(1u, count);
    // The search note the insert left cannot be folded by a reader: the plain scan answers.
    QSharedPointer<DBData> found;
    EXPECT_EQ(DB_OPERATION_SUCCESS,
              reader.Load(Rows(reader.GetTable(QStringLiteral("Article")),
                               {{{QStringLiteral("art_name"), QStringLiteral("%Se%")}}}),
                          DBManager::LOAD_MODE_BY_KEY, found, true));
    ASSERT_TRUE(found);
    EXPECT_EQ(1, found->RowCount());
    EXPECT_NE(DB_OPERATION_SUCCESS, reader.Execute(QStringLiteral("DELETE FROM Article"), nullptr));
    EXPECT_TRUE(reader.GetLastError().contains(QStringLiteral("readonly")))
        << reader.GetLastError().toStdString();
    reader.Close();
    EXPECT_EQ(before, bytes());
}
