// What Execute runs for a text: exactly one statement, double-quoted text as values, and the
// pasted text of a declared template bound whole.

#include <random>

#include "DatabaseFixture.h"

namespace {

class StatementRunner : public DatabaseFixture {
protected:
    // The first column of what `sql` returns.
    QStringList firstColumn(const QString& sql) {
        DBDirectQueryResult result;
        EXPECT_EQ(DB_OPERATION_SUCCESS, articles->Execute(sql, &result)) << sql.toStdString();
        return Column(result, 0);
    }
    // The same for a text given in its parts; it must answer as the joined text does.
    QStringList firstColumn(const QString& head, const QString& value, const QString& tail) {
        QStringList parts;
        const DBRowHandler read = [&parts](const DBRowReader& row) {
            parts.append(row.Value(0).toString());
            return true;
        };
        EXPECT_EQ(DB_OPERATION_SUCCESS, articles->Execute(head, value, tail, read));
        EXPECT_EQ(firstColumn(head + value + tail), parts) << value.left(60).toStdString();
        return parts;
    }
};

}  // namespace

TEST_F(StatementRunner, ExecuteRunsExactlyOneStatementSeenByObservers) {
    QStringList seen;
    const int observer =
        articles->AddStatementObserver([&](const QString& sql) { seen.append(sql); });
    AddArticle(1, "A", QString(), 100);
    const QStringList before = ArticlesInTable();
    for (const char* text :
         {"UPDATE Article SET price = 0; DELETE FROM Article",
          "UPDATE Article SET price = 0; -- fine\n DROP TABLE Article",
          "SELECT * FROM Article WHERE art_name = \"x\"; DELETE FROM Article", "  ;  "}) {
        EXPECT_EQ(DB_OPERATION_INVALID_ARGUMENT, articles->Execute(text, nullptr)) << text;
    }
    EXPECT_EQ(before, ArticlesInTable());
    // A trailing semicolon or comment is part of one statement.
    DBDirectQueryResult result;
    EXPECT_EQ(DB_OPERATION_SUCCESS,
              articles->Execute("SELECT plu_no, art_name AS name FROM Article; -- x", &result));
    EXPECT_EQ(QVector<QString>({"plu_no", "name"}), result.GetColumnNames());
    ASSERT_EQ(1, result.RowCount());
    EXPECT_EQ(1, result.GetValue(0, 0).toInt());
    EXPECT_EQ("A", result.GetValue(0, 1).toString());
    // Observers see every executed text, failed ones too, and no other call's.
    seen.clear();
    articles->Execute("SELECT nonsense FROM nowhere", nullptr);
    unsigned long count = 0;
    articles->Count("Article", count);
    articles->RemoveStatementObserver(observer);
    articles->Execute("SELECT 2", nullptr);
    EXPECT_EQ(QStringList({"SELECT nonsense FROM nowhere"}), seen);
}

TEST_F(StatementRunner, AStatementCompiledAgainWithMoreColumnsNamesThemAll) {
    AddArticle(1, "A", QString(), 100);
    quint64 columnsId = 0;
    QString last;
    const DBRowHandler read = [&](const DBRowReader& row) {
        columnsId = row.ColumnsId();
        last = row.ColumnName(row.ColumnCount() - 1);
        return true;
    };
    ASSERT_EQ(DB_OPERATION_SUCCESS, articles->Execute("SELECT * FROM Article", read));
    const quint64 before = columnsId;
    // Another connection adds a column: SQLite compiles the cached statement again.
    Raw().Exec("ALTER TABLE Article ADD COLUMN extra INTEGER");
    ASSERT_EQ(DB_OPERATION_SUCCESS, articles->Execute("SELECT * FROM Article", read));
    EXPECT_EQ("extra", last);
    EXPECT_NE(before, columnsId) << "a reader mapping columns by name must map them again";
}

