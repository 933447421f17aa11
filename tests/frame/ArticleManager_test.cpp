// The article manager's construction, start-up order, failures and tear-down.

#include "ArticleManager.h"
#include "DatabaseFixture.h"
#include "Logger.h"
#include "PaymentSystem.h"
#include "SqlRecorder.h"
#include "SystemManager.h"
#include "XCLASS_gArticleManager.h"

namespace {

class ArticleManagerTest : public DatabaseFixture {
protected:
    void TearDown() override {
        G::paymentSystem->SetState(SystemBase::STATE_READY);
        DatabaseFixture::TearDown();
    }

    ArticleManager manager;
    XCLASS_gArticleManager initializer{&manager};
};

}  // namespace

TEST_F(ArticleManagerTest, ConstructionNamesTheSystemAndItsDependencies) {
    EXPECT_EQ(QStringLiteral("ArticleManager"), manager.GetName());
    EXPECT_EQ(SystemBase::SYSTEM_ARTICLE_MANAGER, manager.GetSystemNumber());
    EXPECT_EQ(29, manager.GetSystemNumber());
    EXPECT_EQ(QVector<SystemBase::SystemsNames>(
                  {SystemBase::SystemsNames(0), SystemBase::SystemsNames(5),
                   SystemBase::SystemsNames(4), SystemBase::SystemsNames(28)}),
              manager.GetDependencies());
    EXPECT_EQ(1, manager.GetState());
    EXPECT_TRUE(manager.GetErrorText().isEmpty());
    EXPECT_NE(nullptr, manager.GetSeeker());
    EXPECT_NE(nullptr, manager.GetCurrentMaxPLUManager());
    Article article;
    EXPECT_EQ(6, manager.GetSeeker()->FindPlu(1, article, false)) << "nothing initialised yet";
}

TEST_F(ArticleManagerTest, InitializesEverySubManagerAgainstOneDatabase) {
    AddArticle(12345, QStringLiteral("Chleb"));
    EXPECT_EQ(3, initializer.Initialize());
    EXPECT_EQ(3, manager.GetState());
    EXPECT_TRUE(log->Contains(Logger::LOG_NOTICE, QStringLiteral("ArticleManager initialized!")));
    Article article;
    EXPECT_EQ(0, manager.GetSeeker()->FindPlu(12345, article, false));
    EXPECT_TRUE(manager.GetEditor()->IsRecordExist(QStringLiteral("Chleb")));
    EXPECT_TRUE(manager.GetBarcodeManager()->GetSpecialBarcodeRecognizer());
    EXPECT_EQ(7, manager.GetTaxRatesManager()->GetRecords().size());
    EXPECT_TRUE(manager.GetDeptDBManager()->IsInitialized());
    EXPECT_EQ(5, manager.GetCurrentMaxPLUManager()->GetDigitsCountOfMaxPlu());
    QList<SpecialBarcodePrefix*> prefixes;
    EXPECT_EQ(
        0, manager.GetBarcodePrefixDBManager()->LoadPrefixesByType(SPECIAL_BARCODE_NONE, prefixes));
}

TEST_F(ArticleManagerTest, NullDatabaseIsRefusedBeforeAnySubManager) {
    EXPECT_FALSE(manager.Initialize(nullptr));
    EXPECT_EQ(QStringList({"ArticleManager construction FAILED! DBManager inaccessible!"}),
              log->Texts());
    EXPECT_EQ(Logger::LOG_ERROR, log->Entries().first().level);
    Article article;
    EXPECT_EQ(6, manager.GetSeeker()->FindPlu(1, article, false));
}

TEST_F(ArticleManagerTest, MissingArticleTableStopsAtTheSeeker) {
    Raw().Exec(QStringLiteral("DROP TABLE Article"));
    EXPECT_FALSE(manager.Initialize(articles.get()));
    EXPECT_EQ(QStringList({"ArticleSeeker construction FAILED! Can not find article table in DB!",
                           "ArticleSeeker initialization FAILED!"}),
              log->Texts());
    Article article;
    EXPECT_EQ(6, manager.GetEditor()->AddRecord(article));
    EXPECT_FALSE(manager.GetDeptDBManager()->IsInitialized());
    EXPECT_TRUE(manager.GetTaxRatesManager()->GetRecords().isEmpty());
    // Through the initializer the failure is a state and an error text, not another message.
    log->Clear();
    EXPECT_EQ(4, initializer.Initialize());
    EXPECT_EQ(4, manager.GetState());
    EXPECT_EQ(QStringLiteral("Article Manager initialization FAILED!"), manager.GetErrorText());
    EXPECT_FALSE(log->Mentions(QStringLiteral("Article Manager")));
}

