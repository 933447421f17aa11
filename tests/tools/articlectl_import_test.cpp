// articlectl import and export with price lists as shops' back offices and spreadsheets write
// them.

#include "ArticlectlFixture.h"
#include "CatalogueGenerator.h"

TEST_F(Articlectl, PolishSpreadsheetExportsAreRead) {
    WriteFile("cennik.csv",
              "\xEF\xBB\xBFPLU;Nazwa;Cena brutto;Stawka VAT;Dzial;J.m.;Kod kreskowy;stan;"
              "Magazyn\r\n"
              "100;Chleb razowy;4,99;C;1;szt.;5900000000114;12;A\r\n"
              "101;\"Mleko 3,2%\";3,49;C;2;1;;5;B\r\n"
              ";;;;;;;;\r\n");
    const Outcome refused = Do({"import", "cennik.csv"});
    EXPECT_TRUE(Says(2, refused, "cennik.csv:1: unknown column 'stan'\n"));
    EXPECT_TRUE(Has(refused.err, "cennik.csv:1: unknown column 'Magazyn'\n"));
    EXPECT_EQ(0, Count());

    const Outcome imported = Do({"import", "--ignore-unknown", "cennik.csv"});
    ASSERT_EQ(0, imported.exit) << imported.err.toStdString();
    EXPECT_TRUE(Has(imported.err, "ignoring the columns 'stan', 'Magazyn'"));
    EXPECT_TRUE(Has(imported.out, "Imported 2 rows"));
    const QJsonObject bread = Json({"show", "100", "--json"});
    EXPECT_EQ(4.99, bread["price"].toDouble());
    EXPECT_EQ(3, bread["tax_rate"].toInt());
    EXPECT_EQ("5900000000114", bread["main_barcode"].toString());
    const QJsonObject milk = Json({"show", "101", "--json"});
    EXPECT_EQ("Mleko 3,2%", milk["name"].toString());
    EXPECT_EQ(3.49, milk["price"].toDouble());
    EXPECT_EQ(2, milk["dept"].toInt());

    // Tabs, and header names in any case with underscores for blanks.
    WriteFile("tabs.csv", "plu\tNAZWA\tcena\tKOD_KRESKOWY\n102\tWoda\t1.99\t5900000000121\n");
    const Outcome tabs = Do({"import", "tabs.csv"});
    EXPECT_EQ(0, tabs.exit) << tabs.err.toStdString();
    EXPECT_EQ("5900000000121", Json({"show", "102", "--json"})["main_barcode"].toString());

    // The examples shipped with the tool: a spreadsheet's price list and a change of prices.
    const QString examples = "examples.db";
    ASSERT_EQ(0, Do({"init"}, examples).exit);
    ASSERT_EQ(0, Do({"import", cennik}, examples).exit);
    const Outcome change =
        Do({"import", "--dry-run", ARTICLEMANAGER_SOURCE_DIR "/examples/zmiana-cen.csv"}, examples);
    EXPECT_TRUE(Has(change.out, ": change PLU 1 \"Chleb wiejski 500 g\": price 5.49 -> 5.79\n"));
}

TEST_F(Articlectl, TextInOtherEncodingsIsRefusedUnlessNamed) {
    // "Kiełbasa śląska" and "Żurek łódzki" as a Windows program in Poland saves them.
    WriteFile("cp1250.csv",
              "plu;nazwa;cena\r\n1;Kie\xB3"
              "basa \x9Cl\xB9ska;28,99\r\n2;\xAFurek \xB3\xF3"
              "dzki;5,00\r\n");
    const Outcome refused = Do({"import", "cp1250.csv"});
    EXPECT_EQ(2, refused.exit);
    EXPECT_TRUE(Has(refused.err, "cp1250.csv:2: the text is not UTF-8"));
    EXPECT_TRUE(Has(refused.err, "--encoding windows-1250"));
    EXPECT_EQ(0, Count());
    const Outcome decoded = Do({"import", "--encoding", "windows-1250", "cp1250.csv"});
    ASSERT_EQ(0, decoded.exit) << decoded.err.toStdString();
    EXPECT_EQ("Kiełbasa śląska", Json({"show", "1", "--json"})["name"].toString());
    EXPECT_EQ("Żurek łódzki", Json({"show", "2", "--json"})["name"].toString());

    // A NUL byte does not end the file early: nothing of it goes in; nor does UTF-16.
    const char withNul[] = "plu,name,price\n10,A,1.00\n11,B\0x,2.00\n12,C,3.00\n";
    const char utf16[] = "\xFF\xFEp\0l\0u\0";
    const struct {
        const char* file;
        QByteArray content;
        const char* says;
    } refusedFiles[] = {
        {"nul.csv", QByteArray(withNul, sizeof(withNul) - 1),
         "nul.csv:3: the file holds a NUL byte"},
        {"utf16.csv", QByteArray(utf16, sizeof(utf16) - 1), "utf16.csv:1: the file is UTF-16"},
    };
    for (const auto& bad : refusedFiles) {
        WriteFile(bad.file, bad.content);
        EXPECT_TRUE(Says(2, Do({"import", bad.file}), bad.says));
    }
    EXPECT_EQ(2, Count());

    // Standard input, named as such in the report.
    EXPECT_TRUE(Says(
        2, Do(words({"import", "-"}), "shop.db", "plu,name,price\n20,Bułka,0.89\n21,Rogal,x\n"),
        "<stdin>:3: price 'x'"));
    EXPECT_EQ(
        0, Do(words({"import", "-"}), "shop.db", "plu,name,price\n20,Bułka,0.89\n21,Rogal,1.19\n")
               .exit);
    EXPECT_EQ(4, Count());
}

