// Price changes and clearing the catalogue.

#include "ArticleEditor.h"
#include "DatabaseFixture.h"
#include "Logger.h"
#include "SignalSystem.h"
#include "SqlRecorder.h"

namespace {

class ArticleEditorPrices : public DatabaseFixture {
protected:
    void SetUp() override {
        DatabaseFixture::SetUp();
        ASSERT_TRUE(seeker.Initialize(articles.get()));
        ASSERT_TRUE(editor.Initialize(articles.get(), &seeker));
    }
    void TearDown() override {
        G::getSignals->ClearCallbacks(SignalSystem::SIGNAL_ALL_ARTICLES_REMOVED);
        DatabaseFixture::TearDown();
    }

    // Stores one article per price, PLU 1, 2, ...; returns the prices after converting.
    QList<qint64> convert(const QList<qint64>& prices, const CurrencyExchangeRate& rate) {
        Raw().Exec(QStringLiteral("DELETE FROM Article"));
        unsigned int plu = 1;
        for (qint64 price : prices) {
            AddArticle(plu, QStringLiteral("A%1").arg(plu), QString(), price);
            ++plu;
        }
        EXPECT_EQ(DB_OPERATION_SUCCESS, editor.ChangeAllArticlesPrices(rate));
        QList<qint64> converted;
        for (const QString& price :
             Raw().Rows(QStringLiteral("SELECT price FROM Article ORDER BY plu_no"))) {
            converted.append(price.toLongLong());
        }
        return converted;
    }

    ArticleSeeker seeker;
    ArticleEditor editor;
};

}  // namespace

TEST_F(ArticleEditorPrices, ConversionRunsOneFixedStatementForTheRate) {
    AddArticle(1, QStringLiteral("A"), QString(), 1000);
    SqlRecorder sql(articles.get());
    ASSERT_EQ(DB_OPERATION_SUCCESS,
              editor.ChangeAllArticlesPrices(CurrencyExchangeRate(QStringLiteral("4.3210"))));
    EXPECT_EQ(
        QStringList({"UPDATE Article SET price = CASE WHEN ((CAST((price * 100000 / 43210) AS "
                     "INTEGER) + 5)/10) >= 999999999 THEN 999999999 ELSE ((CAST((price * "
                     "100000 / 43210) AS INTEGER) + 5)/10) END"}),
        sql.Texts());
    // 10.00 at 4.3210 is 2.314..., rounded to 2.31.
    EXPECT_EQ(231, Raw().Integer(QStringLiteral("SELECT price FROM Article")));
}

TEST_F(ArticleEditorPrices, ConversionRoundsHalvesUpAndCaps) {
    EXPECT_EQ(QList<qint64>({0, 1, 999, 123456789}),
              convert({0, 1, 999, 123456789}, CurrencyExchangeRate(10000, 4)))
        << "a rate of 1 changes nothing";
    EXPECT_EQ(QList<qint64>({1, 2, 3, 0}), convert({1, 3, 5, 0}, CurrencyExchangeRate(2, 0)))
        << "0.5, 1.5 and 2.5 go up";
    EXPECT_EQ(QList<qint64>({999999999, 999999999, 1000}),
              convert({1000000, 999999999, 1}, CurrencyExchangeRate(1, 3)))
        << "capped at 999999999";
    EXPECT_EQ(QList<qint64>({33, 67}),
              convert({100, 200}, CurrencyExchangeRate(QStringLiteral("3"))));
}

TEST_F(ArticleEditorPrices, ConversionIsAllOrNothing) {
    AddArticle(1, QStringLiteral("A"), QString(), 100);
    AddArticle(2, QStringLiteral("B"), QString(), 200);
    Raw().Exec(
        QStringLiteral("CREATE TRIGGER no_big BEFORE UPDATE OF price ON Article "
                       "WHEN NEW.price > 150 BEGIN SELECT RAISE(ABORT, 'injected'); END"));
    EXPECT_EQ(DB_OPERATION_ERROR,
              editor.ChangeAllArticlesPrices(CurrencyExchangeRate(QStringLiteral("0.5"))));
    EXPECT_EQ(QStringList({"100", "200"}),
              Raw().Rows(QStringLiteral("SELECT price FROM Article ORDER BY id")));
    EXPECT_TRUE(log->Contains(
        Logger::LOG_ERROR,
        QStringLiteral(
            "ArticleEditor: SQL error when try to update prices of articles in the database!")));
    // Rates that no statement may be built for: none, negative, or with so many digits that
    // 10^(d+1) does not fit the multiplier (it would rewrite every price by a wrong factor).
    Raw().Exec(QStringLiteral("DROP TRIGGER no_big"));
    SqlRecorder sql(articles.get());
    for (const CurrencyExchangeRate& rate :
         {CurrencyExchangeRate(0, 2), CurrencyExchangeRate(-43210, 4),
          CurrencyExchangeRate(QStringLiteral("1.000000000")), CurrencyExchangeRate(1, 12)}) {
        log->Clear();
        EXPECT_EQ(DB_OPERATION_ERROR, editor.ChangeAllArticlesPrices(rate))
            << rate.ToString().toStdString();
        EXPECT_TRUE(log->Contains(Logger::LOG_ERROR,
                                  QStringLiteral("ArticleEditor: the exchange rate must be above 0 "
                                                 "with at most 8 decimal places; no price was "
                                                 "changed.")));
    }
    EXPECT_TRUE(sql.Texts().isEmpty());
    EXPECT_EQ(QStringList({"100", "200"}),
              Raw().Rows(QStringLiteral("SELECT price FROM Article ORDER BY id")));
    // Eight digits is the most that converts exactly.
    EXPECT_EQ(DB_OPERATION_SUCCESS,
              editor.ChangeAllArticlesPrices(CurrencyExchangeRate(QStringLiteral("0.50000000"))));
    EXPECT_EQ(QStringList({"200", "400"}),
              Raw().Rows(QStringLiteral("SELECT price FROM Article ORDER BY id")));
}

