// What each data operation of the database layer does to the stored rows.

#include "DatabaseFixture.h"

namespace {

class DBManagerSql : public DatabaseFixture {
protected:
    void SetUp() override {
        DatabaseFixture::SetUp();
        article = articles->GetTable("Article");
        barcode = articles->GetTable("ArticleBarcode");
    }

    int insert(const QList<QList<Field>>& rows) { return articles->Insert(Rows(article, rows)); }

    DBTable* article = nullptr;
    DBTable* barcode = nullptr;
};

}  // namespace

TEST_F(DBManagerSql, InsertAddsReplacesByKeyOrRefusesAsAWhole) {
    AddArticle(10, "Masło", QString(), 699);
    EXPECT_EQ(DB_OPERATION_CONSTRAINT, insert({{{"plu_no", 10u}, {"art_name", "Mleko"}}}));
    EXPECT_EQ(QStringList({"1|10|Masło|699"}), ArticlesInTable());
    EXPECT_TRUE(log->Mentions("UNIQUE constraint failed: Article.plu_no"));
    // A stored key replaces the whole row: what the new row does not give goes back to its
    // default.
    EXPECT_EQ(DB_OPERATION_SUCCESS,
              insert({{{"id", 1u}, {"plu_no", 11u}, {"art_name", "Masło extra"}, {"price", 799}}}));
    EXPECT_EQ(QStringList({"1|11|Masło extra|799"}), ArticlesInTable());
    EXPECT_EQ(DB_OPERATION_SUCCESS,
              insert({{{"id", 1u}, {"plu_no", 11u}, {"art_name", "Masło extra"}}}));
    EXPECT_EQ(QStringList({"1|11|Masło extra|0"}), ArticlesInTable());
    // Replacing must not break another unique value either.
    AddArticle(12, "Ser");
    EXPECT_EQ(DB_OPERATION_CONSTRAINT,
              insert({{{"id", 2u}, {"plu_no", 11u}, {"art_name", "Ser"}}}));
    // Many rows are stored all or none.
    EXPECT_EQ(DB_OPERATION_CONSTRAINT, insert({{{"plu_no", 1u}, {"art_name", "A"}},
                                               {{"plu_no", 2u}, {"art_name", "B"}},
                                               {{"plu_no", 1u}, {"art_name", "C"}}}));
    EXPECT_EQ(QStringList({"1|11|Masło extra|0", "2|12|Ser|0"}), ArticlesInTable());
    EXPECT_EQ(DB_OPERATION_SUCCESS,
              insert({{{"plu_no", 1u}, {"art_name", "A"}}, {{"plu_no", 2u}, {"art_name", "B"}}}));
    EXPECT_EQ(4, Raw().Count("Article"));
}

TEST_F(DBManagerSql, RememberedInsertsFollowTheCacheAndTheTable) {
    const auto keyed = [this](unsigned int id) {
        return insert({{{"id", id}, {"plu_no", id}, {"art_name", QString::number(id)}}});
    };
    ASSERT_EQ(DB_OPERATION_SUCCESS, keyed(1));
    ASSERT_EQ(DB_OPERATION_SUCCESS, insert({{{"plu_no", 2u}, {"art_name", "B"}}}));
    // Both statements leave the cache; the next rows of both shapes still go in.
    for (int i = 0; i < 200; ++i) {
        articles->Execute(QStringLiteral("SELECT %1").arg(i), nullptr);
    }
    EXPECT_EQ(DB_OPERATION_SUCCESS, keyed(1));
    EXPECT_EQ(DB_OPERATION_SUCCESS, insert({{{"plu_no", 3u}, {"art_name", "C"}}}));
    // Another connection adds a column (and the table is described again): a row replaced by
    // its key takes the new column's default.
    Raw().Exec("ALTER TABLE Article ADD COLUMN extra INTEGER DEFAULT 5");
    Raw().Exec("UPDATE Article SET extra = 9");
    articles->GetTable("Article");
    EXPECT_EQ(DB_OPERATION_SUCCESS, keyed(1));
    EXPECT_EQ("5", Raw().Text("SELECT extra FROM Article WHERE id = 1"));
    // ... and takes it away: a row that names it is refused as a first one would be.
    ASSERT_EQ(DB_OPERATION_SUCCESS, insert({{{"plu_no", 4u}, {"art_name", "D"}, {"extra", 7}}}));
    Raw().Exec("ALTER TABLE Article DROP COLUMN extra");
    articles->GetTable("Article");
    log->Clear();
    EXPECT_EQ(DB_OPERATION_INVALID_ARGUMENT,
              insert({{{"plu_no", 5u}, {"art_name", "E"}, {"extra", 7}}}));
    EXPECT_TRUE(log->Mentions("no such column: extra in table Article"))
        << log->Texts().join('\n').toStdString();
    EXPECT_EQ(4, Raw().Count("Article"));
}