TEST_F(Articlectl, AnUpdateChangesOnlyWhatTheFileSays) {
    WriteFile("full.csv",
              "plu,name,price,tax,dept,unit,precision,barcode,extra_barcodes,blocked,pack,"
              "no_discounts,free_price,handy,scale,link_plu\r\n"
              "7,Ser żółty Gouda,32.99,3,2,2,3,2312345000002,5901234123457 5900000000046,1,1,1,1,1,"
              "4,0\r\n");
    ASSERT_EQ(0, Do({"import", "full.csv"}).exit);
    const QJsonObject before = Json({"show", "7", "--json"});

    WriteFile("prices.csv", "PLU;Cena\r\n7;34,99\r\n");
    const Outcome priced = Do({"import", "prices.csv"});
    ASSERT_EQ(0, priced.exit) << priced.err.toStdString();
    const QJsonObject after = Json({"show", "7", "--json"});
    for (auto field = before.begin(); field != before.end(); ++field) {
        if (!field.key().startsWith("price")) {
            EXPECT_EQ(field.value(), after[field.key()]) << field.key().toStdString();
        }
    }
    EXPECT_EQ(34.99, after["price"].toDouble());
    const Outcome again = Do({"import", "prices.csv"});
    EXPECT_TRUE(Has(again.out, "0 changed, 1 unchanged"));

    // A dry run names each change and leaves the file as it was.
    const QByteArray file = ReadFile("shop.db");
    WriteFile(
        "change.csv",
        "plu,price,barcode,name\n7,35.49,5900000000053,Ser żółty Gouda\n8,1.00,,Nowy\n9,2.00,,\n"
        "10,1.00,5900000000046,Inny\n");
    const Outcome dry = Do({"import", "--dry-run", "change.csv"});
    EXPECT_EQ(2, dry.exit);
    EXPECT_TRUE(Has(dry.out,
                    "change.csv:2: change PLU 7 \"Ser żółty Gouda\": price 34.99 -> 35.49, barcode "
                    "2312345000002 -> 5900000000053"));
    EXPECT_TRUE(Has(dry.out, "change.csv:3: add PLU 8 \"Nowy\" 1.00"));
    EXPECT_TRUE(Has(dry.err, "change.csv:4: PLU 9 is not on file, and a new article needs a name"));
    EXPECT_TRUE(Has(dry.err, "change.csv:5: barcode 5900000000046 already belongs to PLU 7"));
    const QJsonObject json = Json({"import", "--dry-run", "--json", "change.csv"});
    const QJsonValue rows = json["rows"];
    const QJsonValue price = rows[0]["changes"]["price"];
    EXPECT_EQ(34.99, price["old"].toDouble());
    EXPECT_EQ(35.49, price["new"].toDouble());
    EXPECT_EQ("refused", rows[2]["action"].toString());
    EXPECT_EQ(2, json["refused"].toInt());
    EXPECT_EQ(file, ReadFile("shop.db"));
    EXPECT_EQ(after, Json({"show", "7", "--json"}));

    // --replace rewrites the whole article: what the file lacks takes its default.
    WriteFile("replace.csv", "plu,name,price\n7,Ser żółty Gouda,34.99\n");
    ASSERT_EQ(0, Do({"import", "--replace", "replace.csv"}).exit);
    const QJsonObject replaced = Json({"show", "7", "--json"});
    EXPECT_EQ(1, replaced["tax_rate"].toInt());
    EXPECT_EQ(1, replaced["unit"].toInt());
    EXPECT_EQ(0, replaced["scale"].toInt());
    EXPECT_EQ(QString(), replaced["main_barcode"].toString());
    EXPECT_TRUE(replaced["extra_barcodes"].toArray().isEmpty());
}

