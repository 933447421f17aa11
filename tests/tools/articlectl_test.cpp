// articlectl run as a process on temporary files, as integrators and technicians use it.

#include "ArticlectlFixture.h"
#include "QtPrinters.h"
#include "RawSqlite.h"

namespace {

const QByteArray header =
    "plu,name,price,tax,dept,unit,precision,barcode,extra_barcodes,blocked,pack,no_discounts,free_"
    "price,handy,"
    "scale,link_plu\r\n";

}  // namespace

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

TEST_F(Articlectl, ArticlesAreAddedShownAndChanged) {
    Outcome added =
        Do({QStringLiteral("add"), QStringLiteral("--name"), QStringLiteral("Ser żółty Gouda"),
            QStringLiteral("--price"), QStringLiteral("32.99"), QStringLiteral("--unit"),
            QStringLiteral("kg"), QStringLiteral("--dept"), QStringLiteral("2"),
            QStringLiteral("--barcode"), QStringLiteral("2312345000002"),
            QStringLiteral("--extra-barcode"), QStringLiteral("5901234123457")});
    ASSERT_EQ(0, added.exit) << added.err.toStdString();
    EXPECT_TRUE(added.out.contains(QStringLiteral("PLU 1  Ser żółty Gouda  32.99 / kg")));
    const QJsonObject shown =
        Do({QStringLiteral("show"), QStringLiteral("1"), QStringLiteral("--json")}).Json().object();
    EXPECT_EQ(QStringLiteral("Ser żółty Gouda"), shown[QStringLiteral("name")].toString());
    EXPECT_EQ(3299, shown[QStringLiteral("price_minor_units")].toInt());
    EXPECT_EQ(QStringLiteral("kg"), shown[QStringLiteral("unit_name")].toString());
    EXPECT_EQ(QJsonArray({QStringLiteral("5901234123457")}),
              shown[QStringLiteral("extra_barcodes")].toArray());
    for (const QStringList& key :
         {QStringList{QStringLiteral("--name"), QStringLiteral("SER ŻÓŁTY%")},
          QStringList{QStringLiteral("--barcode"), QStringLiteral("5901234123457")},
          QStringList{QStringLiteral("--id"), QStringLiteral("1")}}) {
        Outcome byKey = Do(QStringList{QStringLiteral("show"), QStringLiteral("--json")} + key);
        EXPECT_EQ(1, byKey.Json()[QStringLiteral("plu")].toInt()) << key.join(' ').toStdString();
    }
    EXPECT_EQ(3, Do({QStringLiteral("add"), QStringLiteral("--plu"), QStringLiteral("1"),
                     QStringLiteral("--name"), QStringLiteral("Inny")})
                     .exit);
    EXPECT_EQ(
        3, Do({QStringLiteral("add"), QStringLiteral("--name"), QStringLiteral("Ser żółty Gouda")})
               .exit);
    ASSERT_EQ(0, Do({QStringLiteral("edit"), QStringLiteral("1"), QStringLiteral("--price"),
                     QStringLiteral("29.99"), QStringLiteral("--plu"), QStringLiteral("7")})
                     .exit);
    EXPECT_EQ(1, Do({QStringLiteral("show"), QStringLiteral("1")}).exit);
    EXPECT_EQ(2999, Do({QStringLiteral("show"), QStringLiteral("7"), QStringLiteral("--json")})
                        .Json()[QStringLiteral("price_minor_units")]
                        .toInt());
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
    EXPECT_EQ(549, Do({QStringLiteral("show"), QStringLiteral("1"), QStringLiteral("--json")})
                       .Json()[QStringLiteral("price_minor_units")]
                       .toInt());
    // A file that is not a database is refused and left as it was.
    WriteFile(QStringLiteral("notes.db"), QByteArray(5000, 'n'));
    Outcome notDatabase = Do({QStringLiteral("count")}, QStringLiteral("notes.db"));
    EXPECT_EQ(4, notDatabase.exit);
    EXPECT_TRUE(notDatabase.err.contains(QStringLiteral("not a database")));
    EXPECT_EQ(QByteArray(5000, 'n'), ReadFile(QStringLiteral("notes.db")));
}

