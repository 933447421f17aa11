// articlectl import and export with price lists as shops' back offices and spreadsheets write
// them.

#include <unistd.h>

#include "ArticlectlFixture.h"
#include "RawSqlite.h"

namespace {

const QByteArray header =
    "plu,name,price,tax,dept,unit,precision,barcode,extra_barcodes,blocked,pack,no_discounts,"
    "free_price,handy,scale,link_plu\r\n";

}  // namespace

TEST_F(Articlectl, PolishSpreadsheetExportsAreRead) {
    const QByteArray list =
        "\xEF\xBB\xBFPLU;Nazwa;Cena brutto;Stawka VAT;Dzial;J.m.;Kod kreskowy;stan;"
        "Magazyn\r\n"
        "100;Chleb razowy;4,99;C;1;szt.;5900000000114;12;A\r\n"
        "101;\"Mleko 3,2%\";3,49;C;2;1;;5;B\r\n"
        ";;;;;;;;\r\n";
    WriteFile(QStringLiteral("cennik.csv"), list);
    const Outcome refused = Do({QStringLiteral("import"), QStringLiteral("cennik.csv")});
    EXPECT_EQ(2, refused.exit);
    EXPECT_TRUE(refused.err.contains(QStringLiteral("cennik.csv:1: unknown column 'stan'\n")))
        << refused.err.toStdString();
    EXPECT_TRUE(refused.err.contains(QStringLiteral("cennik.csv:1: unknown column 'Magazyn'\n")));
    EXPECT_EQ(0, Count());

    const Outcome imported = Do({QStringLiteral("import"), QStringLiteral("--ignore-unknown"),
                                 QStringLiteral("cennik.csv")});
    ASSERT_EQ(0, imported.exit) << imported.err.toStdString();
    EXPECT_TRUE(imported.err.contains(QStringLiteral("ignoring the columns 'stan', 'Magazyn'")));
    EXPECT_TRUE(imported.out.contains(QStringLiteral("Imported 2 rows")))
        << imported.out.toStdString();
    const QJsonObject bread =
        Do({QStringLiteral("show"), QStringLiteral("100"), QStringLiteral("--json")})
            .Json()
            .object();
    EXPECT_EQ(4.99, bread[QStringLiteral("price")].toDouble());
    EXPECT_EQ(3, bread[QStringLiteral("tax_rate")].toInt());
    EXPECT_EQ(QStringLiteral("5900000000114"), bread[QStringLiteral("main_barcode")].toString());
    const QJsonObject milk =
        Do({QStringLiteral("show"), QStringLiteral("101"), QStringLiteral("--json")})
            .Json()
            .object();
    EXPECT_EQ(QStringLiteral("Mleko 3,2%"), milk[QStringLiteral("name")].toString());
    EXPECT_EQ(3.49, milk[QStringLiteral("price")].toDouble());
    EXPECT_EQ(2, milk[QStringLiteral("dept")].toInt());

    // Tabs, and header names in any case with underscores for blanks.
    WriteFile(QStringLiteral("tabs.csv"),
              "plu\tNAZWA\tcena\tKOD_KRESKOWY\n102\tWoda\t1.99\t5900000000121\n");
    const Outcome tabs = Do({QStringLiteral("import"), QStringLiteral("tabs.csv")});
    EXPECT_EQ(0, tabs.exit) << tabs.err.toStdString();
    EXPECT_EQ(QStringLiteral("5900000000121"),
              Do({QStringLiteral("show"), QStringLiteral("102"), QStringLiteral("--json")})
                  .Json()[QStringLiteral("main_barcode")]
                  .toString());

    // The examples shipped with the tool: a spreadsheet's price list and a change of prices.
    const QString examples = QStringLiteral(ARTICLEMANAGER_SOURCE_DIR "/examples/");
    ASSERT_EQ(0, Do({QStringLiteral("init")}, QStringLiteral("examples.db")).exit);
    ASSERT_EQ(0, Do({QStringLiteral("import"), examples + QStringLiteral("cennik.csv")},
                    QStringLiteral("examples.db"))
                     .exit);
    const Outcome change = Do({QStringLiteral("import"), QStringLiteral("--dry-run"),
                               examples + QStringLiteral("zmiana-cen.csv")},
                              QStringLiteral("examples.db"));
    EXPECT_TRUE(
        change.out.contains(QStringLiteral(": change PLU 1 \"Chleb wiejski 500 g\": price "
                                           "5.49 -> 5.79\n")))
        << change.out.toStdString();
}

