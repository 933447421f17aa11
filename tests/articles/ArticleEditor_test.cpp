// Article record writes, price changes and clearing the catalogue on a real article database.

#include "ArticleEditor.h"
#include "DatabaseFixture.h"
#include "Logger.h"
#include "SignalSystem.h"
#include "SqlRecorder.h"

namespace {

class ArticleEditorTest : public DatabaseFixture {
protected:
    void SetUp() override {
        DatabaseFixture::SetUp();
        AddLabelPrefixes();
        ASSERT_TRUE(seeker.Initialize(articles.get()));
        ASSERT_TRUE(editor.Initialize(articles.get(), &seeker));
    }
    void TearDown() override {
        G::getSignals->ClearCallbacks(SignalSystem::SIGNAL_ALL_ARTICLES_REMOVED);
        DatabaseFixture::TearDown();
    }

    static Article sample(unsigned int plu, const QString& name) {
        Article article;
        article.pluNo = plu;
        article.name = name;
        article.taxRateNo = 1;
        article.deptNo = 3;
        article.quantityPrecision = 2;
        article.unitNo = 1;
        article.mainBarcode = "5901234123457";
        article.price = 1299;
        article.freePriceAllow = true;
        article.scaleNo = 2;
        article.linkPluNo = 5;
        return article;
    }
    Article add(unsigned int plu, const QString& name, unsigned int linkPlu = 5) {
        Article article = sample(plu, name);
        article.linkPluNo = linkPlu;
        EXPECT_EQ(DB_OPERATION_SUCCESS, editor.AddRecord(article));
        Article found;
        EXPECT_EQ(0, seeker.FindPlu(plu, found, false));
        return found;
    }
    QStringList column(const QString& name) {
        return Raw().Rows(QStringLiteral("SELECT %1 FROM Article ORDER BY id").arg(name));
    }
    QStringList stored() { return column("*"); }

    // Stores one article per price, PLU 1, 2, ...; returns the prices after converting.
    QList<qint64> convert(const QList<qint64>& prices, const CurrencyExchangeRate& rate) {
        Raw().Exec("DELETE FROM Article");
        unsigned int plu = 1;
        for (qint64 price : prices) {
            AddArticle(plu, QStringLiteral("A%1").arg(plu), QString(), price);
            ++plu;
        }
        EXPECT_EQ(DB_OPERATION_SUCCESS, editor.ChangeAllArticlesPrices(rate));
        QList<qint64> converted;
        for (const QString& price : column("price")) {
            converted.append(price.toLongLong());
        }
        return converted;
    }

    ArticleSeeker seeker;
    ArticleEditor editor;
};

}  // namespace

TEST_F(ArticleEditorTest, AddedArticleReadsBackWithItsMainBarcodeNormalised) {
    Article article = sample(100, "Mleko 2% 1l");
    const Article given = article;
    ASSERT_EQ(DB_OPERATION_SUCCESS, editor.AddRecord(article));
    EXPECT_EQ(given, article) << "the record passed in must not change";
    Article found;
    ASSERT_EQ(0, seeker.FindPlu(100, found, false));
    EXPECT_NE(0u, found.id);
    article.id = found.id;
    EXPECT_EQ(article, found);
    EXPECT_TRUE(log->IsEmpty());

    Article weighed = sample(1, "Schab");
    weighed.mainBarcode = "2312345012500";  // 1250 g of item 12345
    ASSERT_EQ(DB_OPERATION_SUCCESS, editor.AddRecord(weighed));
    EXPECT_EQ("2312345012500", weighed.mainBarcode);
    Article noBarcode = sample(2, "Bułka");
    noBarcode.mainBarcode.clear();
    ASSERT_EQ(DB_OPERATION_SUCCESS, editor.AddRecord(noBarcode));
    EXPECT_EQ(QStringList({"5901234123457", "2312345000002", ""}), column("main_barcode"));
    // Editing normalises the same way.
    ASSERT_EQ(0, seeker.FindPlu(2, found, false));
    found.mainBarcode = "2912345001001";
    ASSERT_EQ(DB_OPERATION_SUCCESS, editor.EditRecord(found));
    EXPECT_EQ("2912345000004", column("main_barcode").last());

    // The widest values (a price is read as 32 bits unsigned) pass the 32-bit board unharmed.
    Article widest = sample(4294967295u, "Najszerszy");
    widest.linkPluNo = 4294967295u;
    widest.price = Q_INT64_C(4294967295);
    widest.mainBarcode.clear();
    ASSERT_EQ(DB_OPERATION_SUCCESS, editor.AddRecord(widest));
    ASSERT_EQ(0, seeker.FindPlu(4294967295u, found, false));
    widest.id = found.id;
    EXPECT_EQ(widest, found);
}

