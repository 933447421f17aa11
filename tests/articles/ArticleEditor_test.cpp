// Article record writes on a real article database.

#include "ArticleEditor.h"
#include "DatabaseFixture.h"
#include "Logger.h"
#include "SqlRecorder.h"

namespace {

class ArticleEditorTest : public DatabaseFixture {
protected:
    void SetUp() override {
        DatabaseFixture::SetUp();
        Raw().Exec(
            QStringLiteral("INSERT INTO SpecialBarcodePrefixes VALUES "
                           "(1, '27', 1), (2, '29', 1), (6, '23', 0), (7, '24', 0)"));
        ASSERT_TRUE(seeker.Initialize(articles.get()));
        ASSERT_TRUE(editor.Initialize(articles.get(), &seeker));
    }

    static Article sample(unsigned int plu, const QString& name) {
        Article article;
        article.pluNo = plu;
        article.name = name;
        article.taxRateNo = 1;
        article.deptNo = 3;
        article.quantityPrecision = 2;
        article.unitNo = 1;
        article.mainBarcode = QStringLiteral("5901234123457");
        article.price = 1299;
        article.freePriceAllow = true;
        article.scaleNo = 2;
        article.linkPluNo = 5;
        return article;
    }

    QStringList stored() { return Raw().Rows(QStringLiteral("SELECT * FROM Article ORDER BY id")); }

    ArticleSeeker seeker;
    ArticleEditor editor;
};

}  // namespace

TEST_F(ArticleEditorTest, AddedArticleReadsBackFieldForField) {
    Article article = sample(100, QStringLiteral("Mleko 2% 1l"));
    const Article given = article;
    ASSERT_EQ(DB_OPERATION_SUCCESS, editor.AddRecord(article));
    EXPECT_EQ(given, article) << "the record passed in must not change";
    EXPECT_EQ(0u, article.id);
    Article found;
    ASSERT_EQ(0, seeker.FindPlu(100, found, false));
    article.id = found.id;
    EXPECT_NE(0u, found.id);
    EXPECT_EQ(article, found);
    EXPECT_TRUE(log->IsEmpty());
}

TEST_F(ArticleEditorTest, MainBarcodeIsStoredNormalised) {
    Article weighed = sample(1, QStringLiteral("Schab"));
    weighed.mainBarcode = QStringLiteral("2312345012500");  // 1250 g of item 12345
    ASSERT_EQ(DB_OPERATION_SUCCESS, editor.AddRecord(weighed));
    EXPECT_EQ(QStringLiteral("2312345012500"), weighed.mainBarcode);
    Article noBarcode = sample(2, QStringLiteral("Bułka"));
    noBarcode.mainBarcode.clear();
    ASSERT_EQ(DB_OPERATION_SUCCESS, editor.AddRecord(noBarcode));
    EXPECT_EQ(QStringList({"2312345000002", ""}),
              Raw().Rows(QStringLiteral("SELECT main_barcode FROM Article ORDER BY plu_no")));
    // Editing normalises the same way.
    Article found;
    ASSERT_EQ(0, seeker.FindPlu(2, found, false));
    found.mainBarcode = QStringLiteral("2912345001001");
    ASSERT_EQ(DB_OPERATION_SUCCESS, editor.EditRecord(found));
    EXPECT_EQ(QStringLiteral("2912345000004"),
              Raw().Text(QStringLiteral("SELECT main_barcode FROM Article WHERE plu_no = 2")));
}

TEST_F(ArticleEditorTest, DuplicatesAreRefusedByTheDatabaseWithTheStoredRowIntact) {
    Article first = sample(7, QStringLiteral("Chleb"));
    ASSERT_EQ(DB_OPERATION_SUCCESS, editor.AddRecord(first));
    const QStringList before = stored();
    Article samePlu = sample(7, QStringLiteral("Inny"));
    EXPECT_EQ(DB_OPERATION_CONSTRAINT, editor.AddRecord(samePlu));
    Article sameName = sample(8, QStringLiteral("Chleb"));
    EXPECT_EQ(DB_OPERATION_CONSTRAINT, editor.AddRecord(sameName));
    EXPECT_EQ(before, stored());
    EXPECT_TRUE(log->Contains(Logger::LOG_ERROR,
                              QStringLiteral("ArticleEditor: SQL error when try to insert article "
                                             "to the database!")));
    EXPECT_TRUE(editor.IsRecordExist(QStringLiteral("chleb")));
    EXPECT_FALSE(editor.IsRecordExist(QStringLiteral("Chleby")));
}

