// What each data operation of the database layer does to the stored rows.

#include "DatabaseFixture.h"

namespace {

class DBManagerSql : public DatabaseFixture {
protected:
    void SetUp() override {
        DatabaseFixture::SetUp();
        article = articles->GetTable(QStringLiteral("Article"));
        barcode = articles->GetTable(QStringLiteral("ArticleBarcode"));
    }

    QStringList articlesInTable() {
        return Raw().Rows(
            QStringLiteral("SELECT id, plu_no, art_name, price FROM Article ORDER BY id"));
    }

    DBTable* article = nullptr;
    DBTable* barcode = nullptr;
};

}  // namespace

TEST_F(DBManagerSql, InsertRefusesADuplicatePluAndKeepsTheStoredRow) {
    AddArticle(10, QStringLiteral("Masło"), QString(), 699);
    EXPECT_EQ(
        DB_OPERATION_CONSTRAINT,
        articles->Insert(Rows(article, {{Field("plu_no", 10u), Field("art_name", "Mleko")}})));
    EXPECT_EQ(QStringList({"1|10|Masło|699"}), articlesInTable());
    EXPECT_TRUE(log->Mentions(QStringLiteral("UNIQUE constraint failed: Article.plu_no")));
}

TEST_F(DBManagerSql, InsertReplacesTheRowWhoseKeyIsStored) {
    AddArticle(10, QStringLiteral("Masło"), QString(), 699);
    EXPECT_EQ(
        DB_OPERATION_SUCCESS,
        articles->Insert(Rows(article, {{Field("id", 1u), Field("plu_no", 11u),
                                         Field("art_name", "Masło extra"), Field("price", 799)}})));
    EXPECT_EQ(QStringList({"1|11|Masło extra|799"}), articlesInTable());
    // The whole row is replaced: what the new row does not give goes back to its default.
    EXPECT_EQ(DB_OPERATION_SUCCESS,
              articles->Insert(Rows(article, {{Field("id", 1u), Field("plu_no", 11u),
                                               Field("art_name", "Masło extra")}})));
    EXPECT_EQ(QStringList({"1|11|Masło extra|0"}), articlesInTable());
    ASSERT_EQ(0, articles->Execute(QStringLiteral("UPDATE Article SET price = 799"), nullptr));
    // Replacing must not break another unique value either.
    AddArticle(12, QStringLiteral("Ser"));
    EXPECT_EQ(DB_OPERATION_CONSTRAINT,
              articles->Insert(Rows(
                  article, {{Field("id", 2u), Field("plu_no", 11u), Field("art_name", "Ser")}})));
    EXPECT_EQ(QStringList({"1|11|Masło extra|799", "2|12|Ser|0"}), articlesInTable());
}

TEST_F(DBManagerSql, InsertOfManyRowsIsAllOrNothing) {
    EXPECT_EQ(DB_OPERATION_CONSTRAINT,
              articles->Insert(Rows(article, {{Field("plu_no", 1u), Field("art_name", "A")},
                                              {Field("plu_no", 2u), Field("art_name", "B")},
                                              {Field("plu_no", 1u), Field("art_name", "C")}})));
    EXPECT_TRUE(articlesInTable().isEmpty());
    EXPECT_EQ(DB_OPERATION_SUCCESS,
              articles->Insert(Rows(article, {{Field("plu_no", 1u), Field("art_name", "A")},
                                              {Field("plu_no", 2u), Field("art_name", "B")}})));
    EXPECT_EQ(2, Raw().Count(QStringLiteral("Article")));
}

