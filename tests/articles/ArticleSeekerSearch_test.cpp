// Scan lookups and the name searches of the seeker.

#include "ArticleBarcodeManager.h"
#include "ArticleEditor.h"
#include "ArticleSeeker.h"
#include "BarcodePrefixDBManager.h"
#include "DatabaseFixture.h"
#include "Logger.h"
#include "SqlRecorder.h"

namespace {

class ArticleSeekerSearch : public DatabaseFixture {
protected:
    void SetUp() override {
        DatabaseFixture::SetUp();
        Raw().Exec(
            QStringLiteral("INSERT INTO SpecialBarcodePrefixes VALUES "
                           "(1, '27', 1), (2, '29', 1), (6, '23', 0), (7, '24', 0)"));
        ASSERT_TRUE(seeker.Initialize(articles.get()));
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

    static QStringList names(const QVector<Article>& found) {
        QStringList list;
        for (const Article& article : found) {
            list.append(article.name);
        }
        return list;
    }

    ArticleSeeker seeker;
};

}  // namespace

TEST_F(ArticleSeekerSearch, ScannedCodesFindTheirArticle) {
    stock(1, QStringLiteral("Chleb"), QStringLiteral("5901234123457"));
    const qint64 ham = stock(2, QStringLiteral("Szynka"), QStringLiteral("2312345000002"), true);
    AddBarcode(ham, QStringLiteral("4006381333931"), false);
    Article article;
    ASSERT_EQ(0, seeker.FindArticleByBarcode(QStringLiteral("5901234123457"), article, false));
    EXPECT_EQ(1u, article.pluNo);
    EXPECT_EQ(QStringLiteral("szt."), article.unitName);
    ASSERT_EQ(0, seeker.FindArticleByBarcode(QStringLiteral("4006381333931"), article, true));
    EXPECT_EQ(2u, article.pluNo) << "additional barcodes are scanned too";
    // A scale label: 1250 g of item 12345.
    Article weighed;
    ASSERT_EQ(0, seeker.FindArticleByBarcode(QStringLiteral("2312345012500"), weighed, false));
    EXPECT_EQ(2u, weighed.pluNo);
    Article ham2;
    seeker.FindPlu(2, ham2, false);
    EXPECT_EQ(ham2, weighed);
    EXPECT_EQ(ham2.unitName, weighed.unitName);
}

TEST_F(ArticleSeekerSearch, ScanLookupUsesItsStatement) {
    stock(1, QStringLiteral("Chleb"), QStringLiteral("5901234123457"));
    SqlRecorder sql(articles.get());
    Article article;
    seeker.FindArticleByBarcode(QStringLiteral("5901234123457"), article, true);
    EXPECT_EQ(
        QStringList({"SELECT a.id, plu_no, art_name, tax_rate_no, dept_no, quantity_precision, "
                     "unit_no, sale_bloc, main_barcode, price, is_pack, disc_sur_block, "
                     "free_price_allow, on_handy_list, scale_no, link_plu_no             FROM "
                     "Article a, ArticleBarcode b                 WHERE a.id == b.article_id  "
                     "               AND b.barcode = \"5901234123457\" AND a.on_handy_list == 1"}),
        sql.Texts());
}

TEST_F(ArticleSeekerSearch, ScanLookupFailuresLeaveTheArticleAlone) {
    const qint64 a = stock(1, QStringLiteral("Chleb"), QStringLiteral("5901234123457"));
    const qint64 b = AddArticle(2, QStringLiteral("Bułka"));
    AddBarcode(b, QStringLiteral("5901234123457"), false);
    Article article;
    article.name = QStringLiteral("before");
    EXPECT_EQ(8, seeker.FindArticleByBarcode(QStringLiteral("5901234123457"), article, false));
    EXPECT_TRUE(log->Contains(
        Logger::LOG_ERROR,
        QStringLiteral("ArticleSeeker::FindArticleByBarcode() Error: there is "
                       "more than one article in database which has the same barcode.")));
    EXPECT_EQ(3, seeker.FindArticleByBarcode(QStringLiteral("5901234123457"), article, true));
    EXPECT_EQ(3, seeker.FindArticleByBarcode(QStringLiteral("price"), article, false));
    EXPECT_EQ(QStringLiteral("before"), article.name);
    EXPECT_EQ(1, a);
    Raw().Exec(QStringLiteral("DROP TABLE ArticleBarcode"));
    EXPECT_EQ(4, seeker.FindArticleByBarcode(QStringLiteral("5901234123457"), article, false));
    EXPECT_TRUE(log->Contains(
        Logger::LOG_ERROR,
        QStringLiteral(
            "ArticleSeeker::FindArticleByBarcode(): Database execute select query error.")));
    EXPECT_EQ(QStringLiteral("before"), article.name);
}

TEST_F(ArticleSeekerSearch, PastedTextIsOnlyEverAValue) {
    stock(1, QStringLiteral("Chleb"), QStringLiteral("5901234123457"));
    stock(2, QStringLiteral("Szynka"), QStringLiteral("2312345000002"), true);
    ArticleEditor editor;
    ArticleBarcodeManager barcodes;
    BarcodePrefixDBManager prefixes;
    ASSERT_TRUE(editor.Initialize(articles.get(), &seeker));
    ASSERT_TRUE(barcodes.Initialize(articles.get(), &seeker));
    ASSERT_TRUE(prefixes.Initialize(articles.get()));
    auto stored = [this] {
        return Raw().Rows(QStringLiteral("SELECT * FROM Article")) +
               Raw().Rows(QStringLiteral("SELECT * FROM ArticleBarcode")) +
               Raw().Rows(QStringLiteral("SELECT * FROM SpecialBarcodePrefixes"));
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
        Article article;
        article.name = QStringLiteral("untouched");
        EXPECT_EQ(3, seeker.FindArticleByBarcode(text, article, false)) << shown;
        EXPECT_EQ(3, seeker.FindArticleByBarcode(text, article, true)) << shown;
        EXPECT_EQ(3, seeker.FindName(text, article)) << shown;
        EXPECT_EQ(QStringLiteral("untouched"), article.name);
        EXPECT_FALSE(editor.IsRecordExist(text)) << shown;
        auto type = SPECIAL_BARCODE_PRICE;
        EXPECT_TRUE(prefixes.CheckSpecialBarcodeSubjectType(text, type)) << shown;
        EXPECT_EQ(SPECIAL_BARCODE_NONE, type) << shown;
    }
    EXPECT_EQ(before, stored());

    // Real names and codes that hold a double quote are found like any other.
    Article tv;
    tv.pluNo = 3;
    tv.name = QStringLiteral("TV 32\"");
    ASSERT_EQ(DB_OPERATION_SUCCESS, editor.AddRecord(tv));
    Article found;
    ASSERT_EQ(0, seeker.FindName(QStringLiteral("TV 32\""), found));
    EXPECT_EQ(3u, found.pluNo);
    EXPECT_TRUE(editor.IsRecordExist(QStringLiteral("TV 32\"")));
    ASSERT_EQ(DB_OPERATION_SUCCESS, barcodes.AddRecord(found.id, QStringLiteral("AB\"CD"), false));
    Article scanned;
    ASSERT_EQ(0, seeker.FindArticleByBarcode(QStringLiteral("AB\"CD"), scanned, false));
    EXPECT_EQ(3u, scanned.pluNo);
}

TEST_F(ArticleSeekerSearch, NamePrefixIgnoresCaseInEveryLetter) {
    stock(1, QStringLiteral("Żółty ser"), QString());
    stock(2, QStringLiteral("ŻÓŁTE jabłka"), QString(), true);
    stock(3, QStringLiteral("Chleb 100%"), QString());
    stock(4, QStringLiteral("Chleb 1000"), QString());
    QVector<Article> found;
    ASSERT_EQ(0, seeker.FindNamePrefix(QStringLiteral("żół"), found, false));
    EXPECT_EQ(QStringList({"ŻÓŁTE jabłka", "Żółty ser"}), names(found)) << "by name (binary order)";
    QVector<QString> handy;
    ASSERT_EQ(0, seeker.FindNamePrefix(QStringLiteral("ŻÓŁ"), handy, true));
    EXPECT_EQ(QVector<QString>({"ŻÓŁTE jabłka"}), handy);
    found.clear();
    ASSERT_EQ(0, seeker.FindNamePrefix(QStringLiteral("chleb 100%"), found, false));
    EXPECT_EQ(QStringList({"Chleb 100%"}), names(found)) << "% is a character of the prefix";
    EXPECT_EQ(3, seeker.FindNamePrefix(QStringLiteral("Masło"), found, false));
    EXPECT_EQ(3, seeker.FindNamePrefix(QStringLiteral("Chleb"), found, true));
}

TEST_F(ArticleSeekerSearch, InfixListsPrefixMatchesFirstEachArticleOnce) {
    stock(1, QStringLiteral("Twarożek"), QStringLiteral("5900000000011"));
    stock(2, QStringLiteral("Ser żółty"), QStringLiteral("5900000000028"));
    stock(3, QStringLiteral("Mozzarella ser"), QStringLiteral("5900000000035"));
    stock(4, QStringLiteral("ser biały"), QStringLiteral("2900000000000"));
    stock(5, QStringLiteral("Serek wiejski"), QStringLiteral("5900000000042"));
    QVector<Article> found;
    ASSERT_EQ(0, seeker.FindNameInfix(QStringLiteral("SER"), found));
    EXPECT_EQ(QStringList({"ser biały", "Ser żółty", "Serek wiejski", "Mozzarella ser"}),
              names(found));
    ASSERT_EQ(0, seeker.FindNameInfix(QStringLiteral("żółty"), found));
    EXPECT_EQ(QStringList({"Ser żółty"}), names(found));
    ASSERT_EQ(0, seeker.FindByBarcodeInfix(QStringLiteral("000000"), found));
    EXPECT_EQ(
        QStringList({"ser biały", "Twarożek", "Ser żółty", "Mozzarella ser", "Serek wiejski"}),
        names(found));
    found.append(Article());
    ASSERT_EQ(0, seeker.FindNameInfix(QStringLiteral("kiełbasa"), found));
    EXPECT_TRUE(found.isEmpty()) << "nothing found is success with an empty list";
}

TEST_F(ArticleSeekerSearch, InfixListsAtMostAHundredOfEachKind) {
    for (unsigned int i = 0; i < 130; ++i) {
        AddArticle(1000 + i, QStringLiteral("Ser %1").arg(i, 3, 10, QLatin1Char('0')));
        AddArticle(2000 + i, QStringLiteral("Mały ser %1").arg(i, 3, 10, QLatin1Char('0')));
    }
    QVector<Article> found;
    ASSERT_EQ(0, seeker.FindNameInfix(QStringLiteral("ser"), found));
    ASSERT_EQ(200, found.size());
    EXPECT_EQ(QStringLiteral("Ser 000"), found[0].name);
    EXPECT_EQ(QStringLiteral("Ser 099"), found[99].name);
    EXPECT_EQ(QStringLiteral("Mały ser 000"), found[100].name);
    EXPECT_EQ(QStringLiteral("Mały ser 099"), found[199].name);
}

TEST_F(ArticleSeekerSearch, SearchesRefuseOrFailCleanly) {
    ArticleSeeker fresh;
    QVector<Article> found;
    QVector<QString> names;
    Article article;
    EXPECT_EQ(6, fresh.FindNameInfix(QStringLiteral("x"), found));
    EXPECT_EQ(6, fresh.FindByBarcodeInfix(QStringLiteral("x"), found));
    EXPECT_EQ(6, fresh.FindNamePrefix(QStringLiteral("x"), found, false));
    EXPECT_EQ(6, fresh.FindNamePrefix(QStringLiteral("x"), names, false));
    EXPECT_EQ(6, fresh.FindArticleByBarcode(QStringLiteral("x"), article, false));
    stock(1, QStringLiteral("Chleb"), QStringLiteral("111"));
    Raw().Exec(QStringLiteral("DROP TABLE Article"));
    log->Clear();
    EXPECT_EQ(4, seeker.FindNamePrefix(QStringLiteral("Ch"), found, false));
    EXPECT_TRUE(log->Contains(
        Logger::LOG_ERROR,
        QStringLiteral("Article Seeker: SQL error when try seek article by prefix name!")));
}

TEST_F(ArticleSeekerSearch, InfixSearchAnswersSuccessEvenWhenTheDatabaseFails) {
    stock(1, QStringLiteral("Chleb"), QStringLiteral("111"));
    QVector<Article> found(1);
    EXPECT_EQ(0, seeker.FindByGivenInfixAndColumn(QStringLiteral("x"), QStringLiteral("no_column"),
                                                  found));
    EXPECT_TRUE(found.isEmpty());
    Raw().Exec(QStringLiteral("DROP TABLE Article"));
    log->Clear();
    found.resize(1);
    EXPECT_EQ(0, seeker.FindNameInfix(QStringLiteral("Ch"), found));
    EXPECT_TRUE(found.isEmpty());
    EXPECT_FALSE(log->Mentions(QStringLiteral("ArticleSeeker")))
        << "only the database layer reports the failure";
}
