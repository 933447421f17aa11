// Values checked where they enter (barcodes, names, prices) and the settings tables (dept,
// tax, prefix) as a shop technician meets them.

#include "ArticlectlFixture.h"

TEST_F(Articlectl, DoubtfulBarcodesNamesAndPricesAreRefusedWithWhatToDo) {
    ASSERT_EQ(0, Do({"add", "--name", "Woda", "--barcode", "5901234123457"}).exit);
    struct Case {
        const char* code;
        const char* hint;
    };
    const Case refused[] = {
        {"5901234123458", "it should end in 7 (5901234123457)"},
        {"96385075", "it should end in 4 (96385074)"},
        {"5.9E+12", "5.9E+12 looks like a spreadsheet number: format the column as text"},
        {"59O1234123457", "the letter O among its digits: did you mean 5901234123457?"},
        {"036000291453", "it should end in 2 (036000291452)"},
        {"590 1234 123457", "holds a blank"},
    };
    for (const Case& bad : refused) {
        for (const QStringList& command : {words({"add", "--name", "Sok", "--barcode", bad.code}),
                                           words({"barcode", "add", "1", bad.code})}) {
            EXPECT_TRUE(Says(2, Do(command), bad.hint)) << command.join(' ').toStdString();
        }
    }
    EXPECT_EQ(1, Count());
    EXPECT_EQ(1, Json({"barcode", "list", "1", "--json"})["count"].toInt());

    // An internal code, an EAN-8, a UPC-A and a weight label's article part go in; a scanned
    // label then finds its article.
    EXPECT_EQ(0, Do({"barcode", "add", "1", "ABC-123"}).exit);
    EXPECT_EQ(0, Do({"barcode", "add", "1", "96385074"}).exit);
    EXPECT_EQ(0, Do({"barcode", "add", "1", "036000291452"}).exit);
    ASSERT_EQ(0, Do({"add", "--name", "Ser", "--unit", "kg", "--barcode", "2312345000002"}).exit);
    const QJsonObject scanned = Json({"scan", "2312345012500", "--json"});
    EXPECT_EQ(2, scanned["article"]["plu"].toInt());

    // Characters, not UTF-16 units, and one stored form of a name typed two ways.
    const QString emoji = QString::fromUtf8("\xF0\x9F\x98\x80");
    EXPECT_TRUE(
        Says(2, Do(words({"add", "--name"}) << emoji.repeated(41)), "the name has 41 characters"));
    EXPECT_EQ(0, Do(words({"add", "--name"}) << emoji.repeated(40)).exit);
    const QString composed = QString::fromUtf8("Żółć");
    const QString decomposed = composed.normalized(QString::NormalizationForm_D);
    ASSERT_EQ(0, Do(words({"add", "--plu", "10", "--name"}) << decomposed).exit);
    EXPECT_EQ(composed, Json({"show", "10", "--json"})["name"].toString());
    EXPECT_EQ(3, Do(words({"add", "--name"}) << composed).exit) << "the same name, composed";
    for (const QStringList& find : {words({"search"}), words({"show", "--name"})}) {
        EXPECT_EQ(0, Do(find + QStringList{decomposed, "--json"}).exit)
            << find.first().toStdString() << ": typed decomposed, found composed";
    }

    // A decimal comma is read; a thousands separator is not guessed at.
    ASSERT_EQ(0, Do({"price", "set", "1", "12,99"}).exit);
    for (const char* price : {"1.299,00", "1 299", "1,299"}) {
        const Outcome outcome = Do({"price", "set", "1", price});
        EXPECT_EQ(2, outcome.exit) << price;
        EXPECT_TRUE(Has(outcome.err, "thousands separator")) << price;
    }
    EXPECT_EQ(12.99, Json({"show", "1", "--json"})["price"].toDouble());
}

