// Lookups, PLU navigation and searches of the article seeker on a real article database.

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

#include "ArticleBarcodeManager.h"
#include "ArticleEditor.h"
#include "ArticleSeeker.h"
#include "BarcodePrefixDBManager.h"
#include "DatabaseFixture.h"
#include "Logger.h"
#include "SqlRecorder.h"

namespace {

class ArticleSeekerTest : public DatabaseFixture {
protected:
    void SetUp() override {
        DatabaseFixture::SetUp();
        AddLabelPrefixes();
        ASSERT_TRUE(seeker.Initialize(articles.get()));
    }

    // Stores an article with every column set to a distinct, non-default value and returns it.
    Article storeFullArticle() {
        Raw().Exec(
            "INSERT INTO Article (plu_no, art_name, tax_rate_no, dept_no, quantity_precision, "
            "unit_no, sale_bloc, main_barcode, price, is_pack, disc_sur_block, free_price_allow, "
            "on_handy_list, scale_no, link_plu_no) VALUES (4321, 'Kiełbasa śląska', 2, 17, 3, 2, "
            "1, '2712345000008', 2599, 1, 1, 1, 1, 4, 77)");
        Article article;
        article.id = static_cast<unsigned int>(Raw().Integer("SELECT MAX(id) FROM Article"));
        article.pluNo = 4321;
        article.name = "Kiełbasa śląska";
        article.taxRateNo = 2;
        article.deptNo = 17;
        article.quantityPrecision = 3;
        article.unitNo = 2;
        article.mainBarcode = "2712345000008";
        article.price = 2599;
        article.saleBlocked = article.isPack = article.discSurBlock = true;
        article.freePriceAllow = article.onHandyList = true;
        article.scaleNo = 4;
        article.linkPluNo = 77;
        return article;
    }

    // An article with its main barcode on file.
    qint64 stock(unsigned int plu, const QString& name, const QString& barcode,
                 bool onHandyList = false) {
        const qint64 id = AddArticle(plu, name, barcode, plu, onHandyList);
        if (!barcode.isEmpty()) {
            AddBarcode(id, barcode, true);
        }
        return id;
    }

    template <typename List>
    static QStringList names(const List& found) {
        QStringList out;
        for (const Article& article : found) {
            out.append(article.name);
        }
        return out;
    }
    static QStringList plus(const QList<Article>& found) {
        QStringList out;
        for (const Article& article : found) {
            out.append(QString::number(article.pluNo));
        }
        return out;
    }
    // "id plu name" of each brief.
    static QStringList describe(const QList<ArticleBrief>& briefs) {
        QStringList out;
        for (const ArticleBrief& brief : briefs) {
            out << QStringLiteral("%1 %2 %3").arg(brief.id).arg(brief.pluNo).arg(brief.name);
        }
        return out;
    }

