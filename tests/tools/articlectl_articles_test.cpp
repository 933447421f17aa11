// articlectl's article commands, search, scan, barcodes and check, run as a process.

#include "ArticlectlFixture.h"
#include "QtPrinters.h"
#include "RawSqlite.h"

namespace {

QStringList names(const QJsonObject& found) {
    QStringList list;
    for (const QJsonValue& article : found["articles"].toArray()) {
        list.append(article["name"].toString());
    }
    return list;
}

}  // namespace

TEST_F(Articlectl, ArticlesAndTheirBarcodesAreAddedShownAndChanged) {
    const Outcome added =
        Do({"add", "--name", "Ser żółty Gouda", "--price", "32.99", "--unit", "kg", "--dept", "2",
            "--barcode", "2312345000002", "--extra-barcode", "5901234123457"});
    ASSERT_EQ(0, added.exit) << added.err.toStdString();
    EXPECT_TRUE(Has(added.out, "PLU 1  Ser żółty Gouda  32.99 / kg"));
    const QJsonObject shown = Json({"show", "1", "--json"});
    EXPECT_EQ("Ser żółty Gouda", shown["name"].toString());
    EXPECT_EQ(QJsonValue(32.99), shown["price"]) << "money as a number";
    EXPECT_EQ("kg", shown["unit_name"].toString());
    EXPECT_EQ(QJsonArray({"5901234123457"}), shown["extra_barcodes"].toArray());
    for (const QStringList& key : {words({"--name", "SER ŻÓŁTY%"}),
                                   words({"--barcode", "5901234123457"}), words({"--id", "1"})}) {
        EXPECT_EQ(1, Do(words({"show", "--json"}) + key).Json()["plu"].toInt())
            << key.join(' ').toStdString();
    }
    // A second barcode once; the main one stays while the article does.
    ASSERT_EQ(0, Do({"barcode", "add", "1", "4006381333931"}).exit);
    EXPECT_EQ(3, Do({"barcode", "add", "1", "4006381333931"}).exit);
    const QJsonArray barcodes = Json({"barcode", "list", "1", "--json"})["barcodes"].toArray();
    ASSERT_EQ(3, barcodes.size());
    EXPECT_TRUE(barcodes[0]["main"].toBool());
    EXPECT_EQ(3, Do({"barcode", "delete", "2312345000002"}).exit);
    EXPECT_EQ(0, Do({"barcode", "delete", "4006381333931"}).exit);
    EXPECT_EQ(1, Do({"barcode", "delete", "4006381333931"}).exit);

    EXPECT_EQ(3, Do({"add", "--plu", "1", "--name", "Inny"}).exit);
    EXPECT_EQ(3, Do({"add", "--name", "Ser żółty Gouda"}).exit);
    ASSERT_EQ(0, Do({"edit", "1", "--price", "29.99", "--plu", "7"}).exit);
    EXPECT_EQ(1, Do({"show", "1"}).exit);
    EXPECT_EQ(29.99, Json({"show", "7", "--json"})["price"].toDouble());
}