TEST_F(Articlectl, PrefixEntriesAreNeverReplacedOrOverlappedUnasked) {
    // With --verbose Qt's own warnings would reach the terminal too: none may come.
    const auto prefix = [this](std::initializer_list<const char*> list) {
        const Outcome outcome = Do(words({"--verbose", "prefix"}) + words(list));
        EXPECT_FALSE(Has(outcome.err, "QCommandLineParser"));
        return outcome;
    };
    ASSERT_EQ(0, prefix({"add", "4", "21", "--kind", "none"}).exit);
    const QJsonObject classified = prefix({"classify", "21", "--json"}).Json().object();
    EXPECT_EQ("none", classified["kind"].toString());
    EXPECT_EQ(4, classified["id"].toInt());
    EXPECT_EQ(QJsonArray({QJsonObject{{"id", 4}, {"prefix", "21"}, {"kind", "none"}}}),
              prefix({"list", "--kind", "none", "--json"}).Json()["prefixes"].toArray());

    const QString before = prefix({"list", "--json"}).out;
    const Outcome taken = prefix({"add", "1", "28", "--kind", "price"});
    EXPECT_EQ(3, taken.exit);
    EXPECT_TRUE(Has(taken.err, "--replace"));
    EXPECT_EQ(3, prefix({"add", "8", "23", "--kind", "price", "--overlap"}).exit)
        << "23 is entry 6 already";
    const Outcome overlapping = prefix({"add", "8", "2", "--kind", "weight"});
    EXPECT_EQ(3, overlapping.exit);
    EXPECT_TRUE(Has(overlapping.err, "overlaps entry 1 (27, price)"));
    const Outcome missing = prefix({"remove", "999"});
    EXPECT_EQ(1, missing.exit);
    EXPECT_TRUE(Has(missing.err, "there is no prefix entry 999"));
    EXPECT_EQ(before, prefix({"list", "--json"}).out);

    EXPECT_EQ(0, prefix({"add", "1", "28", "--kind", "price", "--replace"}).exit);
    EXPECT_EQ(0, prefix({"add", "8", "2", "--kind", "weight", "--overlap"}).exit);
    EXPECT_EQ("28: price (entry 1)\n", prefix({"classify", "28"}).out);
    EXPECT_EQ(1, prefix({"classify", "27"}).exit);
    EXPECT_EQ(0, prefix({"remove", "8"}).exit);
    ASSERT_EQ(0, prefix({"reset"}).exit);
    EXPECT_EQ(4, prefix({"list", "--json"}).Json()["count"].toInt());
}

TEST_F(Articlectl, DepartmentsAndTaxRatesSpeakInNumbersAndCountTheirArticles) {
    ASSERT_EQ(0, Do({"dept", "set", "5", "--name", "Napoje", "--max-discount", "12,5"}).exit);
    const QJsonObject dept = Json({"dept", "show", "5", "--json"});
    EXPECT_EQ("Napoje", dept["name"].toString());
    EXPECT_EQ(12.5, dept["max_discount"].toDouble());
    EXPECT_EQ(100, dept["max_surcharge"].toDouble());
    EXPECT_TRUE(Has(Do({"dept", "show", "15"}).out, "Grupa towarowa 15"));

    ASSERT_EQ(0, Do({"add", "--name", "Chleb", "--tax", "A"}).exit);
    ASSERT_EQ(0, Do({"add", "--name", "Bułka", "--tax", "A"}).exit);
    const Outcome set = Do({"tax", "set", "A", "8"});
    ASSERT_EQ(0, set.exit);
    EXPECT_EQ("Tax rate A set to 8.00 % (was 23.00 %); 2 articles use it.\n", set.out);
    EXPECT_TRUE(Says(3, Do({"tax", "set", "A", "unused"}), "2 articles use it"));
    EXPECT_EQ(3, Do({"tax", "reset"}).exit);
    ASSERT_EQ(0, Do({"tax", "set", "E", "12.5"}).exit);
    const QJsonArray rates = Json({"tax", "list", "--json"})["tax_rates"].toArray();
    ASSERT_EQ(7, rates.size());
    EXPECT_EQ(8, rates[0]["percent"].toDouble());
    EXPECT_EQ(2, rates[0]["articles"].toInt());
    EXPECT_EQ(12.5, rates[4]["percent"].toDouble());
    EXPECT_FALSE(rates[5]["in_use"].toBool());
    EXPECT_TRUE(rates[6]["exempt"].toBool());
    EXPECT_TRUE(rates[6]["percent"].isNull());
}