    // Every lookup of `on`, with the error it logs when the database fails it (none for the
    // infix searches, which then answer 0 with an empty list). They write into the outputs
    // below, which a failed lookup must leave as they are.
    struct Lookup {
        std::function<int()> run;
        const char* error;
    };
    QList<Lookup> everyLookup(ArticleSeeker& on) {
        return {
            {[&] { return on.FindPlu(1, article, false); },
             "Article Seeker: SQL error when try seek article by plu!"},
            {[&] { return on.FindById(1, article, false); },
             "Article Seeker: SQL error when try seek article by an ID!"},
            {[&] { return on.FindBarcode("111"); },
             "ArticleSeeker::FindBarcode(): SQL error when try to seek a barcode!"},
            {[&] { return on.FindName("Chleb", article); },
             "ArticleSeeker::FindName(): SQL error when try find an article by the name!"},
            {[&] { return on.FindArticleByBarcode("111", article, false); },
             "ArticleSeeker::FindArticleByBarcode(): Database execute select query error."},
            {[&] { return on.FindNamePrefix("Ch", found, false); },
             "Article Seeker: SQL error when try seek article by prefix name!"},
            {[&] { return on.FindNamePrefix("Ch", foundNames, false); },
             "Article Seeker: SQL error when try seek article by prefix name!"},
            {[&] { return on.FindFirstArtclePlu(plu, false); },
             "Article Seeker: SQL error when try to load first article plu"},
            {[&] { return on.FindLastArticlePlu(plu, false); },
             "Article Seeker: SQL error when try to load last article Plu"},
            {[&] { return on.FindNextPlu(1, plu, false); },
             "Article Seeker: SQL error when try seek next article plu"},
            {[&] { return on.FindPrevPlu(1, plu, false); },
             "Article Seeker: SQL error when try seek prev article plu"},
            {[&] { return on.FindNextPlu(1, 0, page, false); },
             "Article Seeker: SQL error when try to load article plus"},
            {[&] { return on.CountPluInRange(1, 2, count, false); },
             "Article Seeker: SQL error when try to count articles in plu range."},
            {[&] { return on.FindPluInRange(1, 2, briefs, false); },
             "Article Seeker: SQL error when try to load articles"},
            {[&] { return on.FindFirstUnusedPlu(unused); },
             "Article Seeker: SQL error when try seek article with min unusued plu!"},
            {[&] { return on.FindNameInfix("Ch", found); }, nullptr},
            {[&] { return on.FindByBarcodeInfix("11", found); }, nullptr},
            {[&] { return on.FindByGivenInfixAndColumn("x", "no_column", found); }, nullptr},
        };
    }
    void expectOutputsUntouched() {
        EXPECT_EQ("before", article.name);
        EXPECT_EQ(77u, plu);
        EXPECT_EQ(1, page.size());
        EXPECT_EQ(1, briefs.size());
        EXPECT_EQ(1, foundNames.size());
        EXPECT_TRUE(unused.isNull());
    }

    ArticleSeeker seeker;
    Article article;
    unsigned int plu = 77;
    unsigned int count = 5;
    QList<Article> page{Article()};
    QList<ArticleBrief> briefs{ArticleBrief()};
    QVector<Article> found;
    QVector<QString> foundNames{"before"};
    QVariant unused;
};

}  // namespace

// Every column and the unit name on a hit; the record as it was on a miss; a row built from
// only some fields keeps the rest.
TEST_F(ArticleSeekerTest, SingleLookupsFillEveryColumnOrLeaveTheRecord) {
    const Article stored = storeFullArticle();
    Article byPlu, byId, byName;
    ASSERT_EQ(0, seeker.FindPlu(4321, byPlu, false));
    ASSERT_EQ(0, seeker.FindById(stored.id, byId, true));
    ASSERT_EQ(0, seeker.FindName("KIEŁBASA ŚLĄSKA", byName));
    for (const Article* read : {&byPlu, &byId, &byName}) {
        EXPECT_EQ(stored, *read);
        EXPECT_EQ("kg", read->unitName);
    }

    AddArticle(5, "Bułka", QString(), 60, false);
    Article article = stored;
    article.unitName = "kept";
    EXPECT_EQ(3, seeker.FindPlu(6, article, false));
    EXPECT_EQ(3, seeker.FindPlu(5, article, true));  // not on the handy list
    EXPECT_EQ(3, seeker.FindById(999, article, false));
    EXPECT_EQ(3, seeker.FindName("Chleb", article));
    EXPECT_EQ(stored, article);
    EXPECT_EQ("kept", article.unitName);
    EXPECT_TRUE(log->IsEmpty());

    DBRow row(articles->GetTable("Article"));
    row.AppendField("art_name", "Nowa");
    row.AppendField("price", 1234);
    row.AppendField("dept_no", 300);  // truncated to 8 bits
    row.AppendField("not_a_column", 5);
    seeker.BuildArticleFromDbData(&row, &byPlu);
    EXPECT_EQ("Nowa", byPlu.name);
    EXPECT_EQ(1234, byPlu.price);
    EXPECT_EQ(44, byPlu.deptNo);
    EXPECT_EQ(4321u, byPlu.pluNo);
    EXPECT_EQ("kg", byPlu.unitName);
    seeker.BuildArticleFromDbData(nullptr, &byPlu);  // tolerated

    // A unit not on file gives an empty name until it is added.
    AddArticle(8, "Woda", QString(), 150, false, 42);
    ASSERT_EQ(0, seeker.FindPlu(8, article, false));
    EXPECT_EQ(42, article.unitNo);
    EXPECT_TRUE(article.unitName.isEmpty());
    Raw().Exec("INSERT INTO Units VALUES (42, 'zgrz.')");
    ASSERT_EQ(0, seeker.FindPlu(8, article, false));
    EXPECT_EQ("zgrz.", article.unitName);
}