TEST_F(ArticleEditorTest, EditRewritesTheRowOfItsIdOnly) {
    Article a = sample(1, QStringLiteral("A"));
    Article b = sample(2, QStringLiteral("B"));
    editor.AddRecord(a);
    editor.AddRecord(b);
    Article found;
    ASSERT_EQ(0, seeker.FindPlu(1, found, false));
    found.name = QStringLiteral("A nowe");
    found.price = 1;
    found.saleBlocked = true;
    ASSERT_EQ(DB_OPERATION_SUCCESS, editor.EditRecord(found));
    Article again;
    ASSERT_EQ(0, seeker.FindPlu(1, again, false));
    EXPECT_EQ(found, again);
    ASSERT_EQ(0, seeker.FindPlu(2, again, false));
    EXPECT_EQ(QStringLiteral("B"), again.name);

    // An id no row has: the database's answer, nothing inserted.
    Article ghost = sample(3, QStringLiteral("Duch"));
    ghost.id = 999;
    const QStringList before = stored();
    EXPECT_EQ(DB_OPERATION_NOT_FOUND, editor.EditRecord(ghost));
    EXPECT_EQ(before, stored());
    EXPECT_TRUE(log->Contains(Logger::LOG_ERROR,
                              QStringLiteral("ArticleEditor: SQL error when try to update article "
                                             "to the database!")));
}

TEST_F(ArticleEditorTest, DeleteRemovesOnlyTheArticleRow) {
    Article a = sample(1, QStringLiteral("A"));
    Article b = sample(2, QStringLiteral("B"));
    b.linkPluNo = 1;
    editor.AddRecord(a);
    editor.AddRecord(b);
    Article found;
    ASSERT_EQ(0, seeker.FindPlu(1, found, false));
    AddBarcode(found.id, QStringLiteral("5901234123457"), true);
    ASSERT_EQ(DB_OPERATION_SUCCESS, editor.DeleteRecord(found));
    EXPECT_EQ(3, seeker.FindPlu(1, found, false));
    EXPECT_EQ(1, Raw().Count(QStringLiteral("ArticleBarcode")));
    EXPECT_EQ(QStringLiteral("1"), Raw().Text(QStringLiteral("SELECT link_plu_no FROM Article")));
}

TEST_F(ArticleEditorTest, RemovingLinksRunsItsStatementAndAnswersInverted) {
    Article a = sample(25, QStringLiteral("A"));
    Article b = sample(2, QStringLiteral("B"));
    Article c = sample(3, QStringLiteral("C"));
    a.linkPluNo = 0;
    b.linkPluNo = 25;
    c.linkPluNo = 2;
    editor.AddRecord(a);
    editor.AddRecord(b);
    editor.AddRecord(c);
    SqlRecorder sql(articles.get());
    EXPECT_FALSE(editor.RemoveAllLinksToGivenArticle(25));
    EXPECT_EQ(QStringList({"UPDATE Article             SET link_plu_no = 0                 WHERE "
                           "link_plu_no == 25"}),
              sql.Texts());
    EXPECT_EQ(QStringList({"0", "0", "2"}),
              Raw().Rows(QStringLiteral("SELECT link_plu_no FROM Article ORDER BY id")));
    EXPECT_FALSE(editor.RemoveAllLinksToGivenArticle(0));
    Raw().FailOn(QStringLiteral("Article"), QStringLiteral("UPDATE"));
    EXPECT_TRUE(editor.RemoveAllLinksToGivenArticle(2));
    EXPECT_EQ(QStringLiteral("2"),
              Raw().Text(QStringLiteral("SELECT link_plu_no FROM Article WHERE plu_no = 3")));
}