TEST_F(DBManagerSql, UnusableRowsAreRefusedBeforeAnythingRuns) {
    AddArticle(1, "A");
    EXPECT_EQ(DB_OPERATION_INVALID_ARGUMENT, articles->Insert(QSharedPointer<DBData>::create()));
    EXPECT_EQ(DB_OPERATION_INVALID_ARGUMENT, articles->Insert(QSharedPointer<DBData>()));
    EXPECT_EQ(DB_OPERATION_INVALID_ARGUMENT, articles->Delete(Rows(article, {{}})));
    // A condition on an unknown column must not turn into "delete everything".
    EXPECT_EQ(DB_OPERATION_INVALID_ARGUMENT,
              articles->Delete(Rows(article, {{{"no_such_column", 1}}})));
    EXPECT_EQ(DB_OPERATION_INVALID_ARGUMENT,
              articles->Update(Rows(article, {{{"plu_no", 1u}}}),
                               Rows(article, {{{"price; DROP TABLE Article", 1}}})));
    QSharedPointer<DBData> result = QSharedPointer<DBData>::create();
    EXPECT_EQ(DB_OPERATION_INVALID_ARGUMENT, articles->Load(Rows(nullptr, {{{"plu_no", 1u}}}),
                                                            DBManager::LOAD_MODE_BY_KEY, result));
    EXPECT_EQ(1, Raw().Count("Article"));
    EXPECT_TRUE(log->Mentions("no such column: no_such_column in table Article"));
}

TEST_F(DBManagerSql, UpdateAndDeleteTouchOnlyMatchingRowsOrNothing) {
    AddArticle(1, "A", QString(), 100);
    AddArticle(2, "B", QString(), 200);
    EXPECT_EQ(DB_OPERATION_SUCCESS,
              articles->Update(Rows(article, {{{"id", 2u}, {"price", 250}}})));
    // By key: one key that matches nothing undoes the whole call.
    EXPECT_EQ(DB_OPERATION_NOT_FOUND,
              articles->Update(
                  Rows(article, {{{"id", 1u}, {"price", 111}}, {{"id", 99u}, {"price", 999}}})));
    EXPECT_EQ(DB_OPERATION_INVALID_ARGUMENT, articles->Update(Rows(article, {{{"price", 1}}})));
    EXPECT_EQ(QStringList({"1|1|A|100", "2|2|B|250"}), ArticlesInTable());
    // By condition: every matching row, none matching is success.
    EXPECT_EQ(DB_OPERATION_SUCCESS, articles->Update(Rows(article, {{{"plu_no", 1u}}}),
                                                     Rows(article, {{{"price", 105}}})));
    EXPECT_EQ(DB_OPERATION_SUCCESS, articles->Update(Rows(article, {{{"plu_no", 77u}}}),
                                                     Rows(article, {{{"price", 1}}})));
    EXPECT_EQ(QStringList({"1|1|A|105", "2|2|B|250"}), ArticlesInTable());
    // Delete needs every condition to match.
    AddBarcode(1, "111", true);
    AddBarcode(1, "112", false);
    AddBarcode(2, "211", false);
    EXPECT_EQ(DB_OPERATION_SUCCESS,
              articles->Delete(Rows(barcode, {{{"article_id", 1u}, {"is_main", 0}}})));
    EXPECT_EQ(QStringList({"111", "211"}),
              Raw().Rows("SELECT barcode FROM ArticleBarcode ORDER BY id"));
    EXPECT_EQ(DB_OPERATION_SUCCESS, articles->Delete(Rows(barcode, {{{"barcode", "nothing"}}})));
    EXPECT_EQ(DB_OPERATION_SUCCESS, articles->ClearTable("ArticleBarcode"));
    EXPECT_EQ(0, Raw().Count("ArticleBarcode"));
}