// The lookups read their row in place; what another program may have stored (text in a number
// column, reals, values past 32 bits, blobs) must come out as the row mapping makes it of
// Load's rows.
TEST_F(ArticleSeekerTest, LookupsReadOddlyTypedRowsAsTheRowMappingDoes) {
    const char* const rows[] = {
        "(1, 101, 'Zwykły', 2, 3, 1, 2, 0, '5901234123457', 250, 0, 1, 0, 1, 2, 7)",
        "(2, '12abc', 'x', 'abc', -1, 2.5, 300, 'false', 42, 25.99, 'x', '0', 1e20, -7, 256, "
        "5000000000)",
        "(3, 103, X'C582C3B3', 4294967297, '7', ' 8 ', 65535, 2, X'31', -1, 2, 0.0, '', 'true', "
        "-300, -1)",
        "(4, 104, 123, '', 1.9e3, x'00', 1, -0.5, 9.75, '2599', 'no', 'off', 'yes', ' ', 'ab', "
        "'3 ')",
    };
    for (const char* row : rows) {
        Raw().Exec(QStringLiteral("INSERT INTO Article (id, plu_no, art_name, tax_rate_no, "
                                  "dept_no, quantity_precision, unit_no, sale_bloc, main_barcode, "
                                  "price, is_pack, disc_sur_block, free_price_allow, "
                                  "on_handy_list, scale_no, link_plu_no) VALUES ") +
                   QLatin1String(row));
    }
    QStringList expectedBriefs;
    for (unsigned int id = 1; id <= 4; ++id) {
        const QString code = QStringLiteral("590000000%1").arg(id);
        AddBarcode(id, code, false);
        QSharedPointer<DBData> loaded;
        ASSERT_EQ(0, articles->Load(Rows(articles->GetTable("Article"), {{{"id", id}}}),
                                    DBManager::LOAD_MODE_BY_KEY, loaded));
        ASSERT_EQ(1, loaded->RowCount());
        Article expected;
        seeker.BuildArticleFromDbData(loaded->GetRow(0), &expected);

        Article byId, byCode, byPlu;
        ASSERT_EQ(0, seeker.FindById(id, byId, false));
        ASSERT_EQ(0, seeker.FindArticleByBarcode(code, byCode, false));
        for (const Article* read : {&byId, &byCode}) {
            EXPECT_EQ(expected, *read) << "row " << id;
            EXPECT_EQ(expected.unitName, read->unitName) << "row " << id;
        }
        if (expected.pluNo == 100 + id) {
            ASSERT_EQ(0, seeker.FindPlu(expected.pluNo, byPlu, false));
            EXPECT_EQ(expected, byPlu) << "row " << id;
            expectedBriefs
                << QStringLiteral("%1 %2 %3").arg(id).arg(expected.pluNo).arg(expected.name);
        }
    }
    // The briefs of a range read the same values (a text PLU is above every number).
    ASSERT_EQ(0, seeker.FindPluInRange(0, 0xFFFFFFFFu, briefs, false));
    EXPECT_EQ(expectedBriefs, describe(briefs));
}

TEST_F(ArticleSeekerTest, FindBarcodeCountsTheRowsAndFindNameMatchesLikeAsIs) {
    AddBarcode(1, "5900000000001", true);
    AddBarcode(1, "5900000000002", false);
    AddBarcode(2, "5900000000002", true);
    EXPECT_EQ(0, seeker.FindBarcode("5900000000001"));
    EXPECT_EQ(8, seeker.FindBarcode("5900000000002"));
    EXPECT_EQ(3, seeker.FindBarcode("5900000000003"));
    EXPECT_TRUE(log->IsEmpty());

    AddArticle(1, "Ser");
    AddArticle(2, "price");
    ASSERT_EQ(0, seeker.FindName("se_", article));
    EXPECT_EQ("Ser", article.name);
    // A name that reads like a column name matches only that text.
    ASSERT_EQ(0, seeker.FindName("price", article));
    EXPECT_EQ(2u, article.pluNo);
}

