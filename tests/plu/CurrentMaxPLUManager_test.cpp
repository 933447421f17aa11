// The digit count of the largest PLU.

#include "CurrentMaxPLUManager.h"
#include "DatabaseFixture.h"
#include "Logger.h"

using CurrentMaxPLUManagerTest = DatabaseFixture;

TEST_F(CurrentMaxPLUManagerTest, CountsTheDigitsOfTheLargestPluAndKeepsThemOnFailure) {
    CurrentMaxPLUManager manager;
    ASSERT_TRUE(manager.Initialize(articles.get()));
    EXPECT_EQ(0, manager.GetDigitsCountOfMaxPlu());
    AddArticle(99999, "A");
    ASSERT_TRUE(manager.DetermineDigitsCountOfMaxPlu());
    EXPECT_EQ(5, manager.GetDigitsCountOfMaxPlu());
    AddArticle(100000, "B");
    EXPECT_EQ(5, manager.GetDigitsCountOfMaxPlu()) << "no database access until asked";
    ASSERT_TRUE(manager.DetermineDigitsCountOfMaxPlu());
    EXPECT_EQ(6, manager.GetDigitsCountOfMaxPlu());
    Raw().Exec("DELETE FROM Article");
    Raw().Exec("INSERT INTO Article (plu_no, art_name) VALUES (-42, 'minus')");
    ASSERT_TRUE(manager.DetermineDigitsCountOfMaxPlu());
    EXPECT_EQ(3, manager.GetDigitsCountOfMaxPlu()) << "the minus sign counts";
    EXPECT_TRUE(log->IsEmpty());

    Raw().Exec("INSERT INTO Article (plu_no, art_name) VALUES ('abc', 'text PLU')");
    EXPECT_FALSE(manager.DetermineDigitsCountOfMaxPlu());
    EXPECT_EQ(3, manager.GetDigitsCountOfMaxPlu());
    EXPECT_EQ(QStringList({"CurrentMaxPLUManager::determineDigitsCountOfMaxPlu(): ERROR: Can not "
                           "convert 'maxPLUValueQVariant' to long long int."}),
              log->Texts());
    CurrentMaxPLUManager fresh;
    EXPECT_FALSE(fresh.Initialize(articles.get()));
    EXPECT_EQ(0, fresh.GetDigitsCountOfMaxPlu());

    Raw().Exec("DROP TABLE Article");
    log->Clear();
    EXPECT_FALSE(manager.DetermineDigitsCountOfMaxPlu());
    EXPECT_EQ(3, manager.GetDigitsCountOfMaxPlu());
    EXPECT_TRUE(log->Contains(Logger::LOG_ERROR,
                              "CurrentMaxPLUManager::determineDigitsCountOfMaxPlu(): ERROR: Can "
                              "not get max PLU value from article database table."));
    CurrentMaxPLUManager other;
    EXPECT_FALSE(other.Initialize(nullptr));
    EXPECT_FALSE(other.DetermineDigitsCountOfMaxPlu());
    log->Clear();
    EXPECT_FALSE(other.Initialize(articles.get()));
    EXPECT_EQ(QStringList({"CurrentMaxPLUManager::loadDatabaseAndTables(): ERROR: Can not find "
                           "articles table in database."}),
              log->Texts());
}