TEST_F(DBManagerSql, UnusableRowsAreRefusedBeforeAnythingRuns) {
    AddArticle(1, QStringLiteral("A"));
    QSharedPointer<DBData> empty = QSharedPointer<DBData>::create();
    EXPECT_EQ(DB_OPERATION_INVALID_ARGUMENT, articles->Insert(empty));
    EXPECT_EQ(DB_OPERATION_INVALID_ARGUMENT, articles->Insert(QSharedPointer<DBData>()));
    EXPECT_EQ(DB_OPERATION_INVALID_ARGUMENT, articles->Delete(Rows(article, {{}})));
    // A condition on an unknown column must not turn into "delete everything".
    EXPECT_EQ(DB_OPERATION_INVALID_ARGUMENT,
              articles->Delete(Rows(article, {{Field("no_such_column", 1)}})));
    EXPECT_EQ(DB_OPERATION_INVALID_ARGUMENT,
              articles->Update(Rows(article, {{Field("plu_no", 1u)}}),
                               Rows(article, {{Field("price; DROP TABLE Article", 1)}})));
    QSharedPointer<DBData> result = QSharedPointer<DBData>::create();
    EXPECT_EQ(DB_OPERATION_INVALID_ARGUMENT, articles->Load(Rows(nullptr, {{Field("plu_no", 1u)}}),
                                                            DBManager::LOAD_MODE_BY_KEY, result));
    EXPECT_EQ(1, Raw().Count(QStringLiteral("Article")));
    EXPECT_TRUE(log->Mentions(QStringLiteral("no such column: no_such_column in table Article")));
}

TEST_F(DBManagerSql, UpdateByKeyWritesTheRecordOrNothing) {
    AddArticle(1, QStringLiteral("A"), QString(), 100);
    AddArticle(2, QStringLiteral("B"), QString(), 200);
    EXPECT_EQ(DB_OPERATION_SUCCESS,
              articles->Update(Rows(article, {{Field("id", 2u), Field("price", 250)}})));
    // One key that matches nothing undoes the whole call.
    EXPECT_EQ(DB_OPERATION_NOT_FOUND,
              articles->Update(Rows(article, {{Field("id", 1u), Field("price", 111)},
                                              {Field("id", 99u), Field("price", 999)}})));
    EXPECT_EQ(DB_OPERATION_INVALID_ARGUMENT,
              articles->Update(Rows(article, {{Field("price", 1)}})));
    EXPECT_EQ(QStringList({"1|1|A|100", "2|2|B|250"}), articlesInTable());

    // Update by condition: every matching row, none matching is success.
    EXPECT_EQ(DB_OPERATION_SUCCESS, articles->Update(Rows(article, {{Field("plu_no", 1u)}}),
                                                     Rows(article, {{Field("price", 105)}})));
    EXPECT_EQ(DB_OPERATION_SUCCESS, articles->Update(Rows(article, {{Field("plu_no", 77u)}}),
                                                     Rows(article, {{Field("price", 1)}})));
    EXPECT_EQ(QStringList({"1|1|A|105", "2|2|B|250"}), articlesInTable());
}

TEST_F(DBManagerSql, DeleteRemovesOnlyRowsMatchingAllConditions) {
    AddBarcode(1, QStringLiteral("111"), true);
    AddBarcode(1, QStringLiteral("112"), false);
    AddBarcode(2, QStringLiteral("211"), false);
    EXPECT_EQ(DB_OPERATION_SUCCESS,
              articles->Delete(Rows(barcode, {{Field("article_id", 1u), Field("is_main", 0)}})));
    EXPECT_EQ(QStringList({"111", "211"}),
              Raw().Rows(QStringLiteral("SELECT barcode FROM ArticleBarcode ORDER BY id")));
    EXPECT_EQ(DB_OPERATION_SUCCESS,
              articles->Delete(Rows(barcode, {{Field("barcode", "nothing")}})));
    EXPECT_EQ(DB_OPERATION_SUCCESS, articles->ClearTable(QStringLiteral("ArticleBarcode")));
    EXPECT_EQ(0, Raw().Count(QStringLiteral("ArticleBarcode")));
}