TEST_F(ArticleEditorPrices, OneArticlesPriceIsSetByPlu) {
    AddArticle(5, QStringLiteral("A"), QString(), 100);
    AddArticle(6, QStringLiteral("B"), QString(), 200);
    ASSERT_EQ(DB_OPERATION_SUCCESS,
              editor.UpdateArticlePrice(5, PriceValue(QStringLiteral("12.99"))));
    EXPECT_EQ(DB_OPERATION_SUCCESS, editor.UpdateArticlePrice(7, PriceValue(1)));
    EXPECT_EQ(QStringList({"1299", "200"}),
              Raw().Rows(QStringLiteral("SELECT price FROM Article ORDER BY id")));
    Raw().FailOn(QStringLiteral("Article"), QStringLiteral("UPDATE"));
    EXPECT_EQ(DB_OPERATION_ERROR, editor.UpdateArticlePrice(5, PriceValue(1)));
    EXPECT_TRUE(log->Contains(Logger::LOG_ERROR,
                              QStringLiteral("ArticleEditor: SQL error when try to update "
                                             "price of chosen article in the database!")));
    ArticleEditor fresh;
    EXPECT_EQ(DB_OPERATION_NOT_INITIALIZED, fresh.UpdateArticlePrice(5, PriceValue(1)));
}

TEST_F(ArticleEditorPrices, ClearingTheCatalogueWaitsForReceiptsAndTellsTheRegister) {
    QList<int> calls;
    G::getSignals->AddCallback(SignalSystem::SIGNAL_ALL_ARTICLES_REMOVED,
                               [&](int v) { calls.append(v); });
    const qint64 id = AddArticle(1, QStringLiteral("A"));
    AddBarcode(id, QStringLiteral("111"), true);
    Raw().Exec(QStringLiteral(
        "INSERT INTO NotepadHandyListCategory (id, cat_name) VALUES (1, 'Pieczywo')"));
    Raw().Exec(
        QStringLiteral("INSERT INTO NotepadCategoryItem (category_id, plu_no) VALUES (1, 1)"));
    RawSqlite receiptsRaw(ReceiptsPath());
    receiptsRaw.Exec(
        QStringLiteral("INSERT INTO ReceiptLineEvent (receipt_no, line_no, article_id, plu_no) "
                       "VALUES (1, 1, 1, 1)"));
    EXPECT_EQ(1, editor.RemoveAllArticles());
    EXPECT_EQ(1, Raw().Count(QStringLiteral("Article")));
    EXPECT_TRUE(calls.isEmpty());
    EXPECT_TRUE(log->IsEmpty());

    receiptsRaw.Exec(QStringLiteral("DELETE FROM ReceiptLineEvent"));
    EXPECT_EQ(0, editor.RemoveAllArticles());
    for (const char* table :
         {"Article", "ArticleBarcode", "NotepadCategoryItem", "NotepadHandyListCategory"}) {
        EXPECT_EQ(0, Raw().Count(QString::fromLatin1(table))) << table;
    }
    EXPECT_EQ(QList<int>({1}), calls);
    EXPECT_EQ(0, editor.RemoveAllArticles()) << "empty tables clear fine";
    EXPECT_EQ(QList<int>({1, 1}), calls);
}

TEST_F(ArticleEditorPrices, AFailedClearStopsThereWithoutCallbacks) {
    QList<int> calls;
    G::getSignals->AddCallback(SignalSystem::SIGNAL_ALL_ARTICLES_REMOVED,
                               [&](int v) { calls.append(v); });
    const qint64 id = AddArticle(1, QStringLiteral("A"));
    AddBarcode(id, QStringLiteral("111"), true);
    Raw().Exec(QStringLiteral(
        "INSERT INTO NotepadHandyListCategory (id, cat_name) VALUES (1, 'Pieczywo')"));
    Raw().Exec(
        QStringLiteral("INSERT INTO NotepadCategoryItem (category_id, plu_no) VALUES (1, 1)"));
    Raw().FailOn(QStringLiteral("NotepadCategoryItem"), QStringLiteral("DELETE"));
    EXPECT_EQ(4, editor.RemoveAllArticles());
    EXPECT_EQ(0, Raw().Count(QStringLiteral("Article")));
    EXPECT_EQ(0, Raw().Count(QStringLiteral("ArticleBarcode")));
    EXPECT_EQ(1, Raw().Count(QStringLiteral("NotepadCategoryItem")));
    EXPECT_EQ(1, Raw().Count(QStringLiteral("NotepadHandyListCategory")));
    EXPECT_TRUE(calls.isEmpty());
    EXPECT_TRUE(log->Contains(
        Logger::LOG_ERROR,
        QStringLiteral(
            "ArticleEditor::RemoveAllArticles(): Error while clearing database table.")));
    RawSqlite(ReceiptsPath()).Exec(QStringLiteral("DROP TABLE ReceiptLineEvent"));
    log->Clear();
    EXPECT_EQ(4, editor.RemoveAllArticles());
    EXPECT_TRUE(log->Contains(
        Logger::LOG_ERROR,
        QStringLiteral(
            "ArticleEditor::RemoveAllArticles(): Error while getting count of receipt lines")));
}