TEST_F(Articlectl, ImportIsAllOrNothingAndNamesEachBadLine) {
    WriteFile("list.csv",
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
    const Outcome refused = Do({"import", "list.csv"});
    EXPECT_EQ(2, refused.exit);
    for (const char* line :
         {"list.csv:3: a quote on this line is not closed",
          "list.csv:5: a quote inside an unquoted field",
          "list.csv:6: text after the closing quote",
          "list.csv:7: a quote on this line is not closed",
          "list.csv:9: PLU 1 is on an earlier line too", "list.csv:10: price '0.899'",
          "nothing was imported: 6 of 9 rows are bad"}) {
        EXPECT_TRUE(refused.err.contains(QString::fromUtf8(line))) << line << "\n"
                                                                   << refused.err.toStdString();
    }
    for (const char* good : {"list.csv:2:", "list.csv:4:", "list.csv:8:"}) {
        EXPECT_FALSE(Has(refused.err, good));
    }
    EXPECT_EQ(0, Count());

    // Rows refused by the register (a barcode already on file) roll back the good ones too.
    WriteFile("dup.csv",
              "plu,name,price,barcode\r\n1,Chleb,5.49,5900000000015\r\n"
              "4,Masło,7.99,5900000000015\r\n");
    EXPECT_TRUE(Says(3, Do({"import", "dup.csv"}),
                     "dup.csv:3: barcode 5900000000015 already belongs to PLU 1"));
    EXPECT_EQ(0, Count());
    EXPECT_EQ(2, Do({"import", "missing.csv"}).exit);
}

TEST_F(Articlectl, ExportAndImportRoundTripToTheSameFile) {
    ASSERT_EQ(0, Do({"import", pricelist}).exit);
    ASSERT_EQ(0, Do({"export", "first.csv"}).exit);
    QFile original(QString::fromUtf8(pricelist));
    ASSERT_TRUE(original.open(QIODevice::ReadOnly));
    const QByteArray first = ReadFile("first.csv");
    EXPECT_EQ(original.readAll(), first);
    // Importing again changes nothing: nothing is duplicated.
    const Outcome again = Do({"import", "first.csv"});
    EXPECT_TRUE(Has(again.out, "0 added, 0 changed, 15 unchanged"));
    EXPECT_EQ(14, Json({"stats", "--json"})["barcodes"].toInt());

    // What Polish Excel opens, and import reads back to the same catalogue.
    ASSERT_EQ(0, Do({"export", "--excel", "excel.csv"}).exit);
    const QByteArray excel = ReadFile("excel.csv");
    EXPECT_TRUE(excel.startsWith("\xEF\xBB\xBFplu;name;price;tax;"))
        << excel.left(40).toStdString();
    EXPECT_TRUE(excel.contains("\r\n10;Mleko 3,2% 1 l;3,89;3;2;")) << excel.toStdString();
    // Each export read into a fresh catalogue and exported again gives the first file back.
    for (const char* exported : {"first.csv", "excel.csv"}) {
        const QString copy = QString::fromUtf8(exported);
        ASSERT_EQ(0, Do({"init"}, copy + QStringLiteral(".db")).exit);
        ASSERT_EQ(0, Do({"import", exported}, copy + QStringLiteral(".db")).exit) << exported;
        ASSERT_EQ(0, Do(words({"export"}) << copy + QStringLiteral(".again"),
                        copy + QStringLiteral(".db"))
                         .exit);
        EXPECT_EQ(first, ReadFile(copy + QStringLiteral(".again"))) << exported;
    }
}

TEST_F(Articlectl, ExportsACatalogueOfManyPagesAsItWasImported) {
    // More articles than one page of the walk and one read of additional barcodes.
    const CatalogueGenerator generator(5, 3);
    QByteArray list =
        "plu,name,price,tax,dept,unit,precision,barcode,extra_barcodes,blocked,pack,no_discounts,"
        "free_price,handy,scale,link_plu\r\n";
    for (const GeneratedArticle& generated : generator.Batch(1234)) {
        const Article& a = generated.article;
        QString name = a.name;
        if (name.contains(',') || name.contains('"')) {
            name = '"' + name.replace('"', "\"\"") + '"';
        }
        list += QStringLiteral("%1,%2,%3.%4,%5,%6,1,%7,%8,%9,0,%10,0,0,%11,%12,0\r\n")
                    .arg(a.pluNo)
                    .arg(name)
                    .arg(a.price / 100)
                    .arg(a.price % 100, 2, 10, QLatin1Char('0'))
                    .arg(a.taxRateNo)
                    .arg(a.deptNo)
                    .arg(a.quantityPrecision)
                    .arg(a.mainBarcode, generated.extraBarcodes.join(' '))
                    .arg(int(a.isPack))
                    .arg(int(a.onHandyList))
                    .arg(a.scaleNo)
                    .toUtf8();
    }
    // Quotes, both separators, a character outside the BMP and a price past a million.
    list +=
        "999999,\"Ser \"\"Z\xC5\x82oty\"\"; \xF0\x9F\xA7\x80\",1234567.05,1,1,1,0,,,0,0,0,0,0,0,"
        "0\r\n";
    WriteFile("many.csv", list);
    ASSERT_EQ(0, Do({"import", "many.csv"}).exit);
    ASSERT_EQ(0, Do({"export", "many-again.csv"}).exit);
    EXPECT_EQ(list, ReadFile("many-again.csv"));
}