TEST_F(ArticleSeekerTest, DatabaseErrorsReturn4WithTheirMessagesAndLeaveTheOutputs) {
    stock(1, "Chleb", "111");
    Raw().Exec("DROP TABLE Article; DROP TABLE ArticleBarcode");
    article.name = "before";
    for (const Lookup& lookup : everyLookup(seeker)) {
        log->Clear();
        found.resize(1);
        if (lookup.error) {
            EXPECT_EQ(4, lookup.run()) << lookup.error;
            EXPECT_TRUE(log->Contains(Logger::LOG_ERROR, lookup.error)) << lookup.error;
            continue;
        }
        // The infix searches answer success with an empty list; only the database layer reports.
        EXPECT_EQ(0, lookup.run());
        EXPECT_TRUE(found.isEmpty());
        EXPECT_FALSE(log->Mentions("ArticleSeeker"));
        EXPECT_FALSE(log->Mentions("Article Seeker"));
    }
    expectOutputsUntouched();
}

TEST_F(ArticleSeekerTest, UninitialisedSeekerAnswers6WithoutAQueryAndInitializeNamesWhatIsMissing) {
    ArticleSeeker fresh;
    SqlRecorder sql(articles.get());
    article.name = "before";
    EXPECT_TRUE(seeker.Uninitialize());
    for (ArticleSeeker* unready : {&fresh, &seeker}) {
        const QList<Lookup> lookups = everyLookup(*unready);
        for (int i = 0; i < lookups.size(); ++i) {
            EXPECT_EQ(6, lookups[i].run()) << "lookup " << i << " refused rather than run";
        }
    }
    expectOutputsUntouched();
    EXPECT_EQ(5u, count);
    EXPECT_TRUE(sql.Texts().isEmpty());
    EXPECT_TRUE(log->IsEmpty());

    EXPECT_FALSE(fresh.Initialize(nullptr));
    Raw().Exec("DROP TABLE ArticleBarcode");
    EXPECT_FALSE(fresh.Initialize(articles.get()));
    Raw().Exec("DROP TABLE Article");
    EXPECT_FALSE(fresh.Initialize(articles.get()));
    for (const char* message :
         {"ArticleSeeker construction FAILED! Can not open articles DB!",
          "ArticleSeeker construction FAILED! Can not find article barcode table in DB!",
          "ArticleSeeker construction FAILED! Can not find article table in DB!"}) {
        EXPECT_TRUE(log->Contains(Logger::LOG_ERROR, message)) << message;
    }
    EXPECT_EQ(6, fresh.FindPlu(1, article, false));
}

TEST_F(ArticleSeekerTest, ConcurrentLookupsAllSucceed) {
    auto barcode = [](unsigned int plu) {
        return QStringLiteral("59%1").arg(plu, 11, 10, QLatin1Char('0'));
    };
    for (unsigned int plu = 1; plu <= 50; ++plu) {
        stock(plu, QStringLiteral("Artykuł %1").arg(plu), barcode(plu));
    }
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 200; ++i) {
                const unsigned int plu = static_cast<unsigned int>((t * 7 + i) % 50 + 1);
                Article article;
                Article named;
                if (seeker.FindPlu(plu, article, false) != 0 || article.pluNo != plu ||
                    article.unitName != "szt." || seeker.FindBarcode(barcode(plu)) != 0 ||
                    seeker.FindName(QStringLiteral("Artykuł %1").arg(plu), named) != 0 ||
                    named.pluNo != plu) {
                    ++wrong;
                }
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(0, wrong.load());
}