TEST_F(Articlectl, NavigationListsAndCounts) {
    for (const char* plu : {"5", "10", "20"}) {
        ASSERT_EQ(
            0, Do({QStringLiteral("add"), QStringLiteral("--plu"), QString::fromLatin1(plu),
                   QStringLiteral("--name"), QStringLiteral("Artykuł ") + QString::fromLatin1(plu)})
                   .exit);
    }
    const QJsonArray list = Do({QStringLiteral("list"), QStringLiteral("6"), QStringLiteral("20"),
                                QStringLiteral("--json")})
                                .Json()
                                .array();
    ASSERT_EQ(2, list.size());
    EXPECT_EQ(10, list[0][QStringLiteral("plu")].toInt());
    EXPECT_EQ(QStringLiteral("Artykuł 20"), list[1][QStringLiteral("name")].toString());
    EXPECT_EQ(1, Do({QStringLiteral("list"), QStringLiteral("21")}).exit);
    EXPECT_TRUE(Do({QStringLiteral("next"), QStringLiteral("5")})
                    .out.startsWith(QStringLiteral("PLU 10 ")));
    EXPECT_EQ(1, Do({QStringLiteral("prev"), QStringLiteral("5")}).exit);
    EXPECT_EQ(QStringLiteral("1\n"), Do({QStringLiteral("first-free-plu")}).out);
    EXPECT_EQ(QStringLiteral("2\n"),
              Do({QStringLiteral("count"), QStringLiteral("5"), QStringLiteral("10")}).out);
    EXPECT_EQ(2, Do({QStringLiteral("count"), QStringLiteral("10"), QStringLiteral("5")}).exit);
}

TEST_F(Articlectl, ScansSearchesAndPrices) {
    ASSERT_EQ(0, Do({QStringLiteral("import"),
                     QStringLiteral(ARTICLEMANAGER_SOURCE_DIR "/examples/pricelist.csv")})
                     .exit);
    const QJsonObject weighed =
        Do({QStringLiteral("scan"), QStringLiteral("2312345012500"), QStringLiteral("--json")})
            .Json()
            .object();
    EXPECT_EQ(QStringLiteral("weight"),
              weighed[QStringLiteral("label")][QStringLiteral("kind")].toString());
    EXPECT_EQ(1250, weighed[QStringLiteral("label")][QStringLiteral("value")].toInt());
    EXPECT_EQ(11, weighed[QStringLiteral("article")][QStringLiteral("plu")].toInt());
    EXPECT_EQ(QStringLiteral("41.24"), weighed[QStringLiteral("to_pay")].toString())
        << "1.250 kg at 32.99";
    EXPECT_TRUE(Do({QStringLiteral("scan"), QStringLiteral("2912347015990")})
                    .out.contains(QStringLiteral("To pay: 15.99")));
    EXPECT_EQ(1, Do({QStringLiteral("scan"), QStringLiteral("5909999999996")}).exit);

    const QJsonArray found =
        Do({QStringLiteral("search"), QStringLiteral("SER"), QStringLiteral("--json")})
            .Json()
            .array();
    ASSERT_EQ(1, found.size());
    EXPECT_EQ(QStringLiteral("Ser żółty Gouda"), found[0][QStringLiteral("name")].toString());
    const QJsonArray wo =
        Do({QStringLiteral("search"), QStringLiteral("wo"), QStringLiteral("--json")})
            .Json()
            .array();
    ASSERT_EQ(3, wo.size());
    EXPECT_EQ(QStringLiteral("Woda mineralna 1,5 l"), wo[0][QStringLiteral("name")].toString())
        << "prefix matches first";
    EXPECT_EQ(QStringLiteral("Piwo Żywiec 0,5 l"), wo[1][QStringLiteral("name")].toString())
        << "then the rest";
    EXPECT_EQ(QStringLiteral("Wino czerwone wytrawne"), wo[2][QStringLiteral("name")].toString());

    ASSERT_EQ(0, Do({QStringLiteral("price"), QStringLiteral("set"), QStringLiteral("1"),
                     QStringLiteral("6")})
                     .exit);
    EXPECT_EQ(600, Do({QStringLiteral("show"), QStringLiteral("1"), QStringLiteral("--json")})
                       .Json()[QStringLiteral("price_minor_units")]
                       .toInt());
    EXPECT_EQ(1, Do({QStringLiteral("price"), QStringLiteral("set"), QStringLiteral("999"),
                     QStringLiteral("1")})
                     .exit);
    const QJsonObject converted = Do({QStringLiteral("price"), QStringLiteral("convert"),
                                      QStringLiteral("4.3210"), QStringLiteral("--json")})
                                      .Json()
                                      .object();
    EXPECT_EQ(15, converted[QStringLiteral("articles")].toInt());
    EXPECT_EQ(15, converted[QStringLiteral("changed")].toInt());
    EXPECT_EQ(139, Do({QStringLiteral("show"), QStringLiteral("1"), QStringLiteral("--json")})
                       .Json()[QStringLiteral("price_minor_units")]
                       .toInt())
        << "6.00 / 4.3210 = 1.3886 rounds to 1.39";
    EXPECT_EQ(2,
              Do({QStringLiteral("price"), QStringLiteral("convert"), QStringLiteral("0")}).exit);
}

