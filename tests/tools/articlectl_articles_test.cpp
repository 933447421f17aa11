// articlectl's article commands, search, scan, barcodes and check, run as a process.

#include <QFile>

#include "ArticlectlFixture.h"
#include "QtPrinters.h"
#include "RawSqlite.h"

namespace {

const QString pricelist = QStringLiteral(ARTICLEMANAGER_SOURCE_DIR "/examples/pricelist.csv");

QStringList names(const QJsonArray& articles) {
    QStringList list;
    for (const QJsonValue& article : articles) {
        list.append(article[QStringLiteral("name")].toString());
    }
    return list;
}

}  // namespace

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
    EXPECT_EQ(QJsonValue(32.99), shown[QStringLiteral("price")]) << "money as a number";
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
    EXPECT_EQ(29.99, Do({QStringLiteral("show"), QStringLiteral("7"), QStringLiteral("--json")})
                         .Json()[QStringLiteral("price")]
                         .toDouble());
}

// Every command that prints an article prints the same shape, numbers as numbers.
TEST_F(Articlectl, ArticlesHaveOneJsonShapeEverywhere) {
    ASSERT_EQ(0, Do({QStringLiteral("import"), pricelist}).exit);
    const QJsonObject shown =
        Do({QStringLiteral("show"), QStringLiteral("11"), QStringLiteral("--json")})
            .Json()
            .object();
    EXPECT_TRUE(shown[QStringLiteral("price")].isDouble());
    EXPECT_EQ(11, shown[QStringLiteral("plu")].toInt(-1));
    EXPECT_EQ(3, shown[QStringLiteral("tax_rate")].toInt(-1));
    EXPECT_TRUE(shown[QStringLiteral("handy_list")].isBool());
    const QJsonObject list = Do({QStringLiteral("list"), QStringLiteral("11"), QStringLiteral("11"),
                                 QStringLiteral("--json")})
                                 .Json()
                                 .object();
    EXPECT_EQ(1, list[QStringLiteral("count")].toInt());
    const QJsonObject scanned =
        Do({QStringLiteral("scan"), QStringLiteral("2312345000002"), QStringLiteral("--json")})
            .Json()
            .object();
    const QJsonObject searched =
        Do({QStringLiteral("search"), QStringLiteral("Gouda"), QStringLiteral("--json")})
            .Json()
            .object();
    for (const QJsonObject& same :
         {list[QStringLiteral("articles")][0].toObject(),
          Do({QStringLiteral("next"), QStringLiteral("10"), QStringLiteral("--json")})
              .Json()
              .object(),
          Do({QStringLiteral("prev"), QStringLiteral("12"), QStringLiteral("--json")})
              .Json()
              .object(),
          scanned[QStringLiteral("article")].toObject(),
          searched[QStringLiteral("articles")][0].toObject()}) {
        EXPECT_EQ(shown, same);
    }
    const QJsonObject barcodes = Do({QStringLiteral("barcode"), QStringLiteral("list"),
                                     QStringLiteral("2"), QStringLiteral("--json")})
                                     .Json()
                                     .object();
    EXPECT_EQ(2, barcodes[QStringLiteral("count")].toInt());
    EXPECT_EQ(QJsonObject({{QStringLiteral("id"), 3},
                           {QStringLiteral("article_id"), 2},
                           {QStringLiteral("plu"), 2},
                           {QStringLiteral("barcode"), QStringLiteral("5900000000039")},
                           {QStringLiteral("main"), false}}),
              barcodes[QStringLiteral("barcodes")][1].toObject());
    EXPECT_EQ(barcodes[QStringLiteral("barcodes")][1],
              Do({QStringLiteral("barcode"), QStringLiteral("walk"), QStringLiteral("--json")})
                  .Json()[QStringLiteral("barcodes")][0]);
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
                                .Json()[QStringLiteral("articles")]
                                .toArray();
    ASSERT_EQ(2, list.size());
    EXPECT_EQ(10, list[0][QStringLiteral("plu")].toInt());
    EXPECT_EQ(QStringLiteral("Artykuł 20"), list[1][QStringLiteral("name")].toString());
    EXPECT_EQ(1, Do({QStringLiteral("list"), QStringLiteral("21")}).exit);
    EXPECT_EQ(2, Do({QStringLiteral("list"), QStringLiteral("20"), QStringLiteral("6")}).exit);
    EXPECT_TRUE(Do({QStringLiteral("next"), QStringLiteral("5")})
                    .out.startsWith(QStringLiteral("PLU 10 ")));
    EXPECT_EQ(1, Do({QStringLiteral("prev"), QStringLiteral("5")}).exit);
    EXPECT_EQ(QStringLiteral("1\n"), Do({QStringLiteral("first-free-plu")}).out);
    EXPECT_EQ(QStringLiteral("2\n"),
              Do({QStringLiteral("count"), QStringLiteral("5"), QStringLiteral("10")}).out);
    EXPECT_EQ(2, Do({QStringLiteral("count"), QStringLiteral("10"), QStringLiteral("5")}).exit);
}