TEST_F(StatementRunner, DoubleQuotedTextIsAlwaysAValue) {
    AddArticle(1, "price", "art_name", 5);
    AddArticle(2, "Chleb", "5900000000002", 5);
    AddArticle(3, "Say \"hi\"");
    EXPECT_EQ(QStringList({"1"}),
              firstColumn("SELECT plu_no FROM Article WHERE art_name = \"price\""));
    EXPECT_EQ(QStringList({"1"}),
              firstColumn("SELECT plu_no FROM Article WHERE main_barcode = \"art_name\""));
    // Quotes doubled inside a value, and an alias in double quotes, still work.
    DBDirectQueryResult result;
    ASSERT_EQ(DB_OPERATION_SUCCESS, articles->Execute("SELECT plu_no AS \"number\" FROM Article "
                                                      "WHERE art_name = \"Say \"\"hi\"\"\"",
                                                      &result));
    EXPECT_EQ(QStringList({"3"}), Column(result, 0));
    EXPECT_EQ("number", result.GetColumnNames().value(0));
    // A text whose quoted part cannot be a value is refused, never run with it as a name.
    DBDirectQueryResult refused;
    EXPECT_NE(DB_OPERATION_SUCCESS, articles->Execute("SELECT * FROM \"Article\"", &refused));
    EXPECT_EQ(0, refused.RowCount());
}

TEST_F(StatementRunner, DeclaredTemplatesBindThePastedTextWhole) {
    AddBarcode(AddArticle(1, "Chleb"), "111", true);
    AddBarcode(AddArticle(2, "Masło"), "AB\"CD", false);
    const QString head =
        "SELECT a.plu_no FROM Article a, ArticleBarcode b WHERE a.id == b.article_id AND "
        "b.barcode = \"";
    const QString plain = "\"";
    const QString notHandy = "\" AND a.on_handy_list == 0";
    ASSERT_EQ(DB_OPERATION_SUCCESS, articles->DeclareStatementTemplate(head, {plain, notHandy}));
    ASSERT_EQ(DB_OPERATION_SUCCESS, articles->DeclareStatementTemplate(head, {plain}));
    // Texts given in their parts run the same statement, with or without an observer; a tail
    // never declared is run as the joined text.
    const QStringList before = ArticlesInTable();
    QStringList seen;
    for (int observed = 0; observed < 2; ++observed) {
        if (observed) {
            articles->AddStatementObserver([&](const QString& sql) { seen.append(sql); });
        }
        EXPECT_EQ(QStringList({"1"}), firstColumn(head, "111", plain));
        EXPECT_EQ(QStringList({"2"}), firstColumn(head, "AB\"CD", notHandy));
        EXPECT_EQ(QStringList({"1"}), firstColumn(head, "111", "\" AND a.plu_no == 1"));
        for (const QString& text : QStringList{
                 "x\" OR \"1\"=\"1", "x\" UNION SELECT 2 --", "111\" --",
                 "111\"; DELETE FROM Article; --", "111\" COLLATE NOCASE",
                 "111\" AND a.on_handy_list == 0", "barcode", QStringLiteral("111") + QChar(0),
                 QString(QChar(0xDC00)), QString(100000, QLatin1Char('1'))}) {
            EXPECT_TRUE(firstColumn(head, text, plain).isEmpty()) << text.left(60).toStdString();
            EXPECT_TRUE(firstColumn(head, text, notHandy).isEmpty());
        }
    }
    EXPECT_EQ(head + "111\"", seen.first()) << "observers see the text as given";
    EXPECT_EQ(before, ArticlesInTable());
    // A caller that reads the first match only gets no more.
    const QString byName = "SELECT plu_no FROM Article WHERE art_name like \"";
    ASSERT_EQ(DB_OPERATION_SUCCESS, articles->DeclareStatementTemplate(byName, {"\";"}, 1));
    EXPECT_EQ(1, firstColumn(byName + "%\";").size());
    // Shapes whose texts could be read two ways, or whose slot is not quoted, are refused.
    EXPECT_EQ(DB_OPERATION_INVALID_ARGUMENT,
              articles->DeclareStatementTemplate(head, {plain, "\" OR \""}));
    EXPECT_EQ(DB_OPERATION_INVALID_ARGUMENT,
              articles->DeclareStatementTemplate(head + "x", {plain}));
    EXPECT_EQ(DB_OPERATION_INVALID_ARGUMENT,
              articles->DeclareStatementTemplate("SELECT 1 WHERE 1 = ", {plain}));
    EXPECT_TRUE(log->Mentions("can be read as"));
}