TEST_F(Articlectl, TamperedCodesAndNamesFindNothing) {
    ASSERT_EQ(0, Do({QStringLiteral("import"),
                     QStringLiteral(ARTICLEMANAGER_SOURCE_DIR "/examples/pricelist.csv")})
                     .exit);
    const QString before = Do({QStringLiteral("list"), QStringLiteral("--json")}).out;
    for (const QString& text :
         {QStringLiteral("\" OR 1=1 LIMIT 1 --"),
          QStringLiteral("x\" UNION SELECT 1,2,\"Foo\",1,1,0,1,0,\"\",1,0,0,0,0,0,0 --"),
          QStringLiteral("x\" AND like(printf('%.*c', 100000000, 'a'), 'b') --"),
          QStringLiteral("27\"; DELETE FROM Article; --")}) {
        const Outcome scan = Do({QStringLiteral("scan"), text});
        EXPECT_EQ(1, scan.exit) << text.toStdString();
        EXPECT_FALSE(scan.out.contains(QStringLiteral("To pay"))) << scan.out.toStdString();
        EXPECT_EQ(1, Do({QStringLiteral("show"), QStringLiteral("--name"), text}).exit);
        EXPECT_TRUE(Do({QStringLiteral("prefix"), QStringLiteral("classify"), text})
                        .out.endsWith(QStringLiteral(": none\n")));
    }
    EXPECT_EQ(before, Do({QStringLiteral("list"), QStringLiteral("--json")}).out);
}