TEST_F(Articlectl, ScansReadLabelsAndReportAMisreadOne) {
    ASSERT_EQ(0, Do({QStringLiteral("import"), pricelist}).exit);
    const QJsonObject weighed =
        Do({QStringLiteral("scan"), QStringLiteral("2312345012500"), QStringLiteral("--json")})
            .Json()
            .object();
    const QJsonObject label = weighed[QStringLiteral("label")].toObject();
    EXPECT_EQ(QStringLiteral("weight"), label[QStringLiteral("kind")].toString());
    EXPECT_EQ(QJsonValue(1.25), label[QStringLiteral("weight_kg")]);
    EXPECT_EQ(11, weighed[QStringLiteral("article")][QStringLiteral("plu")].toInt());
    EXPECT_EQ(QJsonValue(41.24), weighed[QStringLiteral("to_pay")]) << "1.250 kg at 32.99";
    EXPECT_TRUE(Do({QStringLiteral("scan"), QStringLiteral("2912347015990")})
                    .out.contains(QStringLiteral("To pay: 15.99")));
    EXPECT_TRUE(
        Do({QStringLiteral("scan"), QStringLiteral("5900000000015"), QStringLiteral("--json")})
            .Json()[QStringLiteral("label")]
            .isNull());
    EXPECT_EQ(1, Do({QStringLiteral("scan"), QStringLiteral("5909999999996")}).exit);

    // The same weight label with its last digit misread: the register does not take it as a
    // label, and says nothing useful; the tool names the check digit.
    const Outcome misread = Do({QStringLiteral("scan"), QStringLiteral("2312345012501")});
    EXPECT_EQ(2, misread.exit);
    EXPECT_TRUE(misread.err.contains(QStringLiteral("check digit is wrong (1, should be 0)")))
        << misread.err.toStdString();
    EXPECT_TRUE(misread.out.isEmpty());
    // A prefix added on file makes its labels checked too; other codes are only not found.
    ASSERT_EQ(0, Do({QStringLiteral("prefix"), QStringLiteral("add"), QStringLiteral("3"),
                     QStringLiteral("21"), QStringLiteral("--kind"), QStringLiteral("price")})
                     .exit);
    EXPECT_EQ(2, Do({QStringLiteral("scan"), QStringLiteral("2100000012341")}).exit);
    const Outcome packaged = Do({QStringLiteral("scan"), QStringLiteral("5900000000016")});
    EXPECT_EQ(1, packaged.exit);
    EXPECT_TRUE(packaged.err.contains(QStringLiteral("check digit is wrong")));
}