// Every command that prints an article prints the same shape, numbers as numbers; a scan reads
// what a label holds and names a misread check digit; tampered text finds nothing.
TEST_F(Articlectl, ArticlesHaveOneJsonShapeAndScansReadLabels) {
    ASSERT_EQ(0, Do({"import", pricelist}).exit);
    const QString catalogue = Do({"list", "--json"}).out;
    const QJsonObject shown = Json({"show", "11", "--json"});
    EXPECT_TRUE(shown["price"].isDouble());
    EXPECT_EQ(11, shown["plu"].toInt(-1));
    EXPECT_EQ(3, shown["tax_rate"].toInt(-1));
    EXPECT_TRUE(shown["handy_list"].isBool());
    const QJsonObject list = Json({"list", "11", "11", "--json"});
    EXPECT_EQ(1, list["count"].toInt());
    for (const QJsonObject& same :
         {list["articles"][0].toObject(), Json({"next", "10", "--json"}),
          Json({"prev", "12", "--json"}),
          Json({"scan", "2312345000002", "--json"})["article"].toObject(),
          Json({"search", "Gouda", "--json"})["articles"][0].toObject()}) {
        EXPECT_EQ(shown, same);
    }
    const QJsonObject barcodes = Json({"barcode", "list", "2", "--json"});
    EXPECT_EQ(2, barcodes["count"].toInt());
    EXPECT_EQ(QJsonObject({{"id", 3},
                           {"article_id", 2},
                           {"plu", 2},
                           {"barcode", "5900000000039"},
                           {"main", false}}),
              barcodes["barcodes"][1].toObject());
    EXPECT_EQ(barcodes["barcodes"][1], Json({"barcode", "walk", "--json"})["barcodes"][0]);

    // Labels: weight and price read from the code, the article found by its part.
    const QJsonObject weighed = Json({"scan", "2312345012500", "--json"});
    const QJsonObject label = weighed["label"].toObject();
    EXPECT_EQ("weight", label["kind"].toString());
    EXPECT_EQ(QJsonValue(1.25), label["weight_kg"]);
    EXPECT_EQ(11, weighed["article"]["plu"].toInt());
    EXPECT_EQ(QJsonValue(41.24), weighed["to_pay"]) << "1.250 kg at 32.99";
    EXPECT_TRUE(Has(Do({"scan", "2912347015990"}).out, "To pay: 15.99"));
    EXPECT_TRUE(Json({"scan", "5900000000015", "--json"})["label"].isNull());
    EXPECT_EQ(1, Do({"scan", "5909999999996"}).exit);

    // The same weight label with its last digit misread: the register does not take it as a
    // label, and says nothing useful; the tool names the check digit.
    const Outcome misread = Do({"scan", "2312345012501"});
    EXPECT_EQ(2, misread.exit);
    EXPECT_TRUE(Has(misread.err, "check digit is wrong (1, should be 0)"));
    EXPECT_TRUE(misread.out.isEmpty());
    // A prefix added on file makes its labels checked too; other codes are only not found.
    ASSERT_EQ(0, Do({"prefix", "add", "3", "21", "--kind", "price"}).exit);
    EXPECT_EQ(2, Do({"scan", "2100000012341"}).exit);
    EXPECT_TRUE(Says(1, Do({"scan", "5900000000016"}), "check digit is wrong"));

    for (const char* text :
         {"\" OR 1=1 LIMIT 1 --", "x\" UNION SELECT 1,2,\"Foo\",1,1,0,1,0,\"\",1,0,0,0,0,0,0 --",
          "x\" AND like(printf('%.*c', 100000000, 'a'), 'b') --",
          "27\"; DELETE FROM Article; --"}) {
        const Outcome scan = Do({"scan", text});
        EXPECT_EQ(1, scan.exit) << text;
        EXPECT_FALSE(Has(scan.out, "To pay"));
        EXPECT_EQ(1, Do({"show", "--name", text}).exit);
        EXPECT_EQ(1, Do({"search", text}).exit);
        EXPECT_TRUE(Ends(Do({"prefix", "classify", text}).out, ": none\n"));
    }
    EXPECT_EQ(catalogue, Do({"list", "--json"}).out);
}

TEST_F(Articlectl, NavigationListsAndCounts) {
    for (const char* plu : {"5", "10", "20"}) {
        ASSERT_EQ(0, Do(words({"add", "--plu", plu, "--name"})
                        << QStringLiteral("Artykuł ") + QString::fromLatin1(plu))
                         .exit);
    }
    const QJsonArray list = Json({"list", "6", "20", "--json"})["articles"].toArray();
    ASSERT_EQ(2, list.size());
    EXPECT_EQ(10, list[0]["plu"].toInt());
    EXPECT_EQ("Artykuł 20", list[1]["name"].toString());
    EXPECT_EQ(1, Do({"list", "21"}).exit);
    EXPECT_EQ(2, Do({"list", "20", "6"}).exit);
    EXPECT_TRUE(Starts(Do({"next", "5"}).out, "PLU 10 "));
    EXPECT_EQ(1, Do({"prev", "5"}).exit);
    EXPECT_EQ("1\n", Do({"first-free-plu"}).out);
    EXPECT_EQ("2\n", Do({"count", "5", "10"}).out);
    EXPECT_EQ(2, Do({"count", "10", "5"}).exit);
}