TEST_F(Articlectl, TextInOtherEncodingsIsRefusedUnlessNamed) {
    // "Kiełbasa śląska" and "Żurek łódzki" as a Windows program in Poland saves them.
    WriteFile(QStringLiteral("cp1250.csv"),
              "plu;nazwa;cena\r\n1;Kie\xB3"
              "basa \x9Cl\xB9ska;28,99\r\n2;\xAFurek \xB3\xF3"
              "dzki;5,00\r\n");
    const Outcome refused = Do({QStringLiteral("import"), QStringLiteral("cp1250.csv")});
    EXPECT_EQ(2, refused.exit);
    EXPECT_TRUE(refused.err.contains(QStringLiteral("cp1250.csv:2: the text is not UTF-8")))
        << refused.err.toStdString();
    EXPECT_TRUE(refused.err.contains(QStringLiteral("--encoding windows-1250")));
    EXPECT_EQ(0, Count());
    const Outcome decoded = Do({QStringLiteral("import"), QStringLiteral("--encoding"),
                                QStringLiteral("windows-1250"), QStringLiteral("cp1250.csv")});
    ASSERT_EQ(0, decoded.exit) << decoded.err.toStdString();
    EXPECT_EQ(QStringLiteral("Kiełbasa śląska"),
              Do({QStringLiteral("show"), QStringLiteral("1"), QStringLiteral("--json")})
                  .Json()[QStringLiteral("name")]
                  .toString());
    EXPECT_EQ(QStringLiteral("Żurek łódzki"),
              Do({QStringLiteral("show"), QStringLiteral("2"), QStringLiteral("--json")})
                  .Json()[QStringLiteral("name")]
                  .toString());

    // A NUL byte does not end the file early: nothing of it goes in.
    const char withNul[] = "plu,name,price\n10,A,1.00\n11,B\0x,2.00\n12,C,3.00\n";
    WriteFile(QStringLiteral("nul.csv"), QByteArray(withNul, sizeof(withNul) - 1));
    const Outcome nul = Do({QStringLiteral("import"), QStringLiteral("nul.csv")});
    EXPECT_EQ(2, nul.exit);
    EXPECT_TRUE(nul.err.contains(QStringLiteral("nul.csv:3: the file holds a NUL byte")))
        << nul.err.toStdString();
    const char utf16Text[] = "\xFF\xFEp\0l\0u\0";
    WriteFile(QStringLiteral("utf16.csv"), QByteArray(utf16Text, sizeof(utf16Text) - 1));
    const Outcome utf16 = Do({QStringLiteral("import"), QStringLiteral("utf16.csv")});
    EXPECT_EQ(2, utf16.exit);
    EXPECT_TRUE(utf16.err.contains(QStringLiteral("utf16.csv:1: the file is UTF-16")));
    EXPECT_EQ(2, Count());

    // Standard input, named as such in the report.
    const Outcome piped = DoWithInput({QStringLiteral("import"), QStringLiteral("-")},
                                      "plu,name,price\n20,Bułka,0.89\n21,Rogal,x\n");
    EXPECT_EQ(2, piped.exit);
    EXPECT_TRUE(piped.err.contains(QStringLiteral("<stdin>:3: price 'x'")))
        << piped.err.toStdString();
    EXPECT_EQ(0, DoWithInput({QStringLiteral("import"), QStringLiteral("-")},
                             "plu,name,price\n20,Bułka,0.89\n21,Rogal,1.19\n")
                     .exit);
    EXPECT_EQ(4, Count());
}

