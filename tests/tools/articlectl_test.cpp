// articlectl run as a process on temporary files, as integrators and technicians use it.

#include "ArticlectlFixture.h"
#include "QtPrinters.h"
#include "RawSqlite.h"

TEST_F(Articlectl, HelpVersionAndUsageErrors) {
    Outcome help = Do({QStringLiteral("--help")});
    EXPECT_EQ(0, help.exit);
    for (const char* command :
         {"init", "scan", "search", "import", "export", "clear", "stats", "demo"}) {
        EXPECT_TRUE(help.out.contains(QString::fromLatin1(command))) << command;
    }
    Outcome addHelp = Do({QStringLiteral("add"), QStringLiteral("--help")});
    EXPECT_EQ(0, addHelp.exit);
    EXPECT_TRUE(addHelp.out.startsWith(QStringLiteral("Usage: articlectl [global options] add")));
    EXPECT_TRUE(addHelp.out.contains(QStringLiteral("--price <AMOUNT>")));
    EXPECT_EQ(0, Do({QStringLiteral("--version")}).exit);
    Outcome unknown = Do({QStringLiteral("frobnicate")});
    EXPECT_EQ(2, unknown.exit);
    EXPECT_TRUE(unknown.err.contains(QStringLiteral("unknown command 'frobnicate'")));
    EXPECT_EQ(2, Do({QStringLiteral("show")}).exit);
    EXPECT_EQ(2, Do({QStringLiteral("add"), QStringLiteral("--bogus")}).exit);
    EXPECT_EQ(2, Do({QStringLiteral("price"), QStringLiteral("raise")}).exit);
}

TEST_F(Articlectl, BadInputIsRefusedAndChangesNothing) {
    ASSERT_EQ(0, Do({QStringLiteral("add"), QStringLiteral("--name"), QStringLiteral("Chleb"),
                     QStringLiteral("--price"), QStringLiteral("5.49")})
                     .exit);
    const QList<QStringList> bad = {
        {QStringLiteral("add"), QStringLiteral("--name"), QStringLiteral("X"),
         QStringLiteral("--price"), QStringLiteral("1.999")},
        {QStringLiteral("add"), QStringLiteral("--name"), QStringLiteral("X"),
         QStringLiteral("--price"), QStringLiteral("-1")},
        {QStringLiteral("add"), QStringLiteral("--name"), QStringLiteral("X"),
         QStringLiteral("--plu"), QStringLiteral("12a")},
        {QStringLiteral("add"), QStringLiteral("--name"), QString(41, QLatin1Char('x'))},
        {QStringLiteral("add"), QStringLiteral("--name"), QStringLiteral("X"),
         QStringLiteral("--tax"), QStringLiteral("E")},
        {QStringLiteral("add"), QStringLiteral("--name"), QStringLiteral("X"),
         QStringLiteral("--dept"), QStringLiteral("100")},
        {QStringLiteral("price"), QStringLiteral("set"), QStringLiteral("1"),
         QStringLiteral("abc")},
        {QStringLiteral("edit"), QStringLiteral("1"), QStringLiteral("--name"),
         QStringLiteral(" ")},
    };
    for (const QStringList& arguments : bad) {
        Outcome refused = Do(arguments);
        EXPECT_EQ(2, refused.exit) << arguments.join(' ').toStdString();
        EXPECT_FALSE(refused.err.isEmpty());
    }
    EXPECT_EQ(1, Count());
    EXPECT_EQ(5.49, Do({QStringLiteral("show"), QStringLiteral("1"), QStringLiteral("--json")})
                        .Json()[QStringLiteral("price")]
                        .toDouble());
    // A file that is not a database is refused and left as it was.
    WriteFile(QStringLiteral("notes.db"), QByteArray(5000, 'n'));
    Outcome notDatabase = Do({QStringLiteral("count")}, QStringLiteral("notes.db"));
    EXPECT_EQ(4, notDatabase.exit);
    EXPECT_TRUE(notDatabase.err.contains(QStringLiteral("not a database")));
    EXPECT_EQ(QByteArray(5000, 'n'), ReadFile(QStringLiteral("notes.db")));
}