TEST_F(DBManagerSql, LikeAndUpperFoldPolishLetters) {
    AddArticle(1, QStringLiteral("ŻÓŁTY SER"));
    AddArticle(2, QStringLiteral("Ser biały"));
    AddArticle(3, QStringLiteral("Mleko 100%"));
    AddArticle(4, QStringLiteral("serek_wiejski"));
    auto names = [&](const QString& pattern) {
        QSharedPointer<DBData> result;
        EXPECT_EQ(DB_OPERATION_SUCCESS,
                  articles->Load(Rows(article, {{Field("art_name", pattern)}}),
                                 DBManager::LOAD_MODE_BY_KEY, result, true, QString(), 0));
        QStringList found;
        for (const DBRow* row : *result) {
            found.append(row->GetValue(QStringLiteral("art_name")).toString());
        }
        return found;
    };
    EXPECT_EQ(QStringList({"ŻÓŁTY SER"}), names(QStringLiteral("żółty%")));
    EXPECT_EQ(QStringList({"ŻÓŁTY SER", "Ser biały", "serek_wiejski"}),
              names(QStringLiteral("%ser%")));
    EXPECT_EQ(QStringList({"Ser biały"}), names(QStringLiteral("%BIAŁY")));
    EXPECT_EQ(QStringList({"Mleko 100%"}), names(QStringLiteral("%0_")));
    EXPECT_TRUE(names(QStringLiteral("ser")).isEmpty());
    DBDirectQueryResult result;
    ASSERT_EQ(
        DB_OPERATION_SUCCESS,
        articles->Execute(QStringLiteral("SELECT UPPER(\"żółć ß\"), lower(\"ĄĘ\")"), &result));
    EXPECT_EQ(QStringLiteral("ŻÓŁĆ SS"), result.GetValue(0, 0).toString());
    EXPECT_EQ(QStringLiteral("ąę"), result.GetValue(0, 1).toString());
}

TEST_F(DBManagerSql, LoadVariantsReturnTheMatchingRows) {
    AddArticle(30, QStringLiteral("Ser żółty"));
    AddArticle(10, QStringLiteral("ser biały"));
    AddArticle(20, QStringLiteral("Serek 5%"));
    AddArticle(40, QStringLiteral("Masło"));
    auto plus = [](const QSharedPointer<DBData>& data) {
        QStringList found;
        for (const DBRow* row : *data) {
            found.append(row->GetValue(QStringLiteral("plu_no")).toString());
        }
        return found;
    };
    QSharedPointer<DBData> result;
    ASSERT_EQ(DB_OPERATION_SUCCESS,
              articles->Load(QStringLiteral("Article"), {QStringLiteral("plu_no")},
                             QStringLiteral("plu_no >= 20 LIMIT 2"), result));
    EXPECT_EQ(QStringList({"20", "30"}), plus(result));
    EXPECT_EQ(1, result->GetRow(0)->FieldCount());
    ASSERT_EQ(DB_OPERATION_SUCCESS, articles->LoadAll(QStringLiteral("Article"), result));
    EXPECT_EQ(QStringList({"30", "10", "20", "40"}), plus(result));
    EXPECT_EQ(16, result->GetRow(0)->FieldCount());
    ASSERT_EQ(
        DB_OPERATION_SUCCESS,
        articles->LoadPrefix(QStringLiteral("Article"), QStringLiteral("art_name"),
                             QStringLiteral("SER"), result, QStringLiteral("art_name"), true));
    EXPECT_EQ(QStringList({"30", "20", "10"}), plus(result));  // by art_name, binary order
    ASSERT_EQ(DB_OPERATION_SUCCESS,
              articles->LoadPrefix(QStringLiteral("Article"), QStringLiteral("art_name"),
                                   QStringLiteral("Ser"), result, QString(), false));
    EXPECT_EQ(QStringList({"30", "20"}), plus(result));
    ASSERT_EQ(DB_OPERATION_SUCCESS,
              articles->LoadPrefix(QStringLiteral("Article"), QStringLiteral("art_name"),
                                   QStringLiteral("Serek 5%"), result, QString(), true));
    EXPECT_EQ(QStringList({"20"}), plus(result));
    ASSERT_EQ(DB_OPERATION_SUCCESS,
              articles->LoadPrefix(QStringLiteral("Article"), QStringLiteral("art_name"),
                                   QStringLiteral("S_r"), result, QString(), true));
    EXPECT_TRUE(result->IsEmpty());
    // Load by example orders by key; a failed load leaves the result alone.
    QSharedPointer<DBData> kept = result;
    EXPECT_EQ(DB_OPERATION_ERROR, articles->LoadAll(QStringLiteral("Nothing"), result));
    EXPECT_EQ(kept, result);
}

