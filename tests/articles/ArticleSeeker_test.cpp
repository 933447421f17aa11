// Direct lookups of the article seeker on a real article database.

#include <atomic>
#include <thread>
#include <vector>

#include "ArticleSeeker.h"
#include "DatabaseFixture.h"
#include "Logger.h"
#include "SqlRecorder.h"

namespace {

class ArticleSeekerTest : public DatabaseFixture {
protected:
    void SetUp() override {
        DatabaseFixture::SetUp();
        ASSERT_TRUE(seeker.Initialize(articles.get()));
    }

    // An article with every column set to a distinct, non-default value.
    Article fullArticle() {
        Article article;
        article.pluNo = 4321;
        article.name = QStringLiteral("Kiełbasa śląska");
        article.taxRateNo = 2;
        article.deptNo = 17;
        article.quantityPrecision = 3;
        article.unitNo = 2;
        article.saleBlocked = true;
        article.mainBarcode = QStringLiteral("2712345000008");
        article.price = 2599;
        article.isPack = true;
        article.discSurBlock = true;
        article.freePriceAllow = true;
        article.onHandyList = true;
        article.scaleNo = 4;
        article.linkPluNo = 77;
        return article;
    }

    void store(Article& article) {
        Raw().Exec(
            QStringLiteral(
                "INSERT INTO Article (plu_no, art_name, tax_rate_no, dept_no, "
                "quantity_precision, unit_no, sale_bloc, main_barcode, price, is_pack, "
                "disc_sur_block, free_price_allow, on_handy_list, scale_no, link_plu_no) "
                "VALUES (%1, '%2', %3, %4, %5, %6, %7, '%8', %9, %10, %11, %12, %13, %14, %15)")
                .arg(article.pluNo)
                .arg(article.name)
                .arg(article.taxRateNo)
                .arg(article.deptNo)
                .arg(article.quantityPrecision)
                .arg(article.unitNo)
                .arg(article.saleBlocked)
                .arg(article.mainBarcode)
                .arg(article.price)
                .arg(article.isPack)
                .arg(article.discSurBlock)
                .arg(article.freePriceAllow)
                .arg(article.onHandyList)
                .arg(article.scaleNo)
                .arg(article.linkPluNo));
        article.id =
            static_cast<unsigned int>(Raw().Integer(QStringLiteral("SELECT MAX(id) FROM Article")));
    }

    ArticleSeeker seeker;
};

}  // namespace

TEST_F(ArticleSeekerTest, RowRoundTripFillsEveryColumnAndTheUnitName) {
    Article stored = fullArticle();
    store(stored);
    Article byPlu;
    ASSERT_EQ(0, seeker.FindPlu(4321, byPlu, false));
    EXPECT_EQ(stored, byPlu);
    EXPECT_EQ(QStringLiteral("kg"), byPlu.unitName);
    Article byId;
    ASSERT_EQ(0, seeker.FindById(stored.id, byId, true));
    EXPECT_EQ(stored, byId);
    Article byName;
    ASSERT_EQ(0, seeker.FindName(QStringLiteral("KIEŁBASA ŚLĄSKA"), byName));
    EXPECT_EQ(stored, byName);
    EXPECT_EQ(QStringLiteral("kg"), byName.unitName);
}

TEST_F(ArticleSeekerTest, EqualityIgnoresUnitNameAndReservedTexts) {
    Article a = fullArticle();
    Article b = a;
    b.unitName = QStringLiteral("other");
    b.reservedText2 = QStringLiteral("x");
    EXPECT_EQ(a, b);
    b.linkPluNo = 78;
    EXPECT_NE(a, b);
}

TEST_F(ArticleSeekerTest, MissingArticlesLeaveTheRecordUntouched) {
    AddArticle(5, QStringLiteral("Bułka"), QString(), 60, false);
    Article article = fullArticle();
    const Article before = article;
    EXPECT_EQ(3, seeker.FindPlu(6, article, false));
    EXPECT_EQ(3, seeker.FindPlu(5, article, true));  // not on the handy list
    EXPECT_EQ(3, seeker.FindById(999, article, false));
    EXPECT_EQ(3, seeker.FindName(QStringLiteral("Chleb"), article));
    EXPECT_EQ(before, article);
    EXPECT_EQ(before.unitName, article.unitName);
    EXPECT_TRUE(log->IsEmpty());
}