TEST_F(ArticleSeekerTest, NavigatesACatalogueWithGapsInItsPlus) {
    plu = 99;
    EXPECT_EQ(0, seeker.FindFirstArtclePlu(plu, false));
    EXPECT_EQ(0u, plu) << "an empty table gives PLU 0";
    EXPECT_EQ(0, seeker.FindLastArticlePlu(plu, true));
    EXPECT_EQ(0u, plu);
    ASSERT_EQ(0, seeker.FindFirstUnusedPlu(unused));
    EXPECT_EQ(1, unused.toInt());

    // PLUs 30, 10, 20, 50, 40 stored in that order; 20 and 40 on the handy list.
    for (unsigned int stored : {30u, 10u, 20u, 50u, 40u}) {
        AddArticle(stored, QStringLiteral("Artykuł %1").arg(stored), QString(), stored * 10,
                   stored == 20 || stored == 40);
    }
    EXPECT_EQ(0, seeker.FindFirstArtclePlu(plu, true));
    EXPECT_EQ(10u, plu) << "the handy-list flag is not used";
    EXPECT_EQ(0, seeker.FindLastArticlePlu(plu, false));
    EXPECT_EQ(50u, plu);
    EXPECT_EQ(0, seeker.FindNextPlu(10, plu, false));
    EXPECT_EQ(20u, plu);
    EXPECT_EQ(0, seeker.FindNextPlu(21, plu, true));
    EXPECT_EQ(30u, plu);
    EXPECT_EQ(0, seeker.FindPrevPlu(40, plu, false));
    EXPECT_EQ(30u, plu);
    plu = 77;
    EXPECT_EQ(3, seeker.FindNextPlu(50, plu, false));
    EXPECT_EQ(3, seeker.FindPrevPlu(10, plu, false));
    EXPECT_EQ(77u, plu);

    ASSERT_EQ(0, seeker.FindNextPlu(20, 2, page, false));
    EXPECT_EQ(QStringList({"20", "30"}), plus(page));
    EXPECT_EQ(200, page.first().price);
    EXPECT_EQ("szt.", page.first().unitName);
    ASSERT_EQ(0, seeker.FindNextPlu(11, 0, page, false));
    EXPECT_EQ(QStringList({"20", "30", "40", "50"}), plus(page)) << "count 0 means no limit";
    ASSERT_EQ(0, seeker.FindNextPlu(0, 0, page, true));
    EXPECT_EQ(QStringList({"20", "40"}), plus(page));
    EXPECT_EQ(3, seeker.FindNextPlu(51, 10, page, false));
    EXPECT_TRUE(page.isEmpty());

    count = 99;
    EXPECT_EQ(0, seeker.CountPluInRange(10, 30, count, false));
    EXPECT_EQ(3u, count);
    EXPECT_EQ(0, seeker.CountPluInRange(10, 50, count, true));
    EXPECT_EQ(2u, count);
    EXPECT_EQ(7, seeker.CountPluInRange(10, 5, count, false));
    EXPECT_EQ(0u, count);
    // Briefs come by PLU whatever order the rows are stored in.
    ASSERT_EQ(0, seeker.FindPluInRange(0, 100, briefs, false));
    EXPECT_EQ(QStringList({"2 10 Artykuł 10", "3 20 Artykuł 20", "1 30 Artykuł 30",
                           "5 40 Artykuł 40", "4 50 Artykuł 50"}),
              describe(briefs));
    ASSERT_EQ(0, seeker.FindPluInRange(15, 45, briefs, false));
    EXPECT_EQ(QStringList({"3 20 Artykuł 20", "1 30 Artykuł 30", "5 40 Artykuł 40"}),
              describe(briefs));
    ASSERT_EQ(0, seeker.FindPluInRange(0, 100, briefs, true));
    EXPECT_EQ(2, briefs.size());
    EXPECT_EQ(3, seeker.FindPluInRange(10, 5, briefs, false));
    EXPECT_TRUE(briefs.isEmpty());

    ASSERT_EQ(0, seeker.FindFirstUnusedPlu(unused));
    EXPECT_EQ(1, unused.toInt());
    for (unsigned int filler = 1; filler <= 9; ++filler) {
        AddArticle(filler, QStringLiteral("F%1").arg(filler));
    }
    ASSERT_EQ(0, seeker.FindFirstUnusedPlu(unused));
    EXPECT_EQ(11, unused.toInt());
    EXPECT_TRUE(log->IsEmpty());
}