TEST_F(ArticleManagerTest, EachFailingStepNamesItsClass) {
    Raw().Exec(QStringLiteral("DROP TABLE SpecialBarcodePrefixes"));
    EXPECT_FALSE(manager.Initialize(articles.get()));
    EXPECT_EQ(QStringLiteral("BarcodePrefixDBManager initialization FAILED!"), log->Texts().last());
    EXPECT_FALSE(log->Mentions(QStringLiteral("ArticleManager initialized!")));
    Raw().Exec(QStringLiteral("DROP TABLE ArticleBarcode"));
    ArticleManager second;
    log->Clear();
    EXPECT_FALSE(second.Initialize(articles.get()));
    EXPECT_EQ(QStringLiteral("ArticleSeeker initialization FAILED!"), log->Texts().last());
}

TEST_F(ArticleManagerTest, FailingLastStepLogsNothingOfItsOwn) {
    AddArticle(1, QStringLiteral("A"));
    Raw().Exec(QStringLiteral("INSERT INTO Article (plu_no, art_name) VALUES ('abc', 'B')"));
    EXPECT_FALSE(manager.Initialize(articles.get()));
    EXPECT_FALSE(log->Mentions(QStringLiteral("FAILED!")));
    EXPECT_FALSE(log->Mentions(QStringLiteral("ArticleManager initialized!")));
    EXPECT_TRUE(log->Mentions(QStringLiteral("Can not convert 'maxPLUValueQVariant'")));
}

TEST_F(ArticleManagerTest, WaitsWhileASystemItNeedsIsNotReady) {
    SqlRecorder sql(articles.get());
    G::paymentSystem->SetState(SystemBase::STATE_NOT_READY);
    EXPECT_EQ(2, initializer.Initialize());
    EXPECT_EQ(2, manager.GetState());
    G::paymentSystem->SetState(SystemBase::STATE_READY);
    G::dbArticles = nullptr;
    EXPECT_EQ(2, initializer.Initialize());
    G::dbArticles = articles.get();
    articles->Close();
    EXPECT_EQ(2, initializer.Initialize());
    EXPECT_TRUE(sql.Texts().isEmpty());
    EXPECT_TRUE(log->IsEmpty()) << "the database was never touched";
    Article article;
    EXPECT_EQ(6, manager.GetSeeker()->FindPlu(1, article, false));
}

TEST_F(ArticleManagerTest, UninitializeLeavesNoSubManager) {
    ASSERT_EQ(3, initializer.Initialize());
    EXPECT_EQ(5, initializer.Uninitialize());
    EXPECT_EQ(5, manager.GetState());
    EXPECT_EQ(nullptr, manager.GetEditor());
    EXPECT_EQ(nullptr, manager.GetSeeker());
    EXPECT_EQ(nullptr, manager.GetDeptDBManager());
    EXPECT_EQ(nullptr, manager.GetTaxRatesManager());
    EXPECT_EQ(nullptr, manager.GetBarcodeManager());
    EXPECT_EQ(nullptr, manager.GetBarcodePrefixDBManager());
    EXPECT_EQ(nullptr, manager.GetCurrentMaxPLUManager());
}

TEST_F(ArticleManagerTest, SystemManagerStartsTheLibrarysManagerOnce) {
    // The initializer the library registered at load drives G::articleManager.
    const QList<SystemInitializer*> registered = SystemManager::Instance()->GetSystemInitializers();
    ASSERT_EQ(1, registered.size());
    EXPECT_EQ(G::articleManager, registered.first()->GetSystem());
    G::paymentSystem->SetState(SystemBase::STATE_NOT_READY);
    EXPECT_FALSE(SystemManager::Instance()->InitializeAll());
    EXPECT_EQ(2, G::articleManager->GetState());
    G::paymentSystem->SetState(SystemBase::STATE_READY);
    EXPECT_TRUE(SystemManager::Instance()->InitializeAll()) << "retried later";
    EXPECT_EQ(3, G::articleManager->GetState());
    AddArticle(7, QStringLiteral("Masło"));
    Article article;
    EXPECT_EQ(0, G::articleManager->GetSeeker()->FindPlu(7, article, false));
    SystemManager::Instance()->UninitializeAll();
    EXPECT_EQ(5, G::articleManager->GetState());
    EXPECT_EQ(nullptr, G::articleManager->GetSeeker());
}