TEST_F(Articlectl, SearchSaysHowManyItFoundAndFoldsDiacritics) {
    ASSERT_EQ(0, Do({QStringLiteral("import"), pricelist}).exit);
    // The register's order: prefix matches first, then the rest, names before barcodes.
    const QJsonObject wo =
        Do({QStringLiteral("search"), QStringLiteral("wo"), QStringLiteral("--json")})
            .Json()
            .object();
    EXPECT_EQ(
        QStringList({QStringLiteral("Woda mineralna 1,5 l"), QStringLiteral("Piwo Żywiec 0,5 l"),
                     QStringLiteral("Wino czerwone wytrawne")}),
        names(wo[QStringLiteral("articles")].toArray()));
    EXPECT_EQ(3, wo[QStringLiteral("found")].toInt());
    EXPECT_EQ(3, wo[QStringLiteral("shown")].toInt());
    const QJsonObject two =
        Do({QStringLiteral("search"), QStringLiteral("wo"), QStringLiteral("--limit"),
            QStringLiteral("2"), QStringLiteral("--json")})
            .Json()
            .object();
    EXPECT_EQ(
        QStringList({QStringLiteral("Woda mineralna 1,5 l"), QStringLiteral("Piwo Żywiec 0,5 l")}),
        names(two[QStringLiteral("articles")].toArray()));
    EXPECT_EQ(3, two[QStringLiteral("found")].toInt());

    // Cut: how many were found and how many shown, and --limit.
    const Outcome cut = Do({QStringLiteral("search"), QStringLiteral("5900"),
                            QStringLiteral("--limit"), QStringLiteral("4")});
    EXPECT_EQ(0, cut.exit);
    EXPECT_TRUE(
        cut.out.endsWith(QStringLiteral("\n9 found, first 4 shown (--limit N shows more, "
                                        "--limit 0 all)\n")))
        << cut.out.toStdString();
    const QJsonObject all =
        Do({QStringLiteral("search"), QStringLiteral("5900"), QStringLiteral("--limit"),
            QStringLiteral("0"), QStringLiteral("--json")})
            .Json()
            .object();
    EXPECT_EQ(9, all[QStringLiteral("found")].toInt());
    EXPECT_EQ(9, all[QStringLiteral("articles")].toArray().size());
    EXPECT_EQ(2, Do({QStringLiteral("search"), QStringLiteral("--limit"), QStringLiteral("-1"),
                     QStringLiteral("x")})
                     .exit);

    // More than the default limit of 200.
    for (int i = 0; i < 3; ++i) {
        QByteArray csv = "plu,name,price\n";
        for (int plu = 1000 + i * 100; plu < 1100 + i * 100; ++plu) {
            csv += QByteArray::number(plu) + ",Zupa nr " + QByteArray::number(plu) + ",1.00\n";
        }
        WriteFile(QStringLiteral("zupy.csv"), csv);
        ASSERT_EQ(0, Do({QStringLiteral("import"), Path(QStringLiteral("zupy.csv"))}).exit);
    }
    const Outcome many = Do({QStringLiteral("search"), QStringLiteral("zupa")});
    EXPECT_TRUE(
        many.out.endsWith(QStringLiteral("300 found, first 200 shown (--limit N shows "
                                         "more, --limit 0 all)\n")))
        << many.out.right(200).toStdString();

    // Without diacritics only with --fold, which finds them in names and in what was typed.
    ASSERT_EQ(0, Do({QStringLiteral("add"), QStringLiteral("--name"),
                     QStringLiteral("Piwo Łódzkie jasne")})
                     .exit);
    EXPECT_EQ(1, Do({QStringLiteral("search"), QStringLiteral("zolty")}).exit);
    const QJsonObject zolty = Do({QStringLiteral("search"), QStringLiteral("--fold"),
                                  QStringLiteral("zolty"), QStringLiteral("--json")})
                                  .Json()
                                  .object();
    EXPECT_EQ(QStringList{QStringLiteral("Ser żółty Gouda")},
              names(zolty[QStringLiteral("articles")].toArray()));
    EXPECT_EQ(QStringList{QStringLiteral("Piwo Łódzkie jasne")},
              names(Do({QStringLiteral("search"), QStringLiteral("--fold"), QStringLiteral("LODZ"),
                        QStringLiteral("--json")})
                        .Json()[QStringLiteral("articles")]
                        .toArray()));
    const QJsonObject piwo = Do({QStringLiteral("search"), QStringLiteral("--fold"),
                                 QStringLiteral("PIWÓ"), QStringLiteral("--json")})
                                 .Json()
                                 .object();
    EXPECT_EQ(
        QStringList({QStringLiteral("Piwo Łódzkie jasne"), QStringLiteral("Piwo Żywiec 0,5 l")}),
        names(piwo[QStringLiteral("articles")].toArray()));
    // The same order and count as the register's search where diacritics play no part.
    for (const QString& text : {QStringLiteral("wo"), QStringLiteral("zupa nr 11_")}) {
        EXPECT_EQ(
            Do({QStringLiteral("search"), QStringLiteral("--limit"), QStringLiteral("0"), text})
                .out,
            Do({QStringLiteral("search"), QStringLiteral("--limit"), QStringLiteral("0"),
                QStringLiteral("--fold"), text})
                .out)
            << text.toStdString();
    }
}

TEST_F(Articlectl, TamperedCodesAndNamesFindNothing) {
    ASSERT_EQ(0, Do({QStringLiteral("import"), pricelist}).exit);
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
        EXPECT_EQ(1, Do({QStringLiteral("search"), text}).exit);
        EXPECT_TRUE(Do({QStringLiteral("prefix"), QStringLiteral("classify"), text})
                        .out.endsWith(QStringLiteral(": none\n")));
    }
    EXPECT_EQ(before, Do({QStringLiteral("list"), QStringLiteral("--json")}).out);
}