TEST_F(ArticleEditorTest, EditAndDeleteTouchTheRowOfTheirIdOnly) {
    Article found = add(1, "A");
    add(2, "B", 1);
    found.name = "A nowe";
    found.price = 1;
    found.saleBlocked = true;
    ASSERT_EQ(DB_OPERATION_SUCCESS, editor.EditRecord(found));
    Article again;
    ASSERT_EQ(0, seeker.FindPlu(1, again, false));
    EXPECT_EQ(found, again);
    ASSERT_EQ(0, seeker.FindPlu(2, again, false));
    EXPECT_EQ("B", again.name);

    // An id no row has: the database's answer, nothing inserted.
    Article ghost = sample(3, "Duch");
    ghost.id = 999;
    const QStringList before = stored();
    EXPECT_EQ(DB_OPERATION_NOT_FOUND, editor.EditRecord(ghost));
    EXPECT_EQ(before, stored());
    EXPECT_TRUE(log->Contains(Logger::LOG_ERROR,
                              "ArticleEditor: SQL error when try to update article "
                              "to the database!"));

    // Deleting leaves its barcodes and the links to it.
    AddBarcode(found.id, "5901234123457", true);
    ASSERT_EQ(DB_OPERATION_SUCCESS, editor.DeleteRecord(found));
    EXPECT_EQ(3, seeker.FindPlu(1, found, false));
    EXPECT_EQ(1, Raw().Count("ArticleBarcode"));
    EXPECT_EQ(QStringList({"1"}), column("link_plu_no"));
}

// Both change the rows they name and no other; link removal answers false on success.
TEST_F(ArticleEditorTest, RemovingLinksAndSettingOnePriceTouchOnlyTheirRows) {
    add(25, "A", 0);
    add(2, "B", 25);
    add(3, "C", 2);
    EXPECT_FALSE(editor.RemoveAllLinksToGivenArticle(25));
    EXPECT_EQ(QStringList({"0", "0", "2"}), column("link_plu_no"));
    EXPECT_FALSE(editor.RemoveAllLinksToGivenArticle(0));
    Raw().FailOn("Article", "UPDATE");
    EXPECT_TRUE(editor.RemoveAllLinksToGivenArticle(2));
    EXPECT_EQ(QStringList({"0", "0", "2"}), column("link_plu_no"));

    Raw().StopFailing("Article", "UPDATE");
    ASSERT_EQ(DB_OPERATION_SUCCESS, editor.UpdateArticlePrice(25, PriceValue("3.50")));
    EXPECT_EQ(DB_OPERATION_SUCCESS, editor.UpdateArticlePrice(7, PriceValue(1)));
    EXPECT_EQ(QStringList({"350", "1299", "1299"}), column("price"));
}

TEST_F(ArticleEditorTest, WriteFailuresReturnTheDatabaseResultAndTheirMessages) {
    Article found = add(1, "A");
    for (const char* event : {"INSERT", "UPDATE", "DELETE"}) {
        Raw().FailOn("Article", event);
    }
    log->Clear();
    Article b = sample(2, "B");
    EXPECT_NE(DB_OPERATION_SUCCESS, editor.AddRecord(b));
    EXPECT_NE(DB_OPERATION_SUCCESS, editor.EditRecord(found));
    EXPECT_NE(DB_OPERATION_SUCCESS, editor.DeleteRecord(found));
    EXPECT_EQ(DB_OPERATION_ERROR, editor.UpdateArticlePrice(1, PriceValue(1)));
    for (const char* message :
         {"ArticleEditor: SQL error when try to insert article to the database!",
          "ArticleEditor: SQL error when try to update article to the database!",
          "ArticleEditor: SQL error when try to delete article from the database!",
          "ArticleEditor: SQL error when try to update price of chosen article in the "
          "database!"}) {
        EXPECT_TRUE(log->Contains(Logger::LOG_ERROR, message)) << message;
    }
    EXPECT_EQ(1, Raw().Count("Article"));
}

