// Transactions of several writes: all or nothing, owned by one thread, and a scope guard that
// cannot leave one open.

#include <atomic>
#include <chrono>
#include <future>
#include <thread>

#include "DBTransaction.h"
#include "DatabaseFixture.h"

namespace {

class Transaction : public DatabaseFixture {
protected:
    int add(unsigned int plu, const QString& name = QString()) {
        return articles->Insert(
            Rows(articles->GetTable("Article"),
                 {{{"plu_no", plu}, {"art_name", name.isNull() ? QString::number(plu) : name}}}));
    }
};

using ThreadedTransaction = Transaction;

}  // namespace

TEST_F(Transaction, TransactionsCommitOrRollBackAsAWhole) {
    ASSERT_EQ(DB_OPERATION_SUCCESS, articles->BeginTransaction());
    EXPECT_TRUE(articles->IsInTransaction());
    EXPECT_EQ(DB_OPERATION_INVALID_ARGUMENT, articles->BeginTransaction());
    EXPECT_EQ(DB_OPERATION_SUCCESS, add(1));
    EXPECT_EQ(DB_OPERATION_SUCCESS, add(2));
    ASSERT_EQ(DB_OPERATION_SUCCESS, articles->RollbackTransaction());
    EXPECT_EQ(0, Raw().Count("Article"));

    ASSERT_EQ(DB_OPERATION_SUCCESS, articles->BeginTransaction());
    EXPECT_EQ(DB_OPERATION_SUCCESS, add(1));
    // A failing multi-row write inside the transaction undoes only itself.
    EXPECT_EQ(DB_OPERATION_CONSTRAINT,
              articles->Insert(Rows(
                  articles->GetTable("Article"),
                  {{{"plu_no", 5u}, {"art_name", "B"}}, {{"plu_no", 1u}, {"art_name", "C"}}})));
    ASSERT_EQ(DB_OPERATION_SUCCESS, articles->CommitTransaction());
    EXPECT_EQ(QStringList({"1"}), Raw().Rows("SELECT plu_no FROM Article"));
    EXPECT_EQ(DB_OPERATION_INVALID_ARGUMENT, articles->CommitTransaction());

    articles->SetWriteOnlyInTransaction(true);
    EXPECT_EQ(DB_OPERATION_INVALID_ARGUMENT, add(3));
    EXPECT_TRUE(log->Mentions("writes are allowed only inside a transaction"));
    ASSERT_EQ(DB_OPERATION_SUCCESS, articles->BeginTransaction());
    EXPECT_EQ(DB_OPERATION_SUCCESS, add(3));
    ASSERT_EQ(DB_OPERATION_SUCCESS, articles->CommitTransaction());
    articles->SetWriteOnlyInTransaction(false);
    EXPECT_EQ(DB_OPERATION_SUCCESS, add(4));
    EXPECT_EQ(3, Raw().Count("Article"));
}

TEST_F(ThreadedTransaction, AnotherThreadWaitsForAnOpenTransaction) {
    ASSERT_EQ(DB_OPERATION_SUCCESS, articles->BeginTransaction());
    std::atomic<bool> otherDone{false};
    std::thread other([&] {
        add(2, "Other");
        otherDone = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(otherDone.load());
    add(1, "Mine");
    ASSERT_EQ(DB_OPERATION_SUCCESS, articles->RollbackTransaction());
    other.join();
    EXPECT_EQ(QStringList({"Other"}), Raw().Rows("SELECT art_name FROM Article"));
}

TEST_F(ThreadedTransaction, AGuardEndsItsTransactionOnEveryPath) {
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
    EXPECT_EQ(QStringList({"2", "3"}), Raw().Rows("SELECT plu_no FROM Article ORDER BY plu_no"));
    EXPECT_EQ(DB_OPERATION_NOT_INITIALIZED, DBTransaction(nullptr).Result());
}