TEST_F(Articlectl, SearchSaysHowManyItFoundAndFoldsDiacritics) {
    ASSERT_EQ(0, Do({"import", pricelist}).exit);
    // The register's order: prefix matches first, then the rest, names before barcodes.
    const QJsonObject wo = Json({"search", "wo", "--json"});
    EXPECT_EQ(words({"Woda mineralna 1,5 l", "Piwo Żywiec 0,5 l", "Wino czerwone wytrawne"}),
              names(wo));
    EXPECT_EQ(3, wo["found"].toInt());
    EXPECT_EQ(3, wo["shown"].toInt());
    const QJsonObject two = Json({"search", "wo", "--limit", "2", "--json"});
    EXPECT_EQ(words({"Woda mineralna 1,5 l", "Piwo Żywiec 0,5 l"}), names(two));
    EXPECT_EQ(3, two["found"].toInt());

    // Cut: how many were found and how many shown, and --limit.
    const Outcome cut = Do({"search", "5900", "--limit", "4"});
    EXPECT_EQ(0, cut.exit);
    EXPECT_TRUE(Ends(cut.out,
                     "\n9 found, first 4 shown (--limit N shows more, "
                     "--limit 0 all)\n"));
    const QJsonObject all = Json({"search", "5900", "--limit", "0", "--json"});
    EXPECT_EQ(9, all["found"].toInt());
    EXPECT_EQ(9, names(all).size());
    EXPECT_EQ(2, Do({"search", "--limit", "-1", "x"}).exit);

    // More than the default limit of 200.
    QByteArray csv = "plu,name,price\n";
    for (int plu = 1000; plu < 1300; ++plu) {
        csv += QByteArray::number(plu) + ",Zupa nr " + QByteArray::number(plu) + ",1.00\n";
    }
    WriteFile("zupy.csv", csv);
    ASSERT_EQ(0, Do({"import", "zupy.csv"}).exit);
    EXPECT_TRUE(Ends(Do({"search", "zupa"}).out,
                     "\n300 found, first 200 shown (--limit N shows more, --limit 0 all)\n"));

    // Without diacritics only with --fold, which finds them in names and in what was typed.
    ASSERT_EQ(0, Do({"add", "--name", "Piwo Łódzkie jasne"}).exit);
    EXPECT_EQ(1, Do({"search", "zolty"}).exit);
    EXPECT_EQ(words({"Ser żółty Gouda"}), names(Json({"search", "--fold", "zolty", "--json"})));
    EXPECT_EQ(words({"Piwo Łódzkie jasne"}), names(Json({"search", "--fold", "LODZ", "--json"})));
    EXPECT_EQ(words({"Piwo Łódzkie jasne", "Piwo Żywiec 0,5 l"}),
              names(Json({"search", "--fold", "PIWÓ", "--json"})));
    // The same order and count as the register's search where diacritics play no part.
    for (const char* text : {"wo", "zupa nr 11_"}) {
        EXPECT_EQ(Do({"search", "--limit", "0", text}).out,
                  Do({"search", "--limit", "0", "--fold", text}).out)
            << text;
    }
}

// check on a whole catalogue, then on copies of it each holding one problem written behind the
// library's back: each is named on its own line with the articles involved.
TEST_F(Articlectl, CheckPassesAWholeCatalogueAndNamesEachProblem) {
    ASSERT_EQ(0, Do({"import", pricelist}).exit);
    const QByteArray whole = ReadFile("shop.db");
    const Outcome clean = Do({"check"});
    EXPECT_EQ(0, clean.exit) << clean.out.toStdString();
    EXPECT_TRUE(Ends(clean.out, ": no problems (15 articles, 14 barcodes)\n"));
    EXPECT_EQ(whole, ReadFile("shop.db")) << "check changes nothing";

    const struct {
        const char* inject;
        const char* line;
    } problems[] = {
        {"INSERT INTO ArticleBarcode (article_id, barcode, is_main) "
         "VALUES (777, '5901234123457', 0)",
         "barcode_without_article: barcode 5901234123457 (barcode row 15) belongs to article id "
         "777, which is not on file"},
        {"DELETE FROM ArticleBarcode WHERE is_main = 1 AND article_id = "
         "(SELECT id FROM Article WHERE plu_no = 1)",
         "main_barcode_without_row: PLU 1 (id 1): main barcode 5900000000015 has no barcode row"},
        {"INSERT INTO ArticleBarcode (article_id, barcode, is_main) "
         "SELECT id, '4000000000006', 1 FROM Article WHERE plu_no = 1",
         "main_row_without_main_barcode: PLU 1 (id 1): barcode row 15 holds main barcode "
         "4000000000006, but the article's main barcode is 5900000000015"},
        {"INSERT INTO ArticleBarcode (article_id, barcode, is_main) "
         "SELECT id, '5900000000015', 0 FROM Article WHERE plu_no = 10",
         "shared_barcode: barcode 5900000000015 is on file 2 times: PLU 1, PLU 10; a scan of it "
         "is refused as ambiguous"},
        {"INSERT INTO ArticleBarcode (article_id, barcode, is_main) "
         "SELECT id, '5901234123450', 0 FROM Article WHERE plu_no = 1",
         "check_digit: PLU 1: barcode 5901234123450 (barcode row 15) has a wrong check digit: it "
         "should end in 7"},
        {"DELETE FROM Dept WHERE dept_id = 50",
         "departments: departments are not numbered 1 to 98: 1 missing (50)"},
        {"UPDATE Article SET dept_no = 120 WHERE plu_no IN (10, 1)",
         "article_department: department 120 is not on file, and 2 articles use it: PLU 1, PLU "
         "10"},
        {"DELETE FROM TaxRates WHERE tax_rate_id = 6", "tax_rates: tax rate 6 is missing"},
        {"UPDATE Article SET tax_rate_no = 5 WHERE plu_no = 1",
         "article_tax_rate: tax rate 5 is not in use, and 1 article uses it: PLU 1"},
        {"UPDATE Article SET art_name = 'Chleb razowy' WHERE plu_no = 1",
         "search_notes: 1 article written without the library is not in the search index yet "
         "(article id 1)"},
    };
    int copy = 0;
    for (const auto& problem : problems) {
        const QString name = QStringLiteral("copy%1.db").arg(++copy);
        WriteFile(name, whole);
        ASSERT_EQ(0, RawSqlite(Path(name)).Exec(QString::fromUtf8(problem.inject)))
            << problem.inject;
        const Outcome found = Do({"check"}, name);
        EXPECT_EQ(1, found.exit) << problem.inject;
        EXPECT_TRUE(Starts(found.out, problem.line));
        EXPECT_TRUE(Ends(found.out, ": 1 problem found\n"));
    }
    const QJsonObject json = Json({"check", "--json"}, "copy4.db");
    EXPECT_FALSE(json["ok"].toBool(true));
    EXPECT_EQ(QJsonArray({1, 10}), json["problems"][0]["plus"].toArray());
}

