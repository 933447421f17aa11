// What Execute runs for a text: exactly one statement, double-quoted text as values, and the
// pasted text of a declared template bound whole.

#include "DatabaseFixture.h"

namespace {

class StatementRunner : public DatabaseFixture {
protected:
    QStringList articlesInTable() {
        return Raw().Rows(
            QStringLiteral("SELECT id, plu_no, art_name, price FROM Article ORDER BY id"));
    }
};

}  // namespace

TEST_F(StatementRunner, ExecuteRunsExactlyOneStatement) {
    AddArticle(1, QStringLiteral("A"), QString(), 100);
    const QStringList before = articlesInTable();
    for (const char* text : {"UPDATE Article SET price = 0; DELETE FROM Article",
                             "UPDATE Article SET price = 0; -- fine\n DROP TABLE Article",
                             "SELECT * FROM Article WHERE art_name = \"x\"; DELETE FROM Article"}) {
        EXPECT_EQ(DB_OPERATION_INVALID_ARGUMENT,
                  articles->Execute(QString::fromUtf8(text), nullptr))
            << text;
    }
    EXPECT_EQ(before, articlesInTable());
    EXPECT_EQ(DB_OPERATION_INVALID_ARGUMENT, articles->Execute(QStringLiteral("  ;  "), nullptr));
    // A trailing semicolon or comment is part of one statement.
    DBDirectQueryResult result;
    EXPECT_EQ(DB_OPERATION_SUCCESS,
              articles->Execute(
                  QStringLiteral("SELECT plu_no, art_name AS name FROM Article; -- x"), &result));
    EXPECT_EQ(QVector<QString>({"plu_no", "name"}), result.GetColumnNames());
    ASSERT_EQ(1, result.RowCount());
    EXPECT_FALSE(result.IsEmpty());
    EXPECT_EQ(1, result.GetValue(0, 0).toInt());
    EXPECT_EQ(QStringLiteral("A"), result.GetValue(0, 1).toString());
}

TEST_F(StatementRunner, DoubleQuotedTextIsAlwaysAValue) {
    AddArticle(1, QStringLiteral("price"), QStringLiteral("art_name"), 5);
    AddArticle(2, QStringLiteral("Chleb"), QStringLiteral("5900000000002"), 5);
    DBDirectQueryResult result;
    ASSERT_EQ(
        DB_OPERATION_SUCCESS,
        articles->Execute(QStringLiteral("SELECT plu_no FROM Article WHERE art_name = \"price\""),
                          &result));
    ASSERT_EQ(1, result.RowCount());
    EXPECT_EQ(1, result.GetValue(0, 0).toInt());
    ASSERT_EQ(DB_OPERATION_SUCCESS,
              articles->Execute(
                  QStringLiteral("SELECT plu_no FROM Article WHERE main_barcode = \"art_name\""),
                  &result));
    EXPECT_EQ(1, result.RowCount());
    // Quotes doubled inside a value, and an alias in double quotes, still work.
    AddArticle(3, QStringLiteral("Say \"hi\""));
    ASSERT_EQ(DB_OPERATION_SUCCESS,
              articles->Execute(QStringLiteral("SELECT plu_no AS \"number\" FROM Article "
                                               "WHERE art_name = \"Say \"\"hi\"\"\""),
                                &result));
    ASSERT_EQ(1, result.RowCount());
    EXPECT_EQ(3, result.GetValue(0, 0).toInt());
    EXPECT_EQ(QStringLiteral("number"), result.GetColumnNames().value(0));
}