TEST_F(Articlectl, BarcodesAreAddedListedAndDeleted) {
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
                                    .Json()[QStringLiteral("barcodes")]
                                    .toArray();
    ASSERT_EQ(2, barcodes.size());
    EXPECT_TRUE(barcodes[0][QStringLiteral("main")].toBool());
    EXPECT_EQ(3, Do({QStringLiteral("barcode"), QStringLiteral("delete"),
                     QStringLiteral("5900000000060")})
                     .exit);
    EXPECT_EQ(0, Do({QStringLiteral("barcode"), QStringLiteral("delete"),
                     QStringLiteral("4006381333931")})
                     .exit);
    EXPECT_EQ(1, Do({QStringLiteral("barcode"), QStringLiteral("delete"),
                     QStringLiteral("4006381333931")})
                     .exit);
    for (const char* sub : {"add", "list", "delete", "walk"}) {
        const Outcome help =
            Do({QStringLiteral("barcode"), QString::fromLatin1(sub), QStringLiteral("--help")});
        EXPECT_EQ(0, help.exit) << sub;
        EXPECT_TRUE(
            help.out.contains(QStringLiteral("\n  articlectl barcode ") + QString::fromLatin1(sub)))
            << help.out.toStdString();
    }
}

// check on a whole catalogue, then on copies of it each holding one problem written behind the
// library's back: each is named on its own line with the articles involved.
TEST_F(Articlectl, CheckPassesAWholeCatalogueAndNamesEachProblem) {
    ASSERT_EQ(0, Do({QStringLiteral("import"), pricelist}).exit);
    const QByteArray whole = ReadFile(QStringLiteral("shop.db"));
    const Outcome clean = Do({QStringLiteral("check")});
    EXPECT_EQ(0, clean.exit) << clean.out.toStdString();
    EXPECT_TRUE(clean.out.endsWith(QStringLiteral(": no problems (15 articles, 14 barcodes)\n")))
        << clean.out.toStdString();
    EXPECT_EQ(whole, ReadFile(QStringLiteral("shop.db"))) << "check changes nothing";

    const QString plu1 = QStringLiteral("(SELECT id FROM Article WHERE plu_no = 1)");
    const struct {
        QString inject;
        QString line;
    } problems[] = {
        {QStringLiteral("INSERT INTO ArticleBarcode (article_id, barcode, is_main) "
                        "VALUES (777, '5901234123457', 0)"),
         QStringLiteral("barcode_without_article: barcode 5901234123457 (barcode row 15) belongs "
                        "to article id 777, which is not on file")},
        {QStringLiteral("DELETE FROM ArticleBarcode WHERE is_main = 1 AND article_id = ") + plu1,
         QStringLiteral("main_barcode_without_row: PLU 1 (id 1): main barcode 5900000000015 has "
                        "no barcode row")},
        {QStringLiteral("INSERT INTO ArticleBarcode (article_id, barcode, is_main) "
                        "SELECT id, '4000000000006', 1 FROM Article WHERE plu_no = 1"),
         QStringLiteral("main_row_without_main_barcode: PLU 1 (id 1): barcode row 15 holds main "
                        "barcode 4000000000006, but the article's main barcode is 5900000000015")},
        {QStringLiteral("INSERT INTO ArticleBarcode (article_id, barcode, is_main) "
                        "SELECT id, '5900000000015', 0 FROM Article WHERE plu_no = 10"),
         QStringLiteral("shared_barcode: barcode 5900000000015 is on file 2 times: PLU 1, PLU 10; "
                        "a scan of it is refused as ambiguous")},
        {QStringLiteral("INSERT INTO ArticleBarcode (article_id, barcode, is_main) "
                        "SELECT id, '5901234123450', 0 FROM Article WHERE plu_no = 1"),
         QStringLiteral("check_digit: PLU 1: barcode 5901234123450 (barcode row 15) has a wrong "
                        "check digit: it should end in 7")},
        {QStringLiteral("DELETE FROM Dept WHERE dept_id = 50"),
         QStringLiteral("departments: departments are not numbered 1 to 98: 1 missing (50)")},
        {QStringLiteral("UPDATE Article SET dept_no = 120 WHERE plu_no IN (10, 1)"),
         QStringLiteral("article_department: department 120 is not on file, and 2 articles use "
                        "it: PLU 1, PLU 10")},
        {QStringLiteral("DELETE FROM TaxRates WHERE tax_rate_id = 6"),
         QStringLiteral("tax_rates: tax rate 6 is missing")},
        {QStringLiteral("UPDATE Article SET tax_rate_no = 5 WHERE plu_no = 1"),
         QStringLiteral(
             "article_tax_rate: tax rate 5 is not in use, and 1 article uses it: PLU 1")},
        {QStringLiteral("UPDATE Article SET art_name = 'Chleb razowy' WHERE plu_no = 1"),
         QStringLiteral("search_notes: 1 article written without the library is not in the "
                        "search index yet (article id 1)")},
    };
    int copy = 0;
    for (const auto& problem : problems) {
        const QString name = QStringLiteral("copy%1.db").arg(++copy);
        WriteFile(name, whole);
        {
            RawSqlite raw(Path(name));
            ASSERT_EQ(0, raw.Exec(problem.inject)) << problem.inject.toStdString();
        }
        const Outcome found = Do({QStringLiteral("check")}, name);
        EXPECT_EQ(1, found.exit) << problem.inject.toStdString();
        EXPECT_TRUE(found.out.startsWith(problem.line)) << found.out.toStdString();
        EXPECT_TRUE(found.out.endsWith(QStringLiteral(": 1 problem found\n")))
            << found.out.toStdString();
    }
    const QJsonObject json =
        Do({QStringLiteral("check"), QStringLiteral("--json")}, QStringLiteral("copy4.db"))
            .Json()
            .object();
    EXPECT_FALSE(json[QStringLiteral("ok")].toBool(true));
    EXPECT_EQ(QJsonArray({1, 10}),
              json[QStringLiteral("problems")][0][QStringLiteral("plus")].toArray());
}