TEST_F(Articlectl, PricesAreSetAndConverted) {
    ASSERT_EQ(0, Do({QStringLiteral("import"),
                     QStringLiteral(ARTICLEMANAGER_SOURCE_DIR "/examples/pricelist.csv")})
                     .exit);
    ASSERT_EQ(0, Do({QStringLiteral("price"), QStringLiteral("set"), QStringLiteral("1"),
                     QStringLiteral("6")})
                     .exit);
    EXPECT_EQ(6.0, Do({QStringLiteral("show"), QStringLiteral("1"), QStringLiteral("--json")})
                       .Json()[QStringLiteral("price")]
                       .toDouble());
    EXPECT_EQ(1, Do({QStringLiteral("price"), QStringLiteral("set"), QStringLiteral("999"),
                     QStringLiteral("1")})
                     .exit);
    const QJsonObject converted = Do({QStringLiteral("price"), QStringLiteral("convert"),
                                      QStringLiteral("4.3210"), QStringLiteral("--json")})
                                      .Json()
                                      .object();
    EXPECT_EQ(15, converted[QStringLiteral("articles")].toInt());
    EXPECT_EQ(15, converted[QStringLiteral("changed")].toInt());
    EXPECT_EQ(1.39, Do({QStringLiteral("show"), QStringLiteral("1"), QStringLiteral("--json")})
                        .Json()[QStringLiteral("price")]
                        .toDouble())
        << "6.00 / 4.3210 = 1.3886 rounds to 1.39";
    EXPECT_EQ(2,
              Do({QStringLiteral("price"), QStringLiteral("convert"), QStringLiteral("0")}).exit);
}

TEST_F(Articlectl, ClearWaitsForTheReceiptsAndDeleteTakesItsBarcodes) {
    ASSERT_EQ(0, Do({QStringLiteral("import"),
                     QStringLiteral(ARTICLEMANAGER_SOURCE_DIR "/examples/pricelist.csv")})
                     .exit);
    ASSERT_EQ(0, Do({QStringLiteral("delete"), QStringLiteral("41")}).exit);
    EXPECT_EQ(0, Do({QStringLiteral("show"), QStringLiteral("40"), QStringLiteral("--json")})
                     .Json()[QStringLiteral("link_plu")]
                     .toInt())
        << "the link to the deleted article is gone";
    EXPECT_EQ(1, Do({QStringLiteral("delete"), QStringLiteral("41")}).exit);
    ASSERT_EQ(0, Do({QStringLiteral("delete"), QStringLiteral("2")}).exit);
    EXPECT_EQ(1, Do({QStringLiteral("scan"), QStringLiteral("5900000000039")}).exit)
        << "its barcodes went with it";

    MakeReceipts();
    RawSqlite receipts(Path(QStringLiteral("receipts.db")));
    receipts.Exec(
        QStringLiteral("INSERT INTO ReceiptLineEvent (receipt_no, line_no, article_id, plu_no) "
                       "VALUES (1, 1, 1, 1)"));
    Outcome refused = Do({QStringLiteral("clear")});
    EXPECT_EQ(3, refused.exit);
    EXPECT_TRUE(refused.err.contains(QStringLiteral("still holds receipt lines")));
    EXPECT_EQ(13, Count());
    receipts.Exec(QStringLiteral("DELETE FROM ReceiptLineEvent"));
    EXPECT_EQ(0, Do({QStringLiteral("clear")}).exit);
    EXPECT_EQ(0, Count());
}

TEST_F(Articlectl, DemoBuildsAFreshShopOnly) {
    Outcome demo = Do({QStringLiteral("demo")}, QStringLiteral("demo.db"));
    ASSERT_EQ(0, demo.exit) << demo.err.toStdString();
    EXPECT_TRUE(demo.out.contains(QStringLiteral("Built a sample shop")));
    EXPECT_TRUE(demo.out.contains(QStringLiteral("scale label, weight")));
    EXPECT_TRUE(demo.out.contains(QStringLiteral("not found")));
    EXPECT_EQ(300,
              Do({QStringLiteral("count"), QStringLiteral("--json")}, QStringLiteral("demo.db"))
                  .Json()[QStringLiteral("count")]
                  .toInt());
    EXPECT_EQ(3, Do({QStringLiteral("demo")}, QStringLiteral("demo.db")).exit);
    EXPECT_TRUE(QFile::exists(Path(QStringLiteral("demo.db.log"))));
}