TEST_F(ArticleEditorTest, UninitialisedEditorRefusesWithoutTouchingTheDatabase) {
    ArticleEditor fresh;
    Article a = sample(1, "A");
    EXPECT_EQ(DB_OPERATION_NOT_INITIALIZED, fresh.AddRecord(a));
    EXPECT_EQ(DB_OPERATION_NOT_INITIALIZED, fresh.EditRecord(a));
    EXPECT_EQ(DB_OPERATION_NOT_INITIALIZED, fresh.DeleteRecord(a));
    EXPECT_EQ(DB_OPERATION_NOT_INITIALIZED, fresh.UpdateArticlePrice(5, PriceValue(1)));
    EXPECT_FALSE(fresh.IsRecordExist("A"));
    EXPECT_TRUE(editor.Uninitialize());
    EXPECT_EQ(DB_OPERATION_NOT_INITIALIZED, editor.AddRecord(a));
    EXPECT_EQ(0, Raw().Count("Article"));
    EXPECT_TRUE(log->IsEmpty());

    EXPECT_FALSE(fresh.Initialize(nullptr, &seeker));
    EXPECT_FALSE(fresh.Initialize(articles.get(), nullptr));
    EXPECT_EQ(DB_OPERATION_NOT_INITIALIZED, fresh.AddRecord(a));
    Raw().Exec("DROP TABLE Article");
    EXPECT_FALSE(fresh.Initialize(articles.get(), &seeker));
    EXPECT_EQ(
        QStringList({"ArticleEditor construction FAILED! Can not open articles DB!",
                     "ArticleEditor construction FAILED! Article Seeker is not initialized yet!",
                     "ArticleEditor construction FAILED! Can not find article table in DB!"}),
        log->Texts());
}

// Names are values whatever they hold; a PLU or name on file already is refused by the
// database, the stored rows intact.
TEST_F(ArticleEditorTest, HostileNamesAreStoredAsTextAndDuplicatesRefused) {
    add(7, "Chleb");
    unsigned int plu = 10;
    for (const QString& name :
         QStringList{"\"; DROP TABLE Article; --", "O'Brien \"Best\" 100%", "art_name", "_%_",
                     QString(10000, QLatin1Char('x')), "Żółć ęą \xF0\x9F\x8D\x9E"}) {
        Article article = sample(plu++, name);
        article.mainBarcode = name.left(20);
        ASSERT_EQ(DB_OPERATION_SUCCESS, editor.AddRecord(article)) << name.left(40).toStdString();
        Article found;
        ASSERT_EQ(0, seeker.FindPlu(article.pluNo, found, false));
        EXPECT_EQ(name, found.name);
    }
    const QStringList before = stored();
    EXPECT_EQ(7, before.size());
    EXPECT_TRUE(log->IsEmpty());
    Article samePlu = sample(7, "Inny");
    EXPECT_EQ(DB_OPERATION_CONSTRAINT, editor.AddRecord(samePlu));
    Article sameName = sample(8, "Chleb");
    EXPECT_EQ(DB_OPERATION_CONSTRAINT, editor.AddRecord(sameName));
    EXPECT_EQ(before, stored());
    EXPECT_TRUE(log->Contains(
        Logger::LOG_ERROR, "ArticleEditor: SQL error when try to insert article to the database!"));
    EXPECT_TRUE(editor.IsRecordExist("chleb"));
    EXPECT_FALSE(editor.IsRecordExist("Chleby"));
}

TEST_F(ArticleEditorTest, PriceConversionRoundsHalvesUpAndCaps) {
    // 10.00 at 4.3210 is 2.314..., rounded to 2.31.
    EXPECT_EQ(QList<qint64>({231}), convert({1000}, CurrencyExchangeRate("4.3210")));
    EXPECT_EQ(QList<qint64>({0, 1, 999, 123456789}),
              convert({0, 1, 999, 123456789}, CurrencyExchangeRate(10000, 4)))
        << "a rate of 1 changes nothing";
    EXPECT_EQ(QList<qint64>({1, 2, 3, 0}), convert({1, 3, 5, 0}, CurrencyExchangeRate(2, 0)))
        << "0.5, 1.5 and 2.5 go up";
    EXPECT_EQ(QList<qint64>({999999999, 999999999, 1000}),
              convert({1000000, 999999999, 1}, CurrencyExchangeRate(1, 3)))
        << "capped at 999999999";
    EXPECT_EQ(QList<qint64>({33, 67}), convert({100, 200}, CurrencyExchangeRate("3")));
    // Eight digits is the most that converts exactly.
    EXPECT_EQ(QList<qint64>({200, 400}), convert({100, 200}, CurrencyExchangeRate("0.50000000")));
}