TEST_F(DBManagerSql, LoadsLikeAndUpperFoldPolishLetters) {
    AddArticle(30, "ŻÓŁTY SER");
    AddArticle(10, "ser biały");
    AddArticle(20, "Serek 5%");
    AddArticle(40, "serek_wiejski");
    auto plus = [&](const QString& pattern) {
        QSharedPointer<DBData> result;
        EXPECT_EQ(DB_OPERATION_SUCCESS,
                  articles->Load(Rows(article, {{{"art_name", pattern}}}),
                                 DBManager::LOAD_MODE_BY_KEY, result, true, QString(), 0));
        return Column(result, "plu_no");
    };
    EXPECT_EQ(QStringList({"30"}), plus("żółty%"));
    EXPECT_EQ(QStringList({"30", "10", "20", "40"}), plus("%ser%"));
    EXPECT_EQ(QStringList({"10"}), plus("%BIAŁY"));
    EXPECT_EQ(QStringList({"20"}), plus("%5_"));
    EXPECT_TRUE(plus("ser").isEmpty());
    DBDirectQueryResult direct;
    ASSERT_EQ(DB_OPERATION_SUCCESS,
              articles->Execute("SELECT UPPER(\"żółć ß\"), lower(\"ĄĘ\")", &direct));
    EXPECT_EQ("ŻÓŁĆ SS", direct.GetValue(0, 0).toString());
    EXPECT_EQ("ąę", direct.GetValue(0, 1).toString());

    QSharedPointer<DBData> result;
    ASSERT_EQ(DB_OPERATION_SUCCESS,
              articles->Load("Article", {"plu_no"}, "plu_no >= 20 LIMIT 2", result));
    EXPECT_EQ(QStringList({"20", "30"}), Column(result, "plu_no"));
    EXPECT_EQ(1, result->GetRow(0)->FieldCount());
    ASSERT_EQ(DB_OPERATION_SUCCESS, articles->LoadAll("Article", result));
    EXPECT_EQ(QStringList({"30", "10", "20", "40"}), Column(result, "plu_no"));
    EXPECT_EQ(16, result->GetRow(0)->FieldCount());
    // Prefixes with and without case; the escaping of LIKE's signs is compared with the scan
    // in the search index test.
    ASSERT_EQ(DB_OPERATION_SUCCESS,
              articles->LoadPrefix("Article", "art_name", "SER", result, "art_name", true));
    EXPECT_EQ(QStringList({"20", "10", "40"}), Column(result, "plu_no"));  // binary order
    ASSERT_EQ(DB_OPERATION_SUCCESS,
              articles->LoadPrefix("Article", "art_name", "Ser", result, QString(), false));
    EXPECT_EQ(QStringList({"20"}), Column(result, "plu_no"));
    // A failed load leaves the result alone.
    QSharedPointer<DBData> kept = result;
    EXPECT_EQ(DB_OPERATION_ERROR, articles->LoadAll("Nothing", result));
    EXPECT_EQ(kept, result);
}

TEST_F(DBManagerSql, AggregatesAnswerForEmptyAndFilledTables) {
    QVariant value = 5;
    ASSERT_EQ(DB_OPERATION_SUCCESS, articles->MaxValue("Article", "plu_no", QString(), value));
    EXPECT_TRUE(value.isNull());
    ASSERT_EQ(DB_OPERATION_SUCCESS, articles->MinUnusedValue("Article", "plu_no", value));
    EXPECT_EQ(1, value.toInt());
    for (unsigned int plu : {1u, 2u, 3u, 5u, 6u, 9u}) {
        AddArticle(plu, QStringLiteral("A%1").arg(plu), QString(), 0, plu > 4);
    }
    ASSERT_EQ(DB_OPERATION_SUCCESS, articles->MaxValue("Article", "plu_no", "plu_no < 6", value));
    EXPECT_EQ(5, value.toInt());
    ASSERT_EQ(DB_OPERATION_SUCCESS, articles->MinValue("Article", "plu_no", "plu_no > 3", value));
    EXPECT_EQ(5, value.toInt());
    unsigned int inRange = 0;
    ASSERT_EQ(DB_OPERATION_SUCCESS,
              articles->CountInRange(
                  "Article", "plu_no >= 2 AND plu_no <= 6 AND on_handy_list = 1 ", inRange));
    EXPECT_EQ(2u, inRange);
    unsigned long all = 0;
    ASSERT_EQ(DB_OPERATION_SUCCESS, articles->Count("Article", all));
    EXPECT_EQ(6u, all);
    // A failing aggregate leaves its output alone.
    value = 42;
    EXPECT_EQ(DB_OPERATION_ERROR, articles->MaxValue("Article", "nope", QString(), value));
    EXPECT_EQ(42, value.toInt());
}

TEST_F(DBManagerSql, InjectedFailuresComeBackAsErrors) {
    AddArticle(1, "A");
    Raw().FailOn("Article", "UPDATE");
    EXPECT_EQ(DB_OPERATION_CONSTRAINT,
              articles->Update(Rows(article, {{{"id", 1u}, {"price", 5}}})));
    EXPECT_TRUE(log->Mentions("injected"));
    EXPECT_NE(DB_OPERATION_SUCCESS, articles->Execute("UPDATE Article SET price = 7", nullptr));
    Raw().Exec("DROP TABLE ArticleBarcode");
    QSharedPointer<DBData> result;
    EXPECT_EQ(DB_OPERATION_ERROR, articles->Load(Rows(barcode, {{{"barcode", "1"}}}),
                                                 DBManager::LOAD_MODE_BY_KEY, result));
    EXPECT_EQ(QStringList({"1|1|A|0"}), ArticlesInTable());
}