TEST_F(ArticleEditorTest, WriteFailuresReturnTheDatabaseResultAndTheirMessages) {
    Article a = sample(1, QStringLiteral("A"));
    editor.AddRecord(a);
    Article found;
    seeker.FindPlu(1, found, false);
    Raw().FailOn(QStringLiteral("Article"), QStringLiteral("INSERT"));
    Raw().FailOn(QStringLiteral("Article"), QStringLiteral("UPDATE"));
    Raw().FailOn(QStringLiteral("Article"), QStringLiteral("DELETE"));
    log->Clear();
    Article b = sample(2, QStringLiteral("B"));
    EXPECT_NE(DB_OPERATION_SUCCESS, editor.AddRecord(b));
    EXPECT_NE(DB_OPERATION_SUCCESS, editor.EditRecord(found));
    EXPECT_NE(DB_OPERATION_SUCCESS, editor.DeleteRecord(found));
    for (const char* message :
         {"ArticleEditor: SQL error when try to insert article to the database!",
          "ArticleEditor: SQL error when try to update article to the database!",
          "ArticleEditor: SQL error when try to delete article from the database!"}) {
        EXPECT_TRUE(log->Contains(Logger::LOG_ERROR, QString::fromUtf8(message))) << message;
    }
    EXPECT_EQ(1, Raw().Count(QStringLiteral("Article")));
}

TEST_F(ArticleEditorTest, UninitialisedEditorRefusesWithoutTouchingTheDatabase) {
    ArticleEditor fresh;
    Article a = sample(1, QStringLiteral("A"));
    EXPECT_EQ(DB_OPERATION_NOT_INITIALIZED, fresh.AddRecord(a));
    EXPECT_EQ(DB_OPERATION_NOT_INITIALIZED, fresh.EditRecord(a));
    EXPECT_EQ(DB_OPERATION_NOT_INITIALIZED, fresh.DeleteRecord(a));
    EXPECT_FALSE(fresh.IsRecordExist(QStringLiteral("A")));
    EXPECT_TRUE(editor.Uninitialize());
    EXPECT_EQ(DB_OPERATION_NOT_INITIALIZED, editor.AddRecord(a));
    EXPECT_EQ(0, Raw().Count(QStringLiteral("Article")));
    EXPECT_TRUE(log->IsEmpty());
}

TEST_F(ArticleEditorTest, InitializeNamesWhatIsMissing) {
    ArticleEditor other;
    EXPECT_FALSE(other.Initialize(nullptr, &seeker));
    EXPECT_FALSE(other.Initialize(articles.get(), nullptr));
    Article a = sample(1, QStringLiteral("A"));
    EXPECT_EQ(DB_OPERATION_NOT_INITIALIZED, other.AddRecord(a));
    Raw().Exec(QStringLiteral("DROP TABLE Article"));
    EXPECT_FALSE(other.Initialize(articles.get(), &seeker));
    EXPECT_EQ(
        QStringList({"ArticleEditor construction FAILED! Can not open articles DB!",
                     "ArticleEditor construction FAILED! Article Seeker is not initialized yet!",
                     "ArticleEditor construction FAILED! Can not find article table in DB!"}),
        log->Texts());
}

TEST_F(ArticleEditorTest, HostileNamesAreStoredAsTextAndChangeNothingElse) {
    Article keep = sample(1, QStringLiteral("Chleb"));
    editor.AddRecord(keep);
    unsigned int plu = 10;
    for (const QString& name :
         {QStringLiteral("\"; DROP TABLE Article; --"), QStringLiteral("O'Brien \"Best\" 100%"),
          QStringLiteral("art_name"), QStringLiteral("_%_"), QString(10000, QLatin1Char('x')),
          QStringLiteral("Żółć ęą \xF0\x9F\x8D\x9E")}) {
        Article article = sample(plu++, name);
        article.mainBarcode = name.left(20);
        ASSERT_EQ(DB_OPERATION_SUCCESS, editor.AddRecord(article)) << name.left(40).toStdString();
        Article found;
        ASSERT_EQ(0, seeker.FindPlu(article.pluNo, found, false));
        EXPECT_EQ(name, found.name);
    }
    EXPECT_EQ(QStringLiteral("Chleb"),
              Raw().Text(QStringLiteral("SELECT art_name FROM Article WHERE plu_no = 1")));
    EXPECT_EQ(7, Raw().Count(QStringLiteral("Article")));
}
