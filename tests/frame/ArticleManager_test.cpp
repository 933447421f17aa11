// The article manager's construction, start-up order, failures and tear-down.

#include <functional>

#include "ArticleManager.h"
#include "CurrencyExchangeRate.h"
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

TEST_F(ArticleManagerTest, ConstructedManagerNamesItsDependenciesAndRefusesANullDatabase) {
    EXPECT_EQ(QVector<SystemBase::SystemsNames>(
                  {SystemBase::SystemsNames(0), SystemBase::SystemsNames(5),
                   SystemBase::SystemsNames(4), SystemBase::SystemsNames(28)}),
              manager.GetDependencies());
    EXPECT_EQ(1, manager.GetState());
    Article article;
    EXPECT_EQ(6, manager.GetSeeker()->FindPlu(1, article, false)) << "nothing initialised yet";
    EXPECT_FALSE(manager.Initialize(nullptr));
    EXPECT_EQ(QStringList({"ArticleManager construction FAILED! DBManager inaccessible!"}),
              log->Texts());
    EXPECT_EQ(Logger::LOG_ERROR, log->Entries().first().level);
    EXPECT_EQ(6, manager.GetSeeker()->FindPlu(1, article, false));
}

TEST_F(ArticleManagerTest, InitializesEverySubManagerAgainstOneDatabaseAndUninitializesThemAll) {
    AddArticle(12345, "Chleb");
    EXPECT_EQ(3, initializer.Initialize());
    EXPECT_EQ(3, manager.GetState());
    EXPECT_TRUE(log->Contains(Logger::LOG_NOTICE, "ArticleManager initialized!"));
    Article article;
    EXPECT_EQ(0, manager.GetSeeker()->FindPlu(12345, article, false));
    EXPECT_TRUE(manager.GetEditor()->IsRecordExist("Chleb"));
    EXPECT_TRUE(manager.GetBarcodeManager()->GetSpecialBarcodeRecognizer());
    EXPECT_EQ(7, manager.GetTaxRatesManager()->GetRecords().size());
    EXPECT_TRUE(manager.GetDeptDBManager()->IsInitialized());
    EXPECT_EQ(5, manager.GetCurrentMaxPLUManager()->GetDigitsCountOfMaxPlu());
    QList<SpecialBarcodePrefix*> prefixes;
    EXPECT_EQ(
        0, manager.GetBarcodePrefixDBManager()->LoadPrefixesByType(SPECIAL_BARCODE_NONE, prefixes));

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

TEST_F(ArticleManagerTest, MissingArticleTableStopsAtTheSeeker) {
    Raw().Exec("DROP TABLE Article");
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
    EXPECT_EQ("Article Manager initialization FAILED!", manager.GetErrorText());
    EXPECT_FALSE(log->Mentions("Article Manager"));
}

TEST_F(ArticleManagerTest, EachFailingStepNamesItsClass) {
    Raw().Exec("DROP TABLE SpecialBarcodePrefixes");
    EXPECT_FALSE(manager.Initialize(articles.get()));
    EXPECT_EQ("BarcodePrefixDBManager initialization FAILED!", log->Texts().last());
    EXPECT_FALSE(log->Mentions("ArticleManager initialized!"));
    Raw().Exec("DROP TABLE ArticleBarcode");
    ArticleManager second;
    log->Clear();
    EXPECT_FALSE(second.Initialize(articles.get()));
    EXPECT_EQ("ArticleSeeker initialization FAILED!", log->Texts().last());
}

TEST_F(ArticleManagerTest, FailingLastStepLogsNothingOfItsOwn) {
    AddArticle(1, "A");
    Raw().Exec("INSERT INTO Article (plu_no, art_name) VALUES ('abc', 'B')");
    EXPECT_FALSE(manager.Initialize(articles.get()));
    EXPECT_FALSE(log->Mentions("FAILED!"));
    EXPECT_FALSE(log->Mentions("ArticleManager initialized!"));
    EXPECT_TRUE(log->Mentions("Can not convert 'maxPLUValueQVariant'"));
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
    AddArticle(7, "Masło");
    Article article;
    EXPECT_EQ(0, G::articleManager->GetSeeker()->FindPlu(7, article, false));
    SystemManager::Instance()->UninitializeAll();
    EXPECT_EQ(5, G::articleManager->GetState());
    EXPECT_EQ(nullptr, G::articleManager->GetSeeker());
}

// The statements the design fixes, runs of spaces included: every optimisation must run under
// these texts, never change them.
TEST_F(ArticleManagerTest, HandsTheDatabaseTheFixedStatementsAsWritten) {
    AddArticle(1, "Ser");
    const qint64 id = AddArticle(2, "Chleb", "5901234123457");
    AddBarcode(id, "112", false);
    Raw().Exec("UPDATE Article SET price = 1000, link_plu_no = 25");
    ASSERT_EQ(3, initializer.Initialize());
    Article article;
    const struct {
        std::function<void()> call;
        QStringList texts;
    } cases[] = {
        {[&] { manager.GetSeeker()->FindName("se_", article); },
         {"SELECT * FROM Article WHERE art_name like \"se_\";"}},
        {[&] { manager.GetSeeker()->FindArticleByBarcode("5901234123457", article, true); },
         {"SELECT a.id, plu_no, art_name, tax_rate_no, dept_no, quantity_precision, unit_no, "
          "sale_bloc, main_barcode, price, is_pack, disc_sur_block, free_price_allow, "
          "on_handy_list, scale_no, link_plu_no             FROM Article a, ArticleBarcode b       "
          "          WHERE a.id == b.article_id                 AND b.barcode = \"5901234123457\" "
          "AND a.on_handy_list == 1"}},
        {[&] {
             SpecialBarcodeSubjectType type = SPECIAL_BARCODE_NONE;
             manager.GetBarcodePrefixDBManager()->CheckSpecialBarcodeSubjectType("27", type);
         },
         {"SELECT weight_or_price             FROM SpecialBarcodePrefixes                 WHERE "
          "prefix == \"27\""}},
        {[&] {
             eDBOperationResult result = DB_OPERATION_SUCCESS;
             manager.GetBarcodeManager()->LoadBarcode(result, 0);
         },
         {"SELECT * FROM ArticleBarcode WHERE is_main = 0 LIMIT 1"}},
        {[&] {
             eDBOperationResult result = DB_OPERATION_SUCCESS;
             manager.GetBarcodeManager()->LoadBarcode(result, 3);
         },
         {"SELECT * FROM ArticleBarcode WHERE is_main = 0 LIMIT 1 OFFSET 3"}},
        {[&] { manager.GetEditor()->RemoveAllLinksToGivenArticle(25); },
         {"UPDATE Article             SET link_plu_no = 0                 WHERE link_plu_no == "
          "25"}},
        {[&] { manager.GetEditor()->ChangeAllArticlesPrices(CurrencyExchangeRate("4.3210")); },
         {"UPDATE Article SET price = CASE WHEN ((CAST((price * 100000 / 43210) AS INTEGER) + "
          "5)/10) >= 999999999 THEN 999999999 ELSE ((CAST((price * 100000 / 43210) AS INTEGER) + "
          "5)/10) END"}},
        {[&] { manager.GetDeptDBManager()->GetDeptFirmwareInitializer()->SetFirmwareFlags(); },
         {"UPDATE Dept             SET is_discount_blocked = 1                 WHERE dept_id == 15 "
          "                OR (dept_id >= 90 AND dept_id <= 99)",
          "UPDATE Dept             SET is_discount_blocked = 0                 WHERE dept_id != 15 "
          "                AND NOT (dept_id >= 90 AND dept_id <= 99)",
          "UPDATE Dept             SET is_order_printer = 0",
          "UPDATE Dept             SET is_order_printer = 1                 WHERE (dept_id >= 1 "
          "AND dept_id <= 8)                 OR (dept_id >= 51 AND dept_id <= 99)",
          "UPDATE Dept             SET max_discount =10000",
          "UPDATE Dept             SET max_surcharge =10000"}},
        {[&] {
             manager.GetDeptDBManager()
                 ->GetDeptFirmwareInitializer()
                 ->SetFirmwareDeptNamesInDatabase();
         },
         {" UPDATE Dept SET dept_name = 'Grupa towarowa ' || dept_id WHERE (dept_id >= 1 AND "
          "dept_id <= 16)"}},
    };
    for (const auto& each : cases) {
        SqlRecorder sql(articles.get());
        each.call();
        EXPECT_EQ(each.texts, sql.Texts());
    }
}