TEST_F(Articlectl, BarcodesDepartmentsTaxRatesAndPrefixes) {
    ASSERT_EQ(0, Do({QStringLiteral("add"), QStringLiteral("--name"), QStringLiteral("Woda"),
                     QStringLiteral("--barcode"), QStringLiteral("5900000000060")})
                     .exit);
    ASSERT_EQ(0, Do({QStringLiteral("barcode"), QStringLiteral("add"), QStringLiteral("1"),
                     QStringLiteral("4006381333931")})
                     .exit);
    EXPECT_EQ(3, Do({QStringLiteral("barcode"), QStringLiteral("add"), QStringLiteral("1"),
                     QStringLiteral("4006381333931")})
                     .exit);
    const QJsonArray barcodes = Do({QStringLiteral("barcode"), QStringLiteral("list"),
                                    QStringLiteral("1"), QStringLiteral("--json")})
                                    .Json()
                                    .array();
    ASSERT_EQ(2, barcodes.size());
    EXPECT_TRUE(barcodes[0][QStringLiteral("main")].toBool());
    EXPECT_EQ(QStringLiteral("4006381333931"),
              Do({QStringLiteral("barcode"), QStringLiteral("walk"), QStringLiteral("--json")})
                  .Json()[0][QStringLiteral("barcode")]
                  .toString());
    EXPECT_EQ(3, Do({QStringLiteral("barcode"), QStringLiteral("delete"),
                     QStringLiteral("5900000000060")})
                     .exit);
    EXPECT_EQ(0, Do({QStringLiteral("barcode"), QStringLiteral("delete"),
                     QStringLiteral("4006381333931")})
                     .exit);
    EXPECT_EQ(1, Do({QStringLiteral("barcode"), QStringLiteral("delete"),
                     QStringLiteral("4006381333931")})
                     .exit);

    ASSERT_EQ(0, Do({QStringLiteral("dept"), QStringLiteral("set"), QStringLiteral("5"),
                     QStringLiteral("--name"), QStringLiteral("Napoje"),
                     QStringLiteral("--max-discount"), QStringLiteral("25")})
                     .exit);
    const QJsonObject dept = Do({QStringLiteral("dept"), QStringLiteral("show"),
                                 QStringLiteral("5"), QStringLiteral("--json")})
                                 .Json()[0]
                                 .toObject();
    EXPECT_EQ(QStringLiteral("Napoje"), dept[QStringLiteral("name")].toString());
    EXPECT_EQ(QStringLiteral("25.00 %"), dept[QStringLiteral("max_discount")].toString());
    EXPECT_TRUE(Do({QStringLiteral("dept"), QStringLiteral("show"), QStringLiteral("15")})
                    .out.contains(QStringLiteral("Grupa towarowa 15")));

    ASSERT_EQ(0, Do({QStringLiteral("tax"), QStringLiteral("set"), QStringLiteral("E"),
                     QStringLiteral("12.5")})
                     .exit);
    const QJsonArray rates =
        Do({QStringLiteral("tax"), QStringLiteral("list"), QStringLiteral("--json")})
            .Json()
            .array();
    EXPECT_EQ(1250, rates[4][QStringLiteral("value")].toInt());
    EXPECT_EQ(QStringLiteral("exempt"), rates[6][QStringLiteral("text")].toString());

    ASSERT_EQ(0, Do({QStringLiteral("prefix"), QStringLiteral("add"), QStringLiteral("3"),
                     QStringLiteral("21"), QStringLiteral("--kind"), QStringLiteral("weight")})
                     .exit);
    EXPECT_EQ(QStringLiteral("21: weight\n"),
              Do({QStringLiteral("prefix"), QStringLiteral("classify"), QStringLiteral("21")}).out);
    EXPECT_EQ(
        1,
        Do({QStringLiteral("prefix"), QStringLiteral("classify"), QStringLiteral("2712345")}).exit);
    ASSERT_EQ(0, Do({QStringLiteral("prefix"), QStringLiteral("reset")}).exit);
    EXPECT_EQ(4, Do({QStringLiteral("prefix"), QStringLiteral("list"), QStringLiteral("--json")})
                     .Json()
                     .array()
                     .size());
}