TEST_F(Articlectl, AnUpdateChangesOnlyWhatTheFileSays) {
    WriteFile(QStringLiteral("full.csv"),
              header +
                  "7,Ser żółty Gouda,32.99,3,2,2,3,2312345000002,5901234123457 "
                  "5900000000046,1,1,1,1,1,4,0\r\n");
    ASSERT_EQ(0, Do({QStringLiteral("import"), QStringLiteral("full.csv")}).exit);
    auto show = [&]() {
        return Do({QStringLiteral("show"), QStringLiteral("7"), QStringLiteral("--json")})
            .Json()
            .object();
    };
    const QJsonObject before = show();

    WriteFile(QStringLiteral("prices.csv"), "PLU;Cena\r\n7;34,99\r\n");
    const Outcome priced = Do({QStringLiteral("import"), QStringLiteral("prices.csv")});
    ASSERT_EQ(0, priced.exit) << priced.err.toStdString();
    const QJsonObject after = show();
    for (auto field = before.begin(); field != before.end(); ++field) {
        if (!field.key().startsWith(QStringLiteral("price"))) {
            EXPECT_EQ(field.value(), after[field.key()]) << field.key().toStdString();
        }
    }
    EXPECT_EQ(34.99, after[QStringLiteral("price")].toDouble());
    const Outcome again = Do({QStringLiteral("import"), QStringLiteral("prices.csv")});
    EXPECT_TRUE(again.out.contains(QStringLiteral("0 changed, 1 unchanged")))
        << again.out.toStdString();

    // A dry run names each change and leaves the file as it was.
    const QByteArray file = ReadFile(QStringLiteral("shop.db"));
    WriteFile(
        QStringLiteral("change.csv"),
        "plu,price,barcode,name\n7,35.49,5900000000053,Ser żółty Gouda\n8,1.00,,Nowy\n9,2.00,,\n"
        "10,1.00,5900000000046,Inny\n");
    const Outcome dry =
        Do({QStringLiteral("import"), QStringLiteral("--dry-run"), QStringLiteral("change.csv")});
    EXPECT_EQ(2, dry.exit);
    EXPECT_TRUE(dry.out.contains(QStringLiteral(
        "change.csv:2: change PLU 7 \"Ser żółty Gouda\": price 34.99 -> 35.49, barcode "
        "2312345000002 -> 5900000000053")))
        << dry.out.toStdString();
    EXPECT_TRUE(dry.out.contains(QStringLiteral("change.csv:3: add PLU 8 \"Nowy\" 1.00")));
    EXPECT_TRUE(
        dry.err.contains(QStringLiteral("change.csv:4: PLU 9 is not on file, and a new "
                                        "article needs a name")))
        << dry.err.toStdString();
    EXPECT_TRUE(dry.err.contains(
        QStringLiteral("change.csv:5: barcode 5900000000046 already belongs to PLU 7")));
    const QJsonObject json = Do({QStringLiteral("import"), QStringLiteral("--dry-run"),
                                 QStringLiteral("--json"), QStringLiteral("change.csv")})
                                 .Json()
                                 .object();
    const QJsonObject price =
        json[QStringLiteral("rows")][0][QStringLiteral("changes")][QStringLiteral("price")]
            .toObject();
    EXPECT_EQ(34.99, price[QStringLiteral("old")].toDouble());
    EXPECT_EQ(35.49, price[QStringLiteral("new")].toDouble());
    EXPECT_EQ(QStringLiteral("refused"),
              json[QStringLiteral("rows")][2][QStringLiteral("action")].toString());
    EXPECT_EQ(2, json[QStringLiteral("refused")].toInt());
    EXPECT_EQ(file, ReadFile(QStringLiteral("shop.db")));
    EXPECT_EQ(after, show());

    // --replace rewrites the whole article: what the file lacks takes its default.
    WriteFile(QStringLiteral("replace.csv"), "plu,name,price\n7,Ser żółty Gouda,34.99\n");
    ASSERT_EQ(0, Do({QStringLiteral("import"), QStringLiteral("--replace"),
                     QStringLiteral("replace.csv")})
                     .exit);
    const QJsonObject replaced = show();
    EXPECT_EQ(1, replaced[QStringLiteral("tax_rate")].toInt());
    EXPECT_EQ(1, replaced[QStringLiteral("unit")].toInt());
    EXPECT_EQ(0, replaced[QStringLiteral("scale")].toInt());
    EXPECT_EQ(QString(), replaced[QStringLiteral("main_barcode")].toString());
    EXPECT_TRUE(replaced[QStringLiteral("extra_barcodes")].toArray().isEmpty());
}

