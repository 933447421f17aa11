// Transactions of several writes: all or nothing, owned by one thread, and a scope guard that
// cannot leave one open.

#include <atomic>
#include <chrono>
#include <future>
#include <thread>

#include "DBTransaction.h"
#include "DatabaseFixture.h"

using Transaction = DatabaseFixture;
using ThreadedTransaction = DatabaseFixture;

TEST_F(Transaction, TransactionsCommitOrRollBackAsAWhole) {
    DBTable* table = articles->GetTable(QStringLiteral("Article"));
    auto add = [&](unsigned int plu) {
        return articles->Insert(
            Rows(table, {{{QStringLiteral("plu_no"), plu},
                          {QStringLiteral("art_name"), QStringLiteral("A%1").arg(plu)}}}));
    };
    ASSERT_EQ(DB_OPERATION_SUCCESS, articles->BeginTransaction());
    EXPECT_TRUE(articles->IsInTransaction());
    EXPECT_EQ(DB_OPERATION_INVALID_ARGUMENT, articles->BeginTransaction());
    EXPECT_EQ(DB_OPERATION_SUCCESS, add(1));
    EXPECT_EQ(DB_OPERATION_SUCCESS, add(2));
    ASSERT_EQ(DB_OPERATION_SUCCESS, articles->RollbackTransaction());
    EXPECT_EQ(0, Raw().Count(QStringLiteral("Article")));

    ASSERT_EQ(DB_OPERATION_SUCCESS, articles->BeginTransaction());
    EXPECT_EQ(DB_OPERATION_SUCCESS, add(1));
    // A failing multi-row write inside the transaction undoes only itself.
    QSharedPointer<DBData> two =
        Rows(table,
             {{{QStringLiteral("plu_no"), 5u}, {QStringLiteral("art_name"), QStringLiteral("B")}}});
    auto* duplicate = new DBRow(table);
    duplicate->AppendField(QStringLiteral("plu_no"), 1u);
    duplicate->AppendField(QStringLiteral("art_name"), QStringLiteral("C"));
    two->AppendRow(duplicate);
    EXPECT_EQ(DB_OPERATION_CONSTRAINT, articles->Insert(two));
    ASSERT_EQ(DB_OPERATION_SUCCESS, articles->CommitTransaction());
    EXPECT_EQ(QStringList({"1"}), Raw().Rows(QStringLiteral("SELECT plu_no FROM Article")));
    EXPECT_EQ(DB_OPERATION_INVALID_ARGUMENT, articles->CommitTransaction());

    articles->SetWriteOnlyInTransaction(true);
    EXPECT_EQ(DB_OPERATION_INVALID_ARGUMENT, add(3));
    EXPECT_TRUE(log->Mentions(QStringLiteral("writes are allowed only inside a transaction")));
    ASSERT_EQ(DB_OPERATION_SUCCESS, articles->BeginTransaction());
    EXPECT_EQ(DB_OPERATION_SUCCESS, add(3));
    ASSERT_EQ(DB_OPERATION_SUCCESS, articles->CommitTransaction());
    articles->SetWriteOnlyInTransaction(false);
    EXPECT_EQ(DB_OPERATION_SUCCESS, add(4));
    EXPECT_EQ(3, Raw().Count(QStringLiteral("Article")));
}

TEST_F(ThreadedTransaction, AnotherThreadWaitsForAnOpenTransaction) {
    DBTable* table = articles->GetTable(QStringLiteral("Article"));
    ASSERT_EQ(DB_OPERATION_SUCCESS, articles->BeginTransaction());
    std::atomic<bool> otherDone{false};
    std::thread other([&] {
        articles->Insert(Rows(table, {{{QStringLiteral("plu_no"), 2u},
                                       {QStringLiteral("art_name"), QStringLiteral("Other")}}}));
        otherDone = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(otherDone.load());
    articles->Insert(Rows(table, {{{QStringLiteral("plu_no"), 1u},
                                   {QStringLiteral("art_name"), QStringLiteral("Mine")}}}));
    ASSERT_EQ(DB_OPERATION_SUCCESS, articles->RollbackTransaction());
    other.join();
    EXPECT_EQ(QStringList({"Other"}), Raw().Rows(QStringLiteral("SELECT art_name FROM Article")));
}

TEST_F(ThreadedTransaction, AGuardEndsItsTransactionOnEveryPath) {
    DBTable* table = articles->GetTable(QStringLiteral("Article"));
    auto add = [&](unsigned int plu) {
        return articles->Insert(
            Rows(table, {{{QStringLiteral("plu_no"), plu},
                          {QStringLiteral("art_name"), QString::number(plu)}}}));
    };
    {
        DBTransaction transaction(articles.get());
        ASSERT_EQ(DB_OPERATION_SUCCESS, transaction.Result());
        EXPECT_EQ(DB_OPERATION_SUCCESS, add(1));
    }
    // Left without a commit: rolled back, and the database is free for another thread.
    auto other = std::async(std::launch::async, [&] { return add(2); });
    if (other.wait_for(std::chrono::seconds(10)) != std::future_status::ready) {
        ADD_FAILURE() << "the guard left the database locked";
        articles->RollbackTransaction();
    }
    EXPECT_EQ(DB_OPERATION_SUCCESS, other.get());
    {
        DBTransaction transaction(articles.get());
        EXPECT_EQ(DB_OPERATION_SUCCESS, add(3));
        EXPECT_EQ(DB_OPERATION_SUCCESS, transaction.Commit());
        EXPECT_EQ(DB_OPERATION_INVALID_ARGUMENT, transaction.Commit());
        EXPECT_FALSE(articles->IsInTransaction());
    }
    EXPECT_EQ(QStringList({"2", "3"}),
              Raw().Rows(QStringLiteral("SELECT plu_no FROM Article ORDER BY plu_no")));
    EXPECT_EQ(DB_OPERATION_NOT_INITIALIZED, DBTransaction(nullptr).Result());
}