TEST_F(Articlectl, ImportIsAllOrNothingAndNamesEachBadLine) {
    WriteFile(QStringLiteral("list.csv"),
              header +
                  "1,Chleb,5.49,3,1,1,0,5900000000015,,0,0,0,0,0,0,0\r\n"
                  "2,Bułka,0.899,3,1,1,0,,,0,0,0,0,0,0,0\r\n"
                  "3,\"Mleko, 2%\",3.89,3,2,1,0,,,0,0,0,0,0,0,0\r\n"
                  "1,Rogal,1.99,3,1,1,0,,,0,0,0,0,0,0,0\r\n"
                  "4,Masło,7.99,3,2,1,0,5900000000015,,0,0,0,0,0,0,0\r\n");
    Outcome refused = Do({QStringLiteral("import"), QStringLiteral("list.csv")});
    EXPECT_EQ(2, refused.exit);
    EXPECT_TRUE(refused.err.contains(QStringLiteral("list.csv:3: price '0.899'")))
        << refused.err.toStdString();
    EXPECT_TRUE(refused.err.contains(QStringLiteral("list.csv:5: PLU 1 is already on line 2")));
    EXPECT_FALSE(refused.err.contains(QStringLiteral("list.csv:4:")));
    EXPECT_TRUE(refused.err.contains(QStringLiteral("nothing was imported")));
    EXPECT_EQ(0, Count());

    // Rows refused by the register (a barcode already on file) roll back the good ones too.
    WriteFile(QStringLiteral("dup.csv"),
              header +
                  "1,Chleb,5.49,3,1,1,0,5900000000015,,0,0,0,0,0,0,0\r\n"
                  "4,Masło,7.99,3,2,1,0,5900000000015,,0,0,0,0,0,0,0\r\n");
    Outcome duplicate = Do({QStringLiteral("import"), QStringLiteral("dup.csv")});
    EXPECT_EQ(3, duplicate.exit);
    EXPECT_TRUE(duplicate.err.contains(
        QStringLiteral("dup.csv:3: barcode 5900000000015 already belongs to PLU 1")))
        << duplicate.err.toStdString();
    EXPECT_EQ(0, Count());

    WriteFile(QStringLiteral("header.csv"), "plu,name,colour\r\n1,Chleb,red\r\n");
    Outcome badHeader = Do({QStringLiteral("import"), QStringLiteral("header.csv")});
    EXPECT_EQ(2, badHeader.exit);
    EXPECT_TRUE(badHeader.err.contains(QStringLiteral("header.csv:1: unknown column 'colour'")));
    EXPECT_EQ(2, Do({QStringLiteral("import"), QStringLiteral("missing.csv")}).exit);
}

TEST_F(Articlectl, ExportAndImportRoundTripToTheSameFile) {
    const QString example = QStringLiteral(ARTICLEMANAGER_SOURCE_DIR "/examples/pricelist.csv");
    ASSERT_EQ(0, Do({QStringLiteral("import"), example}).exit);
    ASSERT_EQ(0, Do({QStringLiteral("export"), QStringLiteral("first.csv")}).exit);
    QFile original(example);
    original.open(QIODevice::ReadOnly);
    EXPECT_EQ(original.readAll(), ReadFile(QStringLiteral("first.csv")));
    ASSERT_EQ(0, Do({QStringLiteral("init")}, QStringLiteral("second.db")).exit);
    ASSERT_EQ(
        0, Do({QStringLiteral("import"), QStringLiteral("first.csv")}, QStringLiteral("second.db"))
               .exit);
    ASSERT_EQ(
        0, Do({QStringLiteral("export"), QStringLiteral("second.csv")}, QStringLiteral("second.db"))
               .exit);
    EXPECT_EQ(ReadFile(QStringLiteral("first.csv")), ReadFile(QStringLiteral("second.csv")));
    // Importing again replaces the articles: nothing is duplicated.
    ASSERT_EQ(0, Do({QStringLiteral("import"), QStringLiteral("first.csv")}).exit);
    EXPECT_EQ(15, Count());
    const QJsonObject stats =
        Do({QStringLiteral("stats"), QStringLiteral("--json")}).Json().object();
    EXPECT_EQ(14, stats[QStringLiteral("barcodes")].toInt());
    EXPECT_EQ(2, stats[QStringLiteral("plu_digits")].toInt());
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