TEST_F(Articlectl, ImportIsAllOrNothingAndNamesEachBadLine) {
    WriteFile(QStringLiteral("list.csv"),
              "plu,name,price,barcode\n"
              "1,Chleb,5.49,5900000000015\n"
              "2,\"Bułka,0.89,\n"
              "3,Mleko,3.89,\n"
              "4,Masło \"Extra\",7.99,\n"
              "5,\"Ser\" żółty,9.99,\n"
              "6,\"Jajka,1.00,\n"
              "7,Rogal,0.99,\n"
              "1,Bagietka,1.99,\n"
              "8,Kajzerka,0.899,\n");
    const Outcome refused = Do({QStringLiteral("import"), QStringLiteral("list.csv")});
    EXPECT_EQ(2, refused.exit);
    for (const char* line :
         {"list.csv:3: a quote on this line is not closed",
          "list.csv:5: a quote inside an unquoted field",
          "list.csv:6: text after the closing quote",
          "list.csv:7: a quote on this line is not closed",
          "list.csv:9: PLU 1 is on an earlier line too", "list.csv:10: price '0.899'"}) {
        EXPECT_TRUE(refused.err.contains(QString::fromUtf8(line))) << line << "\n"
                                                                   << refused.err.toStdString();
    }
    for (const char* good : {"list.csv:2:", "list.csv:4:", "list.csv:8:"}) {
        EXPECT_FALSE(refused.err.contains(QString::fromUtf8(good))) << good;
    }
    EXPECT_TRUE(refused.err.contains(QStringLiteral("nothing was imported: 6 of 9 rows are bad")));
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

TEST_F(Articlectl, DatabaseFailuresAreNotBlamedOnTheRows) {
    WriteFile(QStringLiteral("list.csv"), "plu,name,price\n1,Chleb,5.49\n2,Bułka,0.89\n");
    ASSERT_EQ(0, Do({QStringLiteral("import"), QStringLiteral("list.csv")}).exit);
    {
        RawSqlite raw(Path(QStringLiteral("shop.db")));
        raw.FailOn(QStringLiteral("Article"), QStringLiteral("UPDATE"));
    }
    // Rows that change nothing are not written, so the failing update is never reached.
    EXPECT_EQ(0, Do({QStringLiteral("import"), QStringLiteral("list.csv")}).exit);
    WriteFile(QStringLiteral("prices.csv"), "plu,price\n1,5.99\n");
    const Outcome failed = Do({QStringLiteral("import"), QStringLiteral("prices.csv")});
    EXPECT_EQ(4, failed.exit);
    EXPECT_TRUE(failed.err.contains(QStringLiteral("injected"))) << failed.err.toStdString();
    EXPECT_FALSE(failed.err.contains(QStringLiteral("prices.csv:"))) << failed.err.toStdString();
    {
        RawSqlite raw(Path(QStringLiteral("shop.db")));
        raw.StopFailing(QStringLiteral("Article"), QStringLiteral("UPDATE"));
    }
    // Root writes a file whatever its mode bits; an immutable file stops root too.
    const QString database = Path(QStringLiteral("shop.db"));
    const bool root = geteuid() == 0;
    if (root &&
        QProcess::execute(QStringLiteral("chattr"), {QStringLiteral("+i"), database}) != 0) {
        GTEST_SKIP() << "no way to make the database read-only for root here";
    }
    QFile::setPermissions(database, QFile::ReadOwner);
    const Outcome readOnly = Do({QStringLiteral("import"), QStringLiteral("prices.csv")});
    if (root) {
        QProcess::execute(QStringLiteral("chattr"), {QStringLiteral("-i"), database});
    }
    EXPECT_EQ(4, readOnly.exit);
    EXPECT_TRUE(readOnly.err.contains(QStringLiteral("read-only"))) << readOnly.err.toStdString();
    EXPECT_FALSE(readOnly.err.contains(QStringLiteral("prices.csv:")));
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
    // Importing again changes nothing: nothing is duplicated.
    const Outcome again = Do({QStringLiteral("import"), QStringLiteral("first.csv")});
    EXPECT_TRUE(again.out.contains(QStringLiteral("0 added, 0 changed, 15 unchanged")))
        << again.out.toStdString();
    const QJsonObject stats =
        Do({QStringLiteral("stats"), QStringLiteral("--json")}).Json().object();
    EXPECT_EQ(14, stats[QStringLiteral("barcodes")].toInt());

    // What Polish Excel opens, and import reads back to the same catalogue.
    ASSERT_EQ(0,
              Do({QStringLiteral("export"), QStringLiteral("--excel"), QStringLiteral("excel.csv")})
                  .exit);
    const QByteArray excel = ReadFile(QStringLiteral("excel.csv"));
    EXPECT_TRUE(excel.startsWith("\xEF\xBB\xBFplu;name;price;tax;"))
        << excel.left(40).toStdString();
    EXPECT_TRUE(excel.contains("\r\n10;Mleko 3,2% 1 l;3,89;3;2;")) << excel.toStdString();
    ASSERT_EQ(0, Do({QStringLiteral("init")}, QStringLiteral("third.db")).exit);
    ASSERT_EQ(
        0, Do({QStringLiteral("import"), QStringLiteral("excel.csv")}, QStringLiteral("third.db"))
               .exit);
    ASSERT_EQ(
        0, Do({QStringLiteral("export"), QStringLiteral("third.csv")}, QStringLiteral("third.db"))
               .exit);
    EXPECT_EQ(ReadFile(QStringLiteral("first.csv")), ReadFile(QStringLiteral("third.csv")));
}