TEST_F(ArticleSeekerTest, ScannedCodesFindTheirArticleOrSayWhyNot) {
    stock(1, "Chleb", "5901234123457");
    const qint64 ham = stock(2, "Szynka", "2312345000002", true);
    AddBarcode(ham, "4006381333931", false);
    article.reservedText2 = "the application's";
    ASSERT_EQ(0, seeker.FindArticleByBarcode("5901234123457", article, false));
    EXPECT_EQ(1u, article.pluNo);
    EXPECT_EQ("szt.", article.unitName);
    EXPECT_EQ("the application's", article.reservedText2) << "never filled";
    ASSERT_EQ(0, seeker.FindArticleByBarcode("4006381333931", article, true));
    EXPECT_EQ(2u, article.pluNo) << "additional barcodes are scanned too";
    // A scale label: 1250 g of item 12345.
    Article weighed;
    ASSERT_EQ(0, seeker.FindArticleByBarcode("2312345012500", weighed, false));
    EXPECT_EQ(article, weighed);
    EXPECT_EQ(article.unitName, weighed.unitName);

    AddBarcode(AddArticle(3, "Bułka"), "5901234123457", false);
    article.name = "before";
    EXPECT_EQ(8, seeker.FindArticleByBarcode("5901234123457", article, false));
    EXPECT_TRUE(log->Contains(Logger::LOG_ERROR,
                              "ArticleSeeker::FindArticleByBarcode() Error: there is more than "
                              "one article in database which has the same barcode."));
    EXPECT_EQ(3, seeker.FindArticleByBarcode("5901234123457", article, true));
    EXPECT_EQ(3, seeker.FindArticleByBarcode("price", article, false));
    EXPECT_EQ("before", article.name);
}

TEST_F(ArticleSeekerTest, PastedTextIsOnlyEverAValue) {
    stock(1, "Chleb", "5901234123457");
    stock(2, "Szynka", "2312345000002", true);
    ArticleEditor editor;
    ArticleBarcodeManager barcodes;
    BarcodePrefixDBManager prefixes;
    ASSERT_TRUE(editor.Initialize(articles.get(), &seeker));
    ASSERT_TRUE(barcodes.Initialize(articles.get(), &seeker));
    ASSERT_TRUE(prefixes.Initialize(articles.get()));
    auto stored = [this] {
        return Raw().Rows("SELECT * FROM Article") + Raw().Rows("SELECT * FROM ArticleBarcode") +
               Raw().Rows("SELECT * FROM SpecialBarcodePrefixes");
    };
    const QStringList before = stored();
    // What a tampered scale label, a scanner or a keyboard can send: each is compared whole,
    // so none finds an article, a name or a prefix, and none changes a row.
    const QStringList hostile = {
        QStringLiteral("x\" OR \"1\"=\"1"),
        QStringLiteral("\" OR 1=1 LIMIT 1 --"),
        QStringLiteral("x\" UNION SELECT 1,2,\"Foo\",1,1,0,1,0,\"\",1,0,0,0,0,0,0 --"),
        QStringLiteral("x\" UNION SELECT 1 --"),
        QStringLiteral("5901234123457\" --"),
        QStringLiteral("5901234123457\"; DELETE FROM Article; --"),
        QStringLiteral("CHLEB\" COLLATE NOCASE --"),
        QStringLiteral("barcode"),
        QStringLiteral("prefix"),
        QStringLiteral("5901234123457") + QChar(0) + QStringLiteral("x"),
        QString(QChar(0xD800)) + QStringLiteral("27"),
        QStringLiteral("x\" AND like(printf('%.*c', 100000000, 'a'), 'b') --"),
        QStringLiteral("x\" OR (WITH RECURSIVE c(n) AS (SELECT 1 UNION ALL SELECT n + 1 FROM c) "
                       "SELECT max(n) FROM c) --"),
        QString(1 << 20, QLatin1Char('7')),
    };
    for (const QString& text : hostile) {
        const std::string shown = text.left(60).toStdString();
        article.name = "untouched";
        EXPECT_EQ(3, seeker.FindArticleByBarcode(text, article, false)) << shown;
        EXPECT_EQ(3, seeker.FindArticleByBarcode(text, article, true)) << shown;
        EXPECT_EQ(3, seeker.FindName(text, article)) << shown;
        EXPECT_EQ("untouched", article.name);
        EXPECT_FALSE(editor.IsRecordExist(text)) << shown;
        auto type = SPECIAL_BARCODE_PRICE;
        EXPECT_TRUE(prefixes.CheckSpecialBarcodeSubjectType(text, type)) << shown;
        EXPECT_EQ(SPECIAL_BARCODE_NONE, type) << shown;
    }
    EXPECT_EQ(before, stored());

    // Real names and codes that hold a double quote are found like any other.
    Article tv;
    tv.pluNo = 3;
    tv.name = "TV 32\"";
    ASSERT_EQ(DB_OPERATION_SUCCESS, editor.AddRecord(tv));
    ASSERT_EQ(0, seeker.FindName("TV 32\"", article));
    EXPECT_EQ(3u, article.pluNo);
    EXPECT_TRUE(editor.IsRecordExist("TV 32\""));
    ASSERT_EQ(DB_OPERATION_SUCCESS, barcodes.AddRecord(article.id, "AB\"CD", false));
    Article scanned;
    ASSERT_EQ(0, seeker.FindArticleByBarcode("AB\"CD", scanned, false));
    EXPECT_EQ(3u, scanned.pluNo);
}