TEST_F(DBManagerSql, AggregatesAnswerForEmptyAndFilledTables) {
    QVariant value = 5;
    ASSERT_EQ(DB_OPERATION_SUCCESS, articles->MaxValue(QStringLiteral("Article"),
                                                       QStringLiteral("plu_no"), QString(), value));
    EXPECT_TRUE(value.isNull());
    EXPECT_TRUE(value.toString().isEmpty());
    ASSERT_EQ(DB_OPERATION_SUCCESS,
              articles->MinUnusedValue(QStringLiteral("Article"), QStringLiteral("plu_no"), value));
    EXPECT_EQ(1, value.toInt());
    for (unsigned int plu : {1u, 2u, 3u, 5u, 6u, 9u}) {
        AddArticle(plu, QStringLiteral("A%1").arg(plu), QString(), 0, plu > 4);
    }
    ASSERT_EQ(DB_OPERATION_SUCCESS,
              articles->MinUnusedValue(QStringLiteral("Article"), QStringLiteral("plu_no"), value));
    EXPECT_EQ(4, value.toInt());
    ASSERT_EQ(DB_OPERATION_SUCCESS,
              articles->MaxValue(QStringLiteral("Article"), QStringLiteral("plu_no"),
                                 QStringLiteral("plu_no < 6"), value));
    EXPECT_EQ(5, value.toInt());
    ASSERT_EQ(DB_OPERATION_SUCCESS,
              articles->MinValue(QStringLiteral("Article"), QStringLiteral("plu_no"),
                                 QStringLiteral("plu_no > 3"), value));
    EXPECT_EQ(5, value.toInt());
    unsigned int inRange = 0;
    ASSERT_EQ(DB_OPERATION_SUCCESS,
              articles->CountInRange(
                  QStringLiteral("Article"),
                  QStringLiteral("plu_no >= 2 AND plu_no <= 6 AND on_handy_list = 1 "), inRange));
    EXPECT_EQ(2u, inRange);
    unsigned long all = 0;
    ASSERT_EQ(DB_OPERATION_SUCCESS, articles->Count(QStringLiteral("Article"), all));
    EXPECT_EQ(6u, all);
    // A failing aggregate leaves its output alone.
    value = 42;
    EXPECT_EQ(DB_OPERATION_ERROR, articles->MaxValue(QStringLiteral("Article"),
                                                     QStringLiteral("nope"), QString(), value));
    EXPECT_EQ(42, value.toInt());
}

TEST_F(DBManagerSql, InjectedFailuresComeBackAsErrors) {
    AddArticle(1, QStringLiteral("A"));
    Raw().FailOn(QStringLiteral("Article"), QStringLiteral("UPDATE"));
    EXPECT_EQ(DB_OPERATION_CONSTRAINT,
              articles->Update(Rows(article, {{Field("id", 1u), Field("price", 5)}})));
    EXPECT_TRUE(log->Mentions(QStringLiteral("injected")));
    EXPECT_NE(DB_OPERATION_SUCCESS,
              articles->Execute(QStringLiteral("UPDATE Article SET price = 7"), nullptr));
    Raw().Exec(QStringLiteral("DROP TABLE ArticleBarcode"));
    QSharedPointer<DBData> result;
    EXPECT_EQ(DB_OPERATION_ERROR, articles->Load(Rows(barcode, {{Field("barcode", "1")}}),
                                                 DBManager::LOAD_MODE_BY_KEY, result));
    EXPECT_EQ(QStringList({"1|1|A|0"}), articlesInTable());
}
