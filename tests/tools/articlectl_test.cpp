// articlectl run as a process on temporary files, as integrators and technicians use it.

#include "ArticlectlFixture.h"
#include "QtPrinters.h"
#include "RawSqlite.h"

TEST_F(Articlectl, HelpIsEverywhereAndSuggestsWhatWasMeant) {
    for (const char* line : {"--help", "help"}) {
        const Outcome help = Do({line});
        EXPECT_EQ(0, help.exit) << line;
        for (const char* command :
             {"init", "scan", "search", "import", "export", "clear", "stats", "demo", "restore"}) {
            EXPECT_TRUE(Has(help.out, command)) << line;
        }
    }
    EXPECT_EQ(0, Do({"--version"}).exit);
    const Outcome add = Do({"add", "--help"});
    EXPECT_EQ(0, add.exit);
    EXPECT_TRUE(Starts(add.out, "Usage: articlectl [global options] add"));
    EXPECT_TRUE(Has(add.out, "--price <AMOUNT>"));
    const struct {
        QStringList line;
        const char* shows;
    } helps[] = {
        {words({"help", "price"}), "articlectl price "},
        {words({"price", "--help"}), "articlectl price "},
        {words({"help", "price", "convert"}), "articlectl price "},
        {words({"price", "set", "--help"}), "articlectl price "},
        {words({"help", "scan"}), "articlectl scan "},
        {words({"barcode", "add", "--help"}), "\n  articlectl barcode add"},
        {words({"barcode", "list", "--help"}), "\n  articlectl barcode list"},
        {words({"barcode", "delete", "--help"}), "\n  articlectl barcode delete"},
        {words({"barcode", "walk", "--help"}), "\n  articlectl barcode walk"},
        {words({"dept", "--help"}), "articlectl dept "},
        {words({"tax", "set", "--help"}), "articlectl tax "},
        {words({"prefix", "add", "--help"}), "articlectl prefix "},
    };
    for (const auto& help : helps) {
        const Outcome outcome = Do(help.line);
        EXPECT_EQ(0, outcome.exit) << help.line.join(' ').toStdString();
        EXPECT_TRUE(outcome.err.isEmpty()) << outcome.err.toStdString();
        EXPECT_TRUE(Has(outcome.out, help.shows));
    }

    const struct {
        QStringList line;
        const char* says;
    } usage[] = {
        {words({"frobnicate"}), "unknown command 'frobnicate'"},
        {words({"serach", "chleb"}), "did you mean 'search'?"},
        {words({"price", "convet", "4"}), "did you mean 'price convert'?"},
        {words({"show"}), ""},
        {words({"add", "--bogus"}), ""},
        {words({"price", "raise"}), ""},
    };
    for (const auto& wrong : usage) {
        EXPECT_TRUE(Says(2, Do(wrong.line), wrong.says)) << wrong.line.join(' ').toStdString();
    }

    // Global options anywhere on the line.
    const Outcome late = Tool(words({"count", "--json", "--db"}) << Path("shop.db"));
    EXPECT_EQ(0, late.exit) << late.err.toStdString();
    EXPECT_EQ(0, late.Json()["count"].toInt(-1));
}

TEST_F(Articlectl, BadInputIsRefusedAndChangesNothing) {
    ASSERT_EQ(0, Do({"add", "--name", "Chleb", "--price", "5.49"}).exit);
    const QList<QStringList> bad = {
        words({"add", "--name", "X", "--price", "1.999"}),
        words({"add", "--name", "X", "--price", "-1"}),
        words({"add", "--name", "X", "--plu", "12a"}),
        words({"add", "--name"}) << QString(41, QLatin1Char('x')),
        words({"add", "--name", "X", "--tax", "E"}),
        words({"add", "--name", "X", "--dept", "100"}),
        words({"price", "set", "1", "abc"}),
        words({"edit", "1", "--name", " "}),
    };
    for (const QStringList& arguments : bad) {
        const Outcome refused = Do(arguments);
        EXPECT_EQ(2, refused.exit) << arguments.join(' ').toStdString();
        EXPECT_FALSE(refused.err.isEmpty());
    }
    EXPECT_EQ(1, Count());
    EXPECT_EQ(5.49, Json({"show", "1", "--json"})["price"].toDouble());

    // A file that is not a database is refused and left as it was, by check too.
    WriteFile("notes.db", QByteArray(5000, 'n'));
    for (const char* command : {"count", "check"}) {
        EXPECT_TRUE(Says(4, Do({command}, "notes.db"), "file is not a database"));
    }
    EXPECT_EQ(QByteArray(5000, 'n'), ReadFile("notes.db"));
}

TEST_F(Articlectl, PricesAreSetAndConverted) {
    ASSERT_EQ(0, Do({"import", pricelist}).exit);
    ASSERT_EQ(0, Do({"price", "set", "1", "6"}).exit);
    EXPECT_EQ(6.0, Json({"show", "1", "--json"})["price"].toDouble());
    EXPECT_EQ(1, Do({"price", "set", "999", "1"}).exit);
    const QJsonObject converted = Json({"price", "convert", "4.3210", "--json"});
    EXPECT_EQ(15, converted["articles"].toInt());
    EXPECT_EQ(15, converted["changed"].toInt());
    EXPECT_EQ(1.39, Json({"show", "1", "--json"})["price"].toDouble())
        << "6.00 / 4.3210 = 1.3886 rounds to 1.39";
    EXPECT_EQ(2, Do({"price", "convert", "0"}).exit);
}

TEST_F(Articlectl, ClearWaitsForTheReceiptsAndDeleteTakesItsBarcodes) {
    ASSERT_EQ(0, Do({"import", pricelist}).exit);
    ASSERT_EQ(0, Do({"delete", "41"}).exit);
    EXPECT_EQ(0, Json({"show", "40", "--json"})["link_plu"].toInt())
        << "the link to the deleted article is gone";
    EXPECT_EQ(1, Do({"delete", "41"}).exit);
    ASSERT_EQ(0, Do({"delete", "2"}).exit);
    EXPECT_EQ(1, Do({"scan", "5900000000039"}).exit) << "its barcodes went with it";

    MakeReceipts();
    RawSqlite receipts(Path("receipts.db"));
    receipts.Exec(
        "INSERT INTO ReceiptLineEvent (receipt_no, line_no, article_id, plu_no) "
        "VALUES (1, 1, 1, 1)");
    EXPECT_TRUE(Says(3, Do({"clear"}), "still holds receipt lines"));
    EXPECT_EQ(13, Count());
    receipts.Exec("DELETE FROM ReceiptLineEvent");
    EXPECT_EQ(0, Do({"clear"}).exit);
    EXPECT_EQ(0, Count());
}