TEST_F(ArticleSeekerTest, NamePrefixIgnoresCaseInEveryLetter) {
    stock(1, "Żółty ser", QString());
    stock(2, "ŻÓŁTE jabłka", QString(), true);
    stock(3, "Chleb 100%", QString());
    stock(4, "Chleb 1000", QString());
    ASSERT_EQ(0, seeker.FindNamePrefix("żół", found, false));
    EXPECT_EQ(QStringList({"ŻÓŁTE jabłka", "Żółty ser"}), names(found)) << "by name (binary order)";
    ASSERT_EQ(0, seeker.FindNamePrefix("ŻÓŁ", foundNames, true));
    EXPECT_EQ(QVector<QString>({"before", "ŻÓŁTE jabłka"}), foundNames) << "appended";
    found.clear();
    ASSERT_EQ(0, seeker.FindNamePrefix("chleb 100%", found, false));
    EXPECT_EQ(QStringList({"Chleb 100%"}), names(found)) << "% is a character of the prefix";
    EXPECT_EQ(3, seeker.FindNamePrefix("Masło", found, false));
    EXPECT_EQ(3, seeker.FindNamePrefix("Chleb", found, true));
}

TEST_F(ArticleSeekerTest, InfixListsPrefixMatchesFirstEachArticleOnce) {
    stock(1, "Twarożek", "5900000000011");
    stock(2, "Ser żółty", "5900000000028");
    stock(3, "Mozzarella ser", "5900000000035");
    stock(4, "ser biały", "2900000000000");
    stock(5, "Serek wiejski", "5900000000042");
    ASSERT_EQ(0, seeker.FindNameInfix("SER", found));
    EXPECT_EQ(QStringList({"ser biały", "Ser żółty", "Serek wiejski", "Mozzarella ser"}),
              names(found));
    ASSERT_EQ(0, seeker.FindNameInfix("żółty", found));
    EXPECT_EQ(QStringList({"Ser żółty"}), names(found));
    ASSERT_EQ(0, seeker.FindByBarcodeInfix("000000", found));
    EXPECT_EQ(
        QStringList({"ser biały", "Twarożek", "Ser żółty", "Mozzarella ser", "Serek wiejski"}),
        names(found));
    found.append(Article());
    ASSERT_EQ(0, seeker.FindNameInfix("kiełbasa", found));
    EXPECT_TRUE(found.isEmpty()) << "nothing found is success with an empty list";
}

TEST_F(ArticleSeekerTest, InfixListsAtMostAHundredOfEachKind) {
    for (unsigned int i = 0; i < 130; ++i) {
        AddArticle(1000 + i, QStringLiteral("Ser %1").arg(i, 3, 10, QLatin1Char('0')));
        AddArticle(2000 + i, QStringLiteral("Mały ser %1").arg(i, 3, 10, QLatin1Char('0')));
    }
    ASSERT_EQ(0, seeker.FindNameInfix("ser", found));
    ASSERT_EQ(200, found.size());
    EXPECT_EQ("Ser 000", found[0].name);
    EXPECT_EQ("Ser 099", found[99].name);
    EXPECT_EQ("Mały ser 000", found[100].name);
    EXPECT_EQ("Mały ser 099", found[199].name);
}
