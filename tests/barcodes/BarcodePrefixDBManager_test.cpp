// The SpecialBarcodePrefixes table and the classification of a prefix.

#include "BarcodePrefixDBManager.h"
#include "ArticleBarcodeManager.h"
#include "DatabaseFixture.h"
#include "Logger.h"

namespace {

class BarcodePrefixDBManagerTest : public DatabaseFixture {
protected:
    void SetUp() override {
        DatabaseFixture::SetUp();
        ASSERT_TRUE(manager.Initialize(articles.get()));
    }

    QStringList stored() {
        return Raw().Rows(
            "SELECT id, prefix, weight_or_price FROM SpecialBarcodePrefixes ORDER BY id");
    }

    static QStringList describe(const QList<SpecialBarcodePrefix*>& prefixes) {
        QStringList described;
        for (const SpecialBarcodePrefix* prefix : prefixes) {
            described.append(QStringLiteral("%1|%2|%3")
                                 .arg(prefix->GetId())
                                 .arg(prefix->GetPrefix())
                                 .arg(static_cast<int>(prefix->GetType())));
        }
        return described;
    }

    BarcodePrefixDBManager manager;
};

}  // namespace

TEST_F(BarcodePrefixDBManagerTest, ResetLeavesTheFactoryRowsWhichLoadByKind) {
    ASSERT_EQ(0, manager.AddPrefix(4, "28", SPECIAL_BARCODE_WEIGHT));
    ASSERT_EQ(0, manager.AddPrefix(4, "28", SPECIAL_BARCODE_PRICE));
    EXPECT_EQ(QStringList({"4|28|1"}), stored()) << "an id's entry is replaced";
    ASSERT_EQ(0, manager.RemovePrefixEntry(4));
    ASSERT_EQ(0, manager.RemovePrefixEntry(4));
    EXPECT_TRUE(stored().isEmpty());

    manager.AddPrefix(3, "20", SPECIAL_BARCODE_PRICE);
    ASSERT_TRUE(manager.ResetTable());
    EXPECT_EQ(QStringList({"1|27|1", "2|29|1", "6|23|0", "7|24|0"}), stored());
    ASSERT_EQ(0, manager.AddPrefix(SpecialBarcodePrefix(9, "21", SPECIAL_BARCODE_NONE)));
    EXPECT_EQ("NULL", stored().last().section(QLatin1Char('|'), 2));
    QList<SpecialBarcodePrefix*> all;
    ASSERT_EQ(0, manager.LoadPrefixesByType(SPECIAL_BARCODE_NONE, all));
    // An entry without a kind loads as kind 0.
    EXPECT_EQ(QStringList({"1|27|1", "2|29|1", "6|23|0", "7|24|0", "9|21|0"}), describe(all));
    QList<SpecialBarcodePrefix*> list;
    ASSERT_EQ(0, manager.LoadPrefixesByType(SPECIAL_BARCODE_PRICE, list));
    EXPECT_EQ(QStringList({"1|27|1", "2|29|1"}), describe(list));
    ASSERT_EQ(0, manager.LoadPrefixesByType(SPECIAL_BARCODE_WEIGHT, list));
    EXPECT_EQ(QStringList({"1|27|1", "2|29|1", "6|23|0", "7|24|0"}), describe(list)) << "appended";
    qDeleteAll(all);
    qDeleteAll(list);

    // Only a whole prefix classifies; no kind reads as false.
    const QList<QPair<QString, SpecialBarcodeSubjectType>> cases = {
        {"27", SPECIAL_BARCODE_PRICE},           {"29", SPECIAL_BARCODE_PRICE},
        {"23", SPECIAL_BARCODE_WEIGHT},          {"24", SPECIAL_BARCODE_WEIGHT},
        {"2712345001236", SPECIAL_BARCODE_NONE}, {QString(), SPECIAL_BARCODE_NONE},
        {"21", SPECIAL_BARCODE_WEIGHT}};
    for (const auto& item : cases) {
        SpecialBarcodeSubjectType type = SPECIAL_BARCODE_PRICE;
        EXPECT_TRUE(manager.CheckSpecialBarcodeSubjectType(item.first, type));
        EXPECT_EQ(item.second, type) << item.first.toStdString();
    }
    // A failed query is told apart only by the result.
    Raw().Exec("DROP TABLE SpecialBarcodePrefixes");
    SpecialBarcodeSubjectType type = SPECIAL_BARCODE_PRICE;
    EXPECT_FALSE(manager.CheckSpecialBarcodeSubjectType("27", type));
    EXPECT_EQ(SPECIAL_BARCODE_NONE, type);
}