// The demo shop, then a page of garbage in it: reads may still answer, check must not pass it.
// The page in the middle of this file holds part of the schema, so nothing can be read (4); the
// first page of the articles' table leaves the rest readable, and the table is named (1).
TEST_F(Articlectl, DemoBuildsAFreshShopAndCheckNeverPassesItDamaged) {
    const QString demo = "demo.db";
    const Outcome built = Do({"demo"}, demo);
    ASSERT_EQ(0, built.exit) << built.err.toStdString();
    for (const char* says : {"Built a sample shop", "scale label, weight", "not found"}) {
        EXPECT_TRUE(Has(built.out, says));
    }
    EXPECT_EQ(300, Json({"count", "--json"}, demo)["count"].toInt());
    EXPECT_EQ(3, Do({"demo"}, demo).exit) << "only on a fresh file";
    EXPECT_TRUE(QFile::exists(Path("demo.db.log")));

    int articlePage = 0;
    {
        RawSqlite raw(Path(demo));
        ASSERT_EQ(0, raw.Exec("VACUUM"));  // every page in use
        articlePage = static_cast<int>(
            raw.Integer("SELECT rootpage FROM sqlite_master WHERE name = 'Article'"));
    }
    const QByteArray whole = ReadFile(demo);
    constexpr int pageSize = 4096;
    ASSERT_GT(whole.size(), 20 * pageSize);
    for (const int page : {whole.size() / pageSize / 2 + 1, articlePage}) {
        QByteArray file = whole;
        for (int i = 0; i < pageSize; ++i) {
            file[(page - 1) * pageSize + i] = static_cast<char>((i * 7919 + 13) % 251);
        }
        WriteFile("damaged.db", file);
        const Outcome damaged = Do({"check"}, "damaged.db");
        EXPECT_TRUE(damaged.exit == 1 || damaged.exit == 4) << page << ": " << damaged.exit;
        EXPECT_TRUE(damaged.err.contains("malformed") || damaged.out.startsWith("damaged: "))
            << page << ": " << damaged.out.toStdString() << damaged.err.toStdString();
        if (page == articlePage) {
            EXPECT_EQ(1, damaged.exit);
            EXPECT_TRUE(Starts(damaged.out, "damaged: table Article: "));
        }
        EXPECT_EQ(file, ReadFile("damaged.db"));
    }

    MakeReceipts();
    EXPECT_EQ(4, Do({"check"}, "receipts.db").exit);
    EXPECT_EQ(4, Do({"check"}, "missing.db").exit);
    EXPECT_FALSE(QFile::exists(Path("missing.db")));
}
