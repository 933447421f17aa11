// Recognition of in-store labels printed by scales.

#include "ScaleLabelRecognizer.h"
#include "DatabaseFixture.h"
#include "Globals.h"

namespace {

class SpecialBarcodeRecognizerTest : public DatabaseFixture {
protected:
    void SetUp() override {
        DatabaseFixture::SetUp();
        Raw().Exec(
            "INSERT INTO SpecialBarcodePrefixes VALUES "
            "(1, '27', 1), (2, '29', 1), (6, '23', 0), (7, '24', 0)");
    }

    // The 12 digits followed by their check digit.
    static QString ean13(const QString& twelve) {
        return twelve + QString::number(SpecialBarcodeRecognizer::Ean13CheckDigit(twelve));
    }

    SpecialBarcodeRecognizer recognizer;
};

}  // namespace

TEST_F(SpecialBarcodeRecognizerTest, CheckDigitFollowsEan13) {
    EXPECT_EQ(7, SpecialBarcodeRecognizer::Ean13CheckDigit("590123412345"));
    EXPECT_EQ(0, SpecialBarcodeRecognizer::Ean13CheckDigit("000000000000"));
    EXPECT_EQ(-1, SpecialBarcodeRecognizer::Ean13CheckDigit("59012341234a"));
    EXPECT_TRUE(SpecialBarcodeRecognizer::IsValidEan13("5901234123457"));
    EXPECT_FALSE(SpecialBarcodeRecognizer::IsValidEan13("5901234123458"));
}

TEST_F(SpecialBarcodeRecognizerTest, EachFactoryPrefixGivesItsArticleAndValue) {
    struct Case {
        const char* twelve;
        SpecialBarcodeSubjectType type;
        unsigned int value;
    };
    for (const Case& c : {Case{"271234501599", SPECIAL_BARCODE_PRICE, 1599},
                          Case{"291234500050", SPECIAL_BARCODE_PRICE, 50},
                          Case{"231234501250", SPECIAL_BARCODE_WEIGHT, 1250},
                          Case{"241234599999", SPECIAL_BARCODE_WEIGHT, 99999}}) {
        const QString scanned = ean13(c.twelve);
        SpecialBarcodeReading reading;
        ASSERT_TRUE(recognizer.Read(scanned, reading)) << c.twelve;
        EXPECT_EQ(ean13(scanned.left(7) + "00000"), reading.articleBarcode);
        EXPECT_EQ(scanned.left(2), reading.prefix);
        EXPECT_EQ(c.type, reading.type);
        EXPECT_EQ(c.value, reading.value);
        // The article barcode is itself a label of the same article: normalising is idempotent.
        QString again;
        ASSERT_TRUE(recognizer.getArticleBarcode(reading.articleBarcode, again));
        EXPECT_EQ(reading.articleBarcode, again);
    }
}

TEST_F(SpecialBarcodeRecognizerTest, OtherCodesAreLeftAlone) {
    const QString untouched = "untouched";
    for (const QString& code : QStringList{"5901234123457",   // valid EAN-13, not a store prefix
                                           "2712345015997",   // store prefix, wrong check digit
                                           "271234501599",    // 12 digits
                                           "27123450159990",  // 14 digits
                                           "27123450159a9", QString(), "27",
                                           "\"; DROP TABLE SpecialBarcodePrefixes; --"}) {
        QString out = untouched;
        EXPECT_FALSE(recognizer.getArticleBarcode(code, out)) << code.toStdString();
        EXPECT_EQ(untouched, out);
    }
    EXPECT_EQ(4, Raw().Count("SpecialBarcodePrefixes"));
    // Without a database nothing is special.
    QString out;
    const QString label = ean13("271234501599");
    G::dbArticles = nullptr;
    EXPECT_FALSE(SpecialBarcodeRecognizer(nullptr).getArticleBarcode(label, out));
    EXPECT_FALSE(recognizer.getArticleBarcode(label, out));
    G::dbArticles = articles.get();
    EXPECT_TRUE(recognizer.getArticleBarcode(label, out));
}

TEST_F(SpecialBarcodeRecognizerTest, PrefixesChangedInTheDatabaseApplyAtTheNextScan) {
    // Changed from another connection: seen once this connection has read since, as the
    // register does between scans.
    const QString label = ean13("211234500123");
    QString out;
    EXPECT_FALSE(recognizer.getArticleBarcode(label, out));
    unsigned long ignored = 0;
    auto changeElsewhere = [&](const char* sql) {
        Raw().Exec(sql);
        articles->Count("Article", ignored);
    };
    changeElsewhere("INSERT INTO SpecialBarcodePrefixes VALUES (9, '21', NULL)");
    SpecialBarcodeReading reading;
    ASSERT_TRUE(recognizer.Read(label, reading));
    EXPECT_EQ(SPECIAL_BARCODE_NONE, reading.type);
    EXPECT_EQ(123u, reading.value);
    // The longest stored prefix wins, even one reaching into the value digits.
    changeElsewhere("INSERT INTO SpecialBarcodePrefixes VALUES (10, '2112', 0)");
    ASSERT_TRUE(recognizer.Read(label, reading));
    EXPECT_EQ("2112", reading.prefix);
    EXPECT_EQ(SPECIAL_BARCODE_WEIGHT, reading.type);
    changeElsewhere("INSERT INTO SpecialBarcodePrefixes VALUES (11, '211234500', 1)");
    ASSERT_TRUE(recognizer.Read(label, reading));
    EXPECT_EQ("211234500", reading.prefix);
    EXPECT_EQ(ean13("211234500000"), reading.articleBarcode);
    changeElsewhere("DELETE FROM SpecialBarcodePrefixes WHERE prefix LIKE '21%'");
    EXPECT_FALSE(recognizer.getArticleBarcode(label, out));
    // A prefix edited in place counts as removed at once.
    const QString priced = ean13("271234501599");
    ASSERT_TRUE(recognizer.getArticleBarcode(priced, out));
    changeElsewhere("UPDATE SpecialBarcodePrefixes SET prefix = '28' WHERE id = 1");
    EXPECT_FALSE(recognizer.getArticleBarcode(priced, out));
    // Through this database, inside a transaction too, the very next scan sees the change.
    ASSERT_EQ(0, articles->BeginTransaction());
    ASSERT_EQ(0, articles->Execute("UPDATE SpecialBarcodePrefixes SET prefix = '27' WHERE id = 1",
                                   nullptr));
    EXPECT_TRUE(recognizer.getArticleBarcode(priced, out));
    ASSERT_EQ(0, articles->ClearTable("SpecialBarcodePrefixes"));
    EXPECT_FALSE(recognizer.getArticleBarcode(priced, out));
    ASSERT_EQ(0, articles->CommitTransaction());
}