// A page of garbage in the file: reads may still answer, check must not pass it. The page in
// the middle of this file holds part of the schema, so nothing can be read (4); the first page
// of the articles' table leaves the rest readable, and the table is named (1).
TEST_F(Articlectl, CheckNeverPassesADamagedFile) {
    ASSERT_EQ(0, Do({QStringLiteral("demo")}, QStringLiteral("demo.db")).exit);
    int articlePage = 0;
    {
        RawSqlite raw(Path(QStringLiteral("demo.db")));
        ASSERT_EQ(0, raw.Exec(QStringLiteral("VACUUM")));  // every page in use
        articlePage = static_cast<int>(raw.Integer(
            QStringLiteral("SELECT rootpage FROM sqlite_master WHERE name = 'Article'")));
    }
    const QByteArray whole = ReadFile(QStringLiteral("demo.db"));
    constexpr int pageSize = 4096;
    ASSERT_GT(whole.size(), 20 * pageSize);
    for (const int page : {whole.size() / pageSize / 2 + 1, articlePage}) {
        QByteArray file = whole;
        for (int i = 0; i < pageSize; ++i) {
            file[(page - 1) * pageSize + i] = static_cast<char>((i * 7919 + 13) % 251);
        }
        WriteFile(QStringLiteral("damaged.db"), file);
        const Outcome damaged = Do({QStringLiteral("check")}, QStringLiteral("damaged.db"));
        EXPECT_TRUE(damaged.exit == 1 || damaged.exit == 4) << page << ": " << damaged.exit;
        EXPECT_TRUE(damaged.err.contains(QStringLiteral("malformed")) ||
                    damaged.out.startsWith(QStringLiteral("damaged: ")))
            << page << ": " << damaged.out.toStdString() << damaged.err.toStdString();
        if (page == articlePage) {
            EXPECT_EQ(1, damaged.exit);
            EXPECT_TRUE(damaged.out.startsWith(QStringLiteral("damaged: table Article: ")))
                << damaged.out.toStdString();
        }
        EXPECT_EQ(file, ReadFile(QStringLiteral("damaged.db")));
    }

    WriteFile(QStringLiteral("notes.db"), QByteArray(5000, 'n'));
    const Outcome notDatabase = Do({QStringLiteral("check")}, QStringLiteral("notes.db"));
    EXPECT_EQ(4, notDatabase.exit);
    EXPECT_TRUE(notDatabase.err.contains(QStringLiteral("file is not a database")));
    MakeReceipts();
    EXPECT_EQ(4, Do({QStringLiteral("check")}, QStringLiteral("receipts.db")).exit);
    EXPECT_EQ(4, Do({QStringLiteral("check")}, QStringLiteral("missing.db")).exit);
    EXPECT_FALSE(QFile::exists(Path(QStringLiteral("missing.db"))));
}