TEST_F(ArticleSeekerTest, UnknownUnitGivesAnEmptyUnitName) {
    AddArticle(8, QStringLiteral("Woda"), QString(), 150, false, 42);
    Article article;
    article.unitName = QStringLiteral("stale");
    ASSERT_EQ(0, seeker.FindPlu(8, article, false));
    EXPECT_EQ(42, article.unitNo);
    EXPECT_TRUE(article.unitName.isEmpty());
    // A unit added later is seen without a restart.
    Raw().Exec(QStringLiteral("INSERT INTO Units VALUES (42, 'zgrz.')"));
    ASSERT_EQ(0, seeker.FindPlu(8, article, false));
    EXPECT_EQ(QStringLiteral("zgrz."), article.unitName);
}

TEST_F(ArticleSeekerTest, BuildArticleSkipsUnknownFieldsAndKeepsMissingOnes) {
    Article article = fullArticle();
    DBRow row(articles->GetTable(QStringLiteral("Article")));
    row.AppendField(QStringLiteral("art_name"), QStringLiteral("Nowa"));
    row.AppendField(QStringLiteral("price"), 1234);
    row.AppendField(QStringLiteral("dept_no"), 300);  // truncated to 8 bits
    row.AppendField(QStringLiteral("not_a_column"), 5);
    seeker.BuildArticleFromDbData(&row, &article);
    EXPECT_EQ(QStringLiteral("Nowa"), article.name);
    EXPECT_EQ(1234, article.price);
    EXPECT_EQ(44, article.deptNo);
    EXPECT_EQ(4321u, article.pluNo);
    EXPECT_EQ(QStringLiteral("kg"), article.unitName);
    seeker.BuildArticleFromDbData(nullptr, &article);  // tolerated
}

TEST_F(ArticleSeekerTest, FindBarcodeCountsTheRowsHoldingIt) {
    AddBarcode(1, QStringLiteral("5900000000001"), true);
    AddBarcode(1, QStringLiteral("5900000000002"), false);
    AddBarcode(2, QStringLiteral("5900000000002"), true);
    EXPECT_EQ(0, seeker.FindBarcode(QStringLiteral("5900000000001")));
    EXPECT_EQ(8, seeker.FindBarcode(QStringLiteral("5900000000002")));
    EXPECT_EQ(3, seeker.FindBarcode(QStringLiteral("5900000000003")));
    EXPECT_TRUE(log->IsEmpty());
}

TEST_F(ArticleSeekerTest, FindNameBuildsTheLikeStatementAsIs) {
    AddArticle(1, QStringLiteral("Ser"));
    AddArticle(2, QStringLiteral("price"));
    SqlRecorder sql(articles.get());
    Article article;
    ASSERT_EQ(0, seeker.FindName(QStringLiteral("se_"), article));
    EXPECT_EQ(QStringLiteral("Ser"), article.name);
    EXPECT_EQ(QStringList({"SELECT * FROM Article WHERE art_name like \"se_\";"}), sql.Texts());
    // A name that reads like a column name matches only that text.
    ASSERT_EQ(0, seeker.FindName(QStringLiteral("price"), article));
    EXPECT_EQ(2u, article.pluNo);
}