TEST_F(ArticleEditorTest, PriceConversionIsAllOrNothing) {
    AddArticle(1, "A", QString(), 100);
    AddArticle(2, "B", QString(), 200);
    Raw().Exec(
        "CREATE TRIGGER no_big BEFORE UPDATE OF price ON Article "
        "WHEN NEW.price > 150 BEGIN SELECT RAISE(ABORT, 'injected'); END");
    EXPECT_EQ(DB_OPERATION_ERROR, editor.ChangeAllArticlesPrices(CurrencyExchangeRate("0.5")));
    EXPECT_EQ(QStringList({"100", "200"}), column("price"));
    EXPECT_TRUE(log->Contains(
        Logger::LOG_ERROR,

        "ArticleEditor: SQL error when try to update prices of articles in the database!"));
    // Rates that no statement may be built for: none, negative, or with so many digits that
    // 10^(d+1) does not fit the multiplier (it would rewrite every price by a wrong factor).
    Raw().Exec("DROP TRIGGER no_big");
    SqlRecorder sql(articles.get());
    for (const CurrencyExchangeRate& rate :
         {CurrencyExchangeRate(0, 2), CurrencyExchangeRate(-43210, 4),
          CurrencyExchangeRate("1.000000000"), CurrencyExchangeRate(1, 12)}) {
        log->Clear();
        EXPECT_EQ(DB_OPERATION_ERROR, editor.ChangeAllArticlesPrices(rate))
            << rate.ToString().toStdString();
        EXPECT_TRUE(log->Contains(Logger::LOG_ERROR,
                                  "ArticleEditor: the exchange rate must be above 0 "
                                  "with at most 8 decimal places; no price was "
                                  "changed."));
    }
    EXPECT_TRUE(sql.Texts().isEmpty());
    EXPECT_EQ(QStringList({"100", "200"}), column("price"));
}

TEST_F(ArticleEditorTest, ClearingTheCatalogueWaitsForReceiptsStopsAtAFailureAndTellsTheRegister) {
    QList<int> calls;
    G::getSignals->AddCallback(SignalSystem::SIGNAL_ALL_ARTICLES_REMOVED,
                               [&](int v) { calls.append(v); });
    auto seed = [this] {
        AddBarcode(AddArticle(1, "A"), "111", true);
        Raw().Exec(
            "INSERT INTO NotepadHandyListCategory (id, cat_name) VALUES (1, 'Pieczywo');"
            "INSERT INTO NotepadCategoryItem (category_id, plu_no) VALUES (1, 1)");
    };
    const QStringList tables = {"Article", "ArticleBarcode", "NotepadCategoryItem",
                                "NotepadHandyListCategory"};
    auto counts = [&] {
        QList<qint64> list;
        for (const QString& table : tables) {
            list.append(Raw().Count(table));
        }
        return list;
    };
    seed();
    RawSqlite receiptsRaw(ReceiptsPath());
    receiptsRaw.Exec(
        "INSERT INTO ReceiptLineEvent (receipt_no, line_no, article_id, plu_no) "
        "VALUES (1, 1, 1, 1)");
    EXPECT_EQ(1, editor.RemoveAllArticles());
    EXPECT_EQ(QList<qint64>({1, 1, 1, 1}), counts());
    EXPECT_TRUE(calls.isEmpty());
    EXPECT_TRUE(log->IsEmpty());

    receiptsRaw.Exec("DELETE FROM ReceiptLineEvent");
    Raw().FailOn("NotepadCategoryItem", "DELETE");
    EXPECT_EQ(4, editor.RemoveAllArticles());
    EXPECT_EQ(QList<qint64>({0, 0, 1, 1}), counts());
    EXPECT_TRUE(calls.isEmpty());
    EXPECT_TRUE(
        log->Contains(Logger::LOG_ERROR,

                      "ArticleEditor::RemoveAllArticles(): Error while clearing database table."));

    Raw().StopFailing("NotepadCategoryItem", "DELETE");
    Raw().Exec(
        "DELETE FROM NotepadCategoryItem; DELETE FROM "
        "NotepadHandyListCategory");
    seed();
    EXPECT_EQ(0, editor.RemoveAllArticles());
    EXPECT_EQ(QList<qint64>({0, 0, 0, 0}), counts());
    EXPECT_EQ(QList<int>({1}), calls);
    EXPECT_EQ(0, editor.RemoveAllArticles()) << "empty tables clear fine";
    EXPECT_EQ(QList<int>({1, 1}), calls);

    receiptsRaw.Exec("DROP TABLE ReceiptLineEvent");
    log->Clear();
    EXPECT_EQ(4, editor.RemoveAllArticles());
    EXPECT_TRUE(log->Contains(
        Logger::LOG_ERROR,

        "ArticleEditor::RemoveAllArticles(): Error while getting count of receipt lines"));
}