TEST_F(StatementRunner, RememberedStatementsAnswerAfterTheCacheMovedOnAndFailByTheirText) {
    AddBarcode(AddArticle(1, "Chleb"), "111", true);
    AddArticle(2, "Masło");
    const QString head =
        "SELECT a.plu_no FROM Article a, ArticleBarcode b WHERE a.id == "
        "b.article_id AND b.barcode = \"";
    const QString tail = "\"";
    ASSERT_EQ(DB_OPERATION_SUCCESS, articles->DeclareStatementTemplate(head, {tail}));
    // Lookups by key remember their last shapes: five shapes in turn, NULL keys among them.
    const QString id = "id", plu = "plu_no", name = "art_name";
    const QVariant one(1), two(2), none, bread("Chleb");
    auto pluOf = [&](std::initializer_list<DBManager::KeyField> key) {
        QStringList found;
        EXPECT_EQ(DB_OPERATION_SUCCESS,
                  articles->LoadByKey("Article", key, [&found](const DBRowReader& row) {
                      found << row.Value(1).toString();
                      return true;
                  }));
        return found.join(',');
    };
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ("1", firstColumn(head, "111", tail).join(','));
        EXPECT_EQ("2", pluOf({{id, two}}));
        EXPECT_EQ("", pluOf({{plu, none}}));
        EXPECT_EQ("1", pluOf({{plu, one}}));
        EXPECT_EQ("1", pluOf({{name, bread}}));
        EXPECT_EQ("", pluOf({{id, one}, {plu, two}}));
        // Every remembered statement is pushed out of the cache by others.
        for (int i = 0; i < 200; ++i) {
            firstColumn(QStringLiteral("SELECT 1 AS c%1").arg(i));
        }
    }
    // A remembered statement that no longer runs names the whole text in the log.
    Raw().Exec("DROP TABLE ArticleBarcode");
    const DBRowHandler ignore = [](const DBRowReader&) { return true; };
    EXPECT_NE(DB_OPERATION_SUCCESS, articles->Execute(head, QStringLiteral("111"), tail, ignore));
    EXPECT_TRUE(log->Mentions("b.barcode = \"111\"")) << log->Texts().join('\n').toStdString();
}

TEST_F(StatementRunner, WalksByPositionAnswerAsTheTextWhateverChangesBetweenSteps) {
    // Seeded walks through the barcodes by position, every step compared with what the text
    // answers on a second connection, while rows come and go between steps through either
    // connection. The walk by article_id reads an index of two columns: not in rowid order.
    std::mt19937 random(7);
    auto pick = [&random](int below) { return static_cast<int>(random() % unsigned(below)); };
    for (int i = 0; i < 200; ++i) {
        AddBarcode(1 + pick(5), QString::number(1000 + i), pick(3) == 0);
    }
    const char* shapes[] = {"SELECT * FROM ArticleBarcode WHERE is_main = %1 LIMIT 1%2",
                            "SELECT * FROM ArticleBarcode WHERE article_id = %1 LIMIT 1%2"};
    int steps = 0;
    for (int walk = 0; walk < 24; ++walk) {
        const int value = walk % 2 ? 1 + pick(5) : pick(2);
        for (int n = 0;; ++n) {
            const QString sql = QString::fromLatin1(shapes[walk % 2])
                                    .arg(value)
                                    .arg(n ? QStringLiteral(" OFFSET %1").arg(n) : QString());
            DBDirectQueryResult result;
            ASSERT_EQ(DB_OPERATION_SUCCESS, articles->Execute(sql, &result)) << sql.toStdString();
            QStringList rows;
            for (const QVector<QVariant>& row : result.GetRows()) {
                QStringList values;
                for (const QVariant& value : row) {
                    values << value.toString();
                }
                rows << values.join(QLatin1Char('|'));
            }
            ASSERT_EQ(Raw().Rows(sql), rows) << sql.toStdString();
            ++steps;
            if (rows.isEmpty()) {
                break;
            }
            const QString id = QString::number(1 + pick(260));
            switch (pick(24)) {
                case 0:
                    Raw().Exec(QStringLiteral("DELETE FROM ArticleBarcode WHERE id = ") + id);
                    break;
                case 1:
                    AddBarcode(1 + pick(5), QStringLiteral("2%1").arg(n), pick(2) == 0);
                    break;
                case 2:
                    articles->Execute(
                        QStringLiteral(
                            "UPDATE ArticleBarcode SET is_main = 1 - is_main WHERE id = ") +
                            id,
                        nullptr);
                    break;
                default:
                    break;
            }
        }
    }
    EXPECT_GT(steps, 1000);
}
