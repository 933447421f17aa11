// A database as a whole: closed, kept open, used by several threads at once, failing, and how
// every connection is set up.

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

TEST_F(DBManagerOpen, ACloserKeepsItOpenAndAClosedDatabaseFailsCleanly) {
    {
        DBCloser closer(articles.get());
        articles->Close();
        EXPECT_EQ(DBManager::STATE_OPEN, articles->GetState());
        unsigned long count = 0;
        EXPECT_EQ(DB_OPERATION_SUCCESS, articles->Count("Article", count));
    }
    EXPECT_EQ(DBManager::STATE_CLOSED, articles->GetState());
    DBCloser onNothing(nullptr);  // allowed
    DBManager never(dir.filePath("never.db"), DBManager::SCHEMA_ARTICLES);
    EXPECT_EQ(nullptr, never.GetTable("Article"));
    for (DBManager* db : {articles.get(), &never}) {
        unsigned long count = 99;
        EXPECT_EQ(DB_OPERATION_NOT_INITIALIZED, db->Count("Article", count));
        EXPECT_EQ(99u, count);
        EXPECT_EQ(DB_OPERATION_NOT_INITIALIZED, db->Execute("SELECT 1", nullptr));
    }
}

TEST_F(DBManagerOpen, ConcurrentCallsFromSeveralThreadsAllSucceed) {
    DBTable* table = articles->GetTable("Article");
    constexpr int threads = 6;
    constexpr int perThread = 60;
    std::atomic<int> failures{0};
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) {
        workers.emplace_back([&, t] {
            for (int i = 0; i < perThread; ++i) {
                const unsigned int plu = static_cast<unsigned int>(t * 1000 + i + 1);
                QSharedPointer<DBData> result;
                DBDirectQueryResult direct;
                failures +=
                    articles->Insert(
                        Rows(table, {{{"plu_no", plu}, {"art_name", QString::number(plu)}}})) != 0;
                failures += articles->Load(Rows(table, {{{"plu_no", plu}}}),
                                           DBManager::LOAD_MODE_BY_KEY, result) != 0 ||
                            result->RowCount() != 1;
                failures += articles->Execute("SELECT COUNT(*) FROM Article", &direct) != 0;
            }
        });
    }
    for (auto& worker : workers) {
        worker.join();
    }
    EXPECT_EQ(0, failures.load());
    EXPECT_EQ(threads * perThread, Raw().Count("Article"));
}

TEST_F(DBManagerOpen, FailuresAreLoggedWithSqliteText) {
    log->Clear();
    EXPECT_EQ(DB_OPERATION_ERROR, articles->ClearTable("NoSuchTable"));
    ASSERT_EQ(1, log->Entries().size());
    EXPECT_EQ(Logger::LOG_ERROR, log->Entries().first().level);
    EXPECT_TRUE(log->Entries().first().text.startsWith("DBManager::ClearTable()"));
    EXPECT_TRUE(log->Mentions("no such table: NoSuchTable"));
    EXPECT_TRUE(articles->GetLastError().contains("no such table"));
}

TEST_F(DBManagerOpen, CommitsAreDurableAndNoStatementReachesBeyondTheCatalogue) {
    DBDirectQueryResult result;
    ASSERT_EQ(DB_OPERATION_SUCCESS, articles->Execute("PRAGMA synchronous", &result));
    EXPECT_EQ(2, result.GetValue(0, 0).toInt()) << "FULL: a commit survives a power cut";
    EXPECT_EQ("wal", Raw().Text("PRAGMA journal_mode"));
    const QString other = dir.filePath("other.db");
    EXPECT_NE(DB_OPERATION_SUCCESS, articles->Execute("ATTACH '" + other + "' AS other", nullptr));
    EXPECT_FALSE(QFile::exists(other));
    articles->Execute("PRAGMA writable_schema = ON", nullptr);
    EXPECT_NE(DB_OPERATION_SUCCESS,
              articles->Execute("UPDATE sqlite_master SET sql = NULL", nullptr));
    EXPECT_FALSE(Raw().Text("SELECT sql FROM sqlite_master WHERE name = 'Article'").isEmpty());
}

TEST_F(DBManagerOpen, AReaderNeitherCreatesNorChangesAFile) {
    const QString missing = dir.filePath("mistyped.db");
    DBManager none(missing, DBManager::SCHEMA_ARTICLES);
    none.SetReadOnly(true);
    EXPECT_NE(DB_OPERATION_SUCCESS, none.Open());
    EXPECT_FALSE(QFileInfo::exists(missing));

    AddArticle(7, "Ser");
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
    EXPECT_EQ(DB_OPERATION_SUCCESS, reader.Count("Article", count));
    EXPECT_EQ(1u, count);
    // The search note the insert left cannot be folded by a reader: the plain scan answers.
    QSharedPointer<DBData> found;
    EXPECT_EQ(DB_OPERATION_SUCCESS,
              reader.Load(Rows(reader.GetTable("Article"), {{{"art_name", "%Se%"}}}),
                          DBManager::LOAD_MODE_BY_KEY, found, true));
    ASSERT_TRUE(found);
    EXPECT_EQ(1, found->RowCount());
    EXPECT_NE(DB_OPERATION_SUCCESS, reader.Execute("DELETE FROM Article", nullptr));
    EXPECT_TRUE(reader.GetLastError().contains("readonly")) << reader.GetLastError().toStdString();
    reader.Close();
    EXPECT_EQ(before, bytes());
}