TEST_F(BarcodePrefixDBManagerTest, ChangedPrefixesApplyToTheNextScan) {
    ArticleSeeker seeker;
    ArticleBarcodeManager barcodes;
    ASSERT_TRUE(seeker.Initialize(articles.get()));
    ASSERT_TRUE(barcodes.Initialize(articles.get(), &seeker));
    SpecialBarcodeRecognizer* recognizer = barcodes.GetSpecialBarcodeRecognizer();
    QString out;
    EXPECT_FALSE(recognizer->getArticleBarcode("2712345001236", out));
    ASSERT_TRUE(manager.ResetTable());
    EXPECT_TRUE(recognizer->getArticleBarcode("2712345001236", out));
    EXPECT_EQ("2712345000000", out);
    ASSERT_EQ(0, manager.RemovePrefixEntry(1));
    EXPECT_FALSE(recognizer->getArticleBarcode("2712345001236", out));
}

TEST_F(BarcodePrefixDBManagerTest, FailuresAndMissingInitialisation) {
    BarcodePrefixDBManager fresh;
    QList<SpecialBarcodePrefix*> list;
    EXPECT_EQ(6, fresh.AddPrefix(1, "27", SPECIAL_BARCODE_PRICE));
    EXPECT_EQ(6, fresh.RemovePrefixEntry(1));
    EXPECT_EQ(6, fresh.LoadPrefixesByType(SPECIAL_BARCODE_NONE, list));
    EXPECT_FALSE(fresh.Initialize(nullptr));
    EXPECT_TRUE(log->IsEmpty());

    ASSERT_TRUE(manager.ResetTable());
    for (const char* event : {"INSERT", "DELETE"}) {
        Raw().FailOn("SpecialBarcodePrefixes", QString::fromLatin1(event));
    }
    log->Clear();
    EXPECT_EQ(4, manager.AddPrefix(3, "20", SPECIAL_BARCODE_PRICE));
    EXPECT_EQ(4, manager.RemovePrefixEntry(1));
    EXPECT_FALSE(manager.ResetTable());
    EXPECT_EQ(
        QStringList(
            {"BarcodePrefixDBManager: SQL error when try to insert barcode prefix to database!",
             "BarcodePrefixDBManager::RemovePrefixEntry(): SQL error when deleting prefix entry.",
             "BarcodePrefixDBManager::ResetTable(): error while clearing table."}),
        log->Texts().filter("BarcodePrefixDBManager"));
    EXPECT_EQ(4, stored().size());

    Raw().Exec("DROP TABLE SpecialBarcodePrefixes");
    log->Clear();
    EXPECT_EQ(4, manager.LoadPrefixesByType(SPECIAL_BARCODE_PRICE, list));
    EXPECT_TRUE(list.isEmpty());
    EXPECT_TRUE(
        log->Contains(Logger::LOG_ERROR,

                      "BarcodePrefixDBManager: SQL error when try to load barcode prefixes data!"));
    BarcodePrefixDBManager late;
    EXPECT_FALSE(late.Initialize(articles.get()));
    EXPECT_TRUE(log->Contains(Logger::LOG_ERROR,
                              "BarcodePrefixDBManager::Initialize()! Can not find "
                              "special barcode prefixes table in database."));
    // Without its table the reset clears nothing and adds nothing.
    EXPECT_FALSE(late.ResetTable());
}