TEST_F(ArticleSeekerTest, DatabaseErrorsReturn4WithTheirMessages) {
    AddArticle(1, QStringLiteral("Chleb"));
    Raw().Exec(QStringLiteral("DROP TABLE Article"));
    Raw().Exec(QStringLiteral("DROP TABLE ArticleBarcode"));
    Article article = fullArticle();
    const Article before = article;
    log->Clear();
    EXPECT_EQ(4, seeker.FindPlu(1, article, false));
    EXPECT_TRUE(
        log->Contains(Logger::LOG_ERROR,
                      QStringLiteral("Article Seeker: SQL error when try seek article by plu!")));
    EXPECT_EQ(4, seeker.FindById(1, article, false));
    EXPECT_TRUE(
        log->Contains(Logger::LOG_ERROR,
                      QStringLiteral("Article Seeker: SQL error when try seek article by an ID!")));
    EXPECT_EQ(4, seeker.FindBarcode(QStringLiteral("1")));
    EXPECT_TRUE(log->Contains(
        Logger::LOG_ERROR,
        QStringLiteral("ArticleSeeker::FindBarcode(): SQL error when try to seek a barcode!")));
    EXPECT_EQ(4, seeker.FindName(QStringLiteral("Chleb"), article));
    EXPECT_TRUE(log->Contains(
        Logger::LOG_ERROR,
        QStringLiteral(
            "ArticleSeeker::FindName(): SQL error when try find an article by the name!")));
    EXPECT_EQ(before, article);
}

TEST_F(ArticleSeekerTest, UninitialisedSeekerAnswers6WithoutAQuery) {
    ArticleSeeker fresh;
    SqlRecorder sql(articles.get());
    Article article;
    EXPECT_EQ(6, fresh.FindPlu(1, article, false));
    EXPECT_EQ(6, fresh.FindById(1, article, false));
    EXPECT_EQ(6, fresh.FindBarcode(QStringLiteral("1")));
    EXPECT_EQ(6, fresh.FindName(QStringLiteral("x"), article));
    EXPECT_TRUE(seeker.Uninitialize());
    EXPECT_EQ(6, seeker.FindPlu(1, article, false));
    EXPECT_EQ(6, seeker.FindName(QStringLiteral("x"), article));
    EXPECT_TRUE(sql.Texts().isEmpty());
    EXPECT_TRUE(log->IsEmpty());
}

TEST_F(ArticleSeekerTest, InitializeNamesWhatIsMissing) {
    ArticleSeeker other;
    EXPECT_FALSE(other.Initialize(nullptr));
    EXPECT_TRUE(log->Contains(
        Logger::LOG_ERROR,
        QStringLiteral("ArticleSeeker construction FAILED! Can not open articles DB!")));
    Raw().Exec(QStringLiteral("DROP TABLE ArticleBarcode"));
    EXPECT_FALSE(other.Initialize(articles.get()));
    EXPECT_TRUE(log->Contains(
        Logger::LOG_ERROR,
        QStringLiteral(
            "ArticleSeeker construction FAILED! Can not find article barcode table in DB!")));
    Raw().Exec(QStringLiteral("DROP TABLE Article"));
    EXPECT_FALSE(other.Initialize(articles.get()));
    EXPECT_TRUE(log->Contains(
        Logger::LOG_ERROR,
        QStringLiteral("ArticleSeeker construction FAILED! Can not find article table in DB!")));
    Article article;
    EXPECT_EQ(6, other.FindPlu(1, article, false));
}

TEST_F(ArticleSeekerTest, ConcurrentLookupsAllSucceed) {
    for (unsigned int plu = 1; plu <= 50; ++plu) {
        const qint64 id = AddArticle(plu, QStringLiteral("Artykuł %1").arg(plu),
                                     QStringLiteral("59%1").arg(plu, 11, 10, QLatin1Char('0')));
        AddBarcode(id, QStringLiteral("59%1").arg(plu, 11, 10, QLatin1Char('0')), true);
    }
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 200; ++i) {
                const unsigned int plu = static_cast<unsigned int>((t * 7 + i) % 50 + 1);
                Article article;
                if (seeker.FindPlu(plu, article, false) != 0 || article.pluNo != plu ||
                    article.unitName != QStringLiteral("szt.")) {
                    ++wrong;
                }
                if (seeker.FindBarcode(QStringLiteral("59%1").arg(plu, 11, 10, QLatin1Char('0'))) !=
                    0) {
                    ++wrong;
                }
                Article named;
                if (seeker.FindName(QStringLiteral("Artykuł %1").arg(plu), named) != 0 ||
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
