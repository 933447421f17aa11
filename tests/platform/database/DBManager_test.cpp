// A database as a whole: closed, kept open, used by several threads at once, failing.

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