TEST_F(StatementRunner, DeclaredTemplatesBindThePastedTextWhole) {
    AddBarcode(AddArticle(1, QStringLiteral("Chleb")), QStringLiteral("111"), true);
    AddBarcode(AddArticle(2, QStringLiteral("Masło")), QStringLiteral("AB\"CD"), false);
    const QString head = QStringLiteral(
        "SELECT a.plu_no FROM Article a, ArticleBarcode b WHERE a.id == b.article_id AND "
        "b.barcode = \"");
    const QString plain = QStringLiteral("\"");
    const QString notHandy = QStringLiteral("\" AND a.on_handy_list == 0");
    ASSERT_EQ(DB_OPERATION_SUCCESS, articles->DeclareStatementTemplate(head, {plain, notHandy}));
    ASSERT_EQ(DB_OPERATION_SUCCESS, articles->DeclareStatementTemplate(head, {plain}));
    QStringList seen;
    articles->AddStatementObserver([&](const QString& sql) { seen.append(sql); });
    auto plus = [&](const QString& text, const QString& tail) {
        DBDirectQueryResult result;
        EXPECT_EQ(DB_OPERATION_SUCCESS, articles->Execute(head + text + tail, &result))
            << text.left(60).toStdString();
        QStringList found;
        for (int row = 0; row < result.RowCount(); ++row) {
            found.append(result.GetValue(row, 0).toString());
        }
        return found;
    };
    EXPECT_EQ(QStringList({"1"}), plus(QStringLiteral("111"), plain));
    EXPECT_EQ(QStringList({"2"}), plus(QStringLiteral("AB\"CD"), notHandy));
    EXPECT_EQ(head + QStringLiteral("111\""), seen.first()) << "observers see the text as given";
    const QStringList before = articlesInTable();
    for (const QString& text :
         {QStringLiteral("x\" OR \"1\"=\"1"), QStringLiteral("x\" UNION SELECT 2 --"),
          QStringLiteral("111\" --"), QStringLiteral("111\"; DELETE FROM Article; --"),
          QStringLiteral("111\" COLLATE NOCASE"), QStringLiteral("111\" AND a.on_handy_list == 0"),
          QStringLiteral("barcode"), QStringLiteral("111") + QChar(0), QString(QChar(0xDC00)),
          QString(100000, QLatin1Char('1'))}) {
        EXPECT_TRUE(plus(text, plain).isEmpty()) << text.left(60).toStdString();
        EXPECT_TRUE(plus(text, notHandy).isEmpty()) << text.left(60).toStdString();
    }
    EXPECT_EQ(before, articlesInTable());
    // A caller that reads the first match only gets no more.
    const QString byName = QStringLiteral("SELECT plu_no FROM Article WHERE art_name like \"");
    ASSERT_EQ(DB_OPERATION_SUCCESS,
              articles->DeclareStatementTemplate(byName, {QStringLiteral("\";")}, 1));
    DBDirectQueryResult first;
    ASSERT_EQ(DB_OPERATION_SUCCESS, articles->Execute(byName + QStringLiteral("%\";"), &first));
    EXPECT_EQ(1, first.RowCount());
    // Shapes whose texts could be read two ways, or whose slot is not quoted, are refused.
    EXPECT_EQ(DB_OPERATION_INVALID_ARGUMENT,
              articles->DeclareStatementTemplate(head, {plain, QStringLiteral("\" OR \"")}));
    EXPECT_EQ(DB_OPERATION_INVALID_ARGUMENT,
              articles->DeclareStatementTemplate(head + QStringLiteral("x"), {plain}));
    EXPECT_EQ(DB_OPERATION_INVALID_ARGUMENT,
              articles->DeclareStatementTemplate(QStringLiteral("SELECT 1 WHERE 1 = "), {plain}));
    EXPECT_TRUE(log->Mentions(QStringLiteral("can be read as")));
    // A text whose quoted part cannot be a value is refused, never run with it as a name.
    DBDirectQueryResult result;
    EXPECT_NE(DB_OPERATION_SUCCESS,
              articles->Execute(QStringLiteral("SELECT * FROM \"Article\""), &result));
    EXPECT_EQ(0, result.RowCount());
}

TEST_F(StatementRunner, ObserversSeeEveryExecutedText) {
    QStringList seen;
    const int id = articles->AddStatementObserver([&](const QString& sql) { seen.append(sql); });
    articles->Execute(QStringLiteral("SELECT 1"), nullptr);
    articles->Execute(QStringLiteral("SELECT nonsense FROM nowhere"), nullptr);
    unsigned long count = 0;
    articles->Count(QStringLiteral("Article"), count);  // not an Execute
    articles->RemoveStatementObserver(id);
    articles->Execute(QStringLiteral("SELECT 2"), nullptr);
    EXPECT_EQ(QStringList({"SELECT 1", "SELECT nonsense FROM nowhere"}), seen);
}
