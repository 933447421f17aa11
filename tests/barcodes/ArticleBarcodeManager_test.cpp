// The ArticleBarcode table: writes, duplicate check, deletes and reads.

#include <atomic>
#include <thread>

#include "ArticleBarcodeManager.h"
#include "DBTransaction.h"
#include "DatabaseFixture.h"
#include "Logger.h"

namespace {

class ArticleBarcodeManagerTest : public DatabaseFixture {
protected:
    void SetUp() override {
        DatabaseFixture::SetUp();
        AddLabelPrefixes();
        ASSERT_TRUE(seeker.Initialize(articles.get()));
        ASSERT_TRUE(manager.Initialize(articles.get(), &seeker));
    }

    QStringList barcodes() {
        return Raw().Rows("SELECT article_id, barcode, is_main FROM ArticleBarcode ORDER BY id");
    }

    // Article 1: main 111, additional 112 and 113; article 2: main 211, additional 212.
    void seed() {
        Raw().Exec("DELETE FROM ArticleBarcode");
        AddBarcode(1, "111", true);
        AddBarcode(1, "112", false);
        AddBarcode(1, "113", false);
        AddBarcode(2, "211", true);
        AddBarcode(2, "212", false);
    }

    ArticleSeeker seeker;
    ArticleBarcodeManager manager;
};

}  // namespace

TEST_F(ArticleBarcodeManagerTest, AddsNormalisedBarcodesAndRefusesDuplicates) {
    EXPECT_EQ(DB_OPERATION_SUCCESS, manager.AddRecord(1, "5901234123457", true));
    EXPECT_EQ(DB_OPERATION_SUCCESS, manager.AddRecord(1, "2312345012500", false));
    // Already on file for any article, main or additional; another label of the same scale
    // item is the same article barcode.
    EXPECT_EQ(DB_OPERATION_ALREADY_EXISTS, manager.AddRecord(2, "5901234123457", false));
    EXPECT_EQ(DB_OPERATION_ALREADY_EXISTS, manager.AddRecord(2, "2312345000019", true));
    EXPECT_EQ(DB_OPERATION_INVALID_ARGUMENT, manager.AddRecord(2, QString(), true));
    EXPECT_TRUE(manager.IsRecordExist("2312345000002"));
    EXPECT_FALSE(manager.IsRecordExist("2312345000019"));
    // All-zero barcodes never count as existing.
    AddBarcode(1, "000", true);
    EXPECT_FALSE(manager.IsRecordExist("000"));
    EXPECT_FALSE(manager.IsRecordExist(QString()));
    EXPECT_EQ(DB_OPERATION_SUCCESS, manager.AddRecord(2, "000", true));

    // An article's own main barcode; a second main barcode is the caller's business.
    Article article;
    article.id = 5;
    article.mainBarcode = "4006381333931";
    EXPECT_EQ(DB_OPERATION_SUCCESS, manager.AddRecord(article, true));
    article.mainBarcode = "4006381333948";
    EXPECT_EQ(DB_OPERATION_SUCCESS, manager.AddRecord(article, true));
    article.id = 0;
    EXPECT_EQ(DB_OPERATION_INVALID_ARGUMENT, manager.AddRecord(article, true));
    article.id = 5;
    article.mainBarcode.clear();
    EXPECT_EQ(DB_OPERATION_INVALID_ARGUMENT, manager.AddRecord(article, true));
    EXPECT_EQ(QStringList({"1|5901234123457|1", "1|2312345000002|0", "1|000|1", "2|000|1",
                           "5|4006381333931|1", "5|4006381333948|1"}),
              barcodes());
}

TEST_F(ArticleBarcodeManagerTest, ConcurrentAddsOnTwoConnectionsStoreABarcodeOnce) {
    // Two connections to one file, as two processes of the register have, add the same barcode
    // to different articles at the same moment, again and again: one must get 0, the other 2.
    // Every other round the first adds it inside a transaction of its own (the first: both
    // managers normalise through the one global database, which the second process of a
    // register would not share).
    DBManager otherDb(ArticlesPath());
    ASSERT_EQ(0, otherDb.Open());
    ArticleSeeker otherSeeker;
    ArticleBarcodeManager other;
    ASSERT_TRUE(otherSeeker.Initialize(&otherDb));
    ASSERT_TRUE(other.Initialize(&otherDb, &otherSeeker));
    constexpr int rounds = 150;
    for (int round = 0; round < rounds; ++round) {
        const QString barcode = QStringLiteral("59000000%1").arg(round, 5, 10, QLatin1Char('0'));
        std::atomic<int> ready{0};
        auto together = [&ready] {
            ++ready;
            while (ready.load() < 2) {
                std::this_thread::yield();
            }
        };
        eDBOperationResult first = DB_OPERATION_ERROR;
        eDBOperationResult second = DB_OPERATION_ERROR;
        std::thread one([&] {
            together();
            if (round % 2 == 0) {
                first = manager.AddRecord(1, barcode, false);
                return;
            }
            DBTransaction transaction(articles.get());
            first = manager.AddRecord(1, barcode, false);
            transaction.Commit();
        });
        std::thread two([&] {
            together();
            second = other.AddRecord(2, barcode, false);
        });
        one.join();
        two.join();
        const qint64 stored =
            Raw().Integer(QStringLiteral("SELECT COUNT(*) FROM ArticleBarcode WHERE barcode = '%1'")
                              .arg(barcode));
        ASSERT_EQ(1, stored) << "round " << round;
        ASSERT_EQ(DB_OPERATION_ALREADY_EXISTS, qMax(first, second)) << "round " << round;
        ASSERT_EQ(DB_OPERATION_SUCCESS, qMin(first, second)) << "round " << round;
    }
    EXPECT_TRUE(log->IsEmpty()) << log->Texts().join(QLatin1Char('\n')).toStdString();
}

TEST_F(ArticleBarcodeManagerTest, UpdatesAndDeletesTouchExactlyTheirRows) {
    seed();
    EXPECT_EQ(DB_OPERATION_SUCCESS, manager.UpdateMainBarcode(1, "2712345001236"));
    EXPECT_EQ(DB_OPERATION_SUCCESS, manager.UpdateAdditionalBarcode(2, "122"));
    // Row 1 is a main barcode: the additional update leaves it.
    EXPECT_EQ(DB_OPERATION_SUCCESS, manager.UpdateAdditionalBarcode(1, "999"));
    EXPECT_EQ(QStringList({"1|2712345000000|1", "1|122|0", "1|113|0", "2|211|1", "2|212|0"}),
              barcodes());
    seed();
    EXPECT_EQ(DB_OPERATION_SUCCESS, manager.DeleteBarcodes(1, ADDITIONAL_BARCODES));
    EXPECT_EQ(QStringList({"1|111|1", "2|211|1", "2|212|0"}), barcodes());
    seed();
    EXPECT_EQ(DB_OPERATION_SUCCESS, manager.DeleteBarcodes(1, MAIN_BARCODE));
    EXPECT_EQ(QStringList({"1|112|0", "1|113|0", "2|211|1", "2|212|0"}), barcodes());
    seed();
    Article article;
    article.id = 1;
    EXPECT_EQ(DB_OPERATION_SUCCESS, manager.DeleteBarcodes(article, ALL_BARCODES));
    EXPECT_EQ(QStringList({"2|211|1", "2|212|0"}), barcodes());
    seed();
    EXPECT_EQ(DB_OPERATION_SUCCESS, manager.DeleteAllAdditionalBarcodes());
    EXPECT_EQ(QStringList({"1|111|1", "2|211|1"}), barcodes());
    seed();
    EXPECT_EQ(DB_OPERATION_SUCCESS, manager.DeleteRecord("112"));
    // A main barcode is not deleted by its text, and that is no error.
    EXPECT_EQ(DB_OPERATION_SUCCESS, manager.DeleteRecord("111"));
    EXPECT_EQ(QStringList({"1|111|1", "1|113|0", "2|211|1", "2|212|0"}), barcodes());
}

TEST_F(ArticleBarcodeManagerTest, ReadsBackByArticleByIndexAndRowByRow) {
    seed();
    ArticleBarcodes list(1);
    ASSERT_EQ(DB_OPERATION_SUCCESS, manager.Load(list));
    ASSERT_EQ(3, list.GetBarcodes().size());
    EXPECT_EQ(Barcode(1, 1, "111", true), *list.GetBarcodes()[0]);
    EXPECT_EQ(Barcode(2, 1, "112", false), *list.GetBarcodes()[1]);
    ASSERT_EQ(DB_OPERATION_SUCCESS, manager.Load(list));
    EXPECT_EQ(6, list.GetBarcodes().size()) << "appended";
    ArticleBarcodes none(42);
    ASSERT_EQ(DB_OPERATION_SUCCESS, manager.Load(none));
    EXPECT_TRUE(none.GetBarcodes().isEmpty());
    EXPECT_EQ(2u, manager.GetBarcodeIndex("112"));
    EXPECT_EQ(0u, manager.GetBarcodeIndex("114"));

    QStringList visited;
    eDBOperationResult result = DB_OPERATION_SUCCESS;
    for (unsigned int index = 0;; ++index) {
        const Barcode barcode = manager.LoadBarcode(result, index);
        if (result != DB_OPERATION_SUCCESS) {
            EXPECT_EQ(Barcode(), barcode);
            break;
        }
        EXPECT_FALSE(barcode.IsMain());
        visited.append(
            QStringLiteral("%1:%2").arg(barcode.GetArticleId()).arg(barcode.GetBarcode()));
    }
    EXPECT_EQ(DB_OPERATION_NOT_FOUND, result);
    EXPECT_EQ(QStringList({"1:112", "1:113", "2:212"}), visited);
}

TEST_F(ArticleBarcodeManagerTest, FailuresReturn4WithTheirMessages) {
    AddBarcode(1, "111", true);
    AddBarcode(1, "112", false);
    const QStringList before = barcodes();
    for (const char* event : {"INSERT", "UPDATE", "DELETE"}) {
        Raw().FailOn("ArticleBarcode", QString::fromLatin1(event));
    }
    log->Clear();
    EXPECT_EQ(DB_OPERATION_ERROR, manager.AddRecord(1, "113", false));
    EXPECT_EQ(DB_OPERATION_ERROR, manager.UpdateMainBarcode(1, "114"));
    EXPECT_EQ(DB_OPERATION_ERROR, manager.UpdateAdditionalBarcode(2, "115"));
    EXPECT_EQ(DB_OPERATION_ERROR, manager.DeleteRecord("112"));
    EXPECT_EQ(DB_OPERATION_ERROR, manager.DeleteBarcodes(1, ALL_BARCODES));
    EXPECT_EQ(DB_OPERATION_ERROR, manager.DeleteAllAdditionalBarcodes());
    EXPECT_EQ(before, barcodes());
    const QString prefix = "ArticleBarcodeManager: SQL error when try to ";
    for (const char* message :
         {"insert article barcode to the database!", "update main article barcode in the database!",
          "update additional article barcode in the database!",
          "delete selected article barcode from the database!",
          "delete article barcodes from the database!",
          "delete all additional barcodes from the database!"}) {
        EXPECT_TRUE(log->Contains(Logger::LOG_ERROR, prefix + QString::fromLatin1(message)))
            << message;
    }

    Raw().Exec("DROP TABLE ArticleBarcode");
    log->Clear();
    ArticleBarcodes list(1);
    EXPECT_EQ(DB_OPERATION_ERROR, manager.Load(list));
    EXPECT_TRUE(log->Contains(Logger::LOG_ERROR,
                              prefix + QStringLiteral("insert article barcode to the database!")));
    EXPECT_EQ(0u, manager.GetBarcodeIndex("111"));
    EXPECT_TRUE(log->Contains(
        Logger::LOG_ERROR, "ArticleBarcodeManager Seeker: SQL error when try to find a barcode!"));
    eDBOperationResult result = DB_OPERATION_SUCCESS;
    EXPECT_EQ(Barcode(), manager.LoadBarcode(result, 0));
    EXPECT_EQ(DB_OPERATION_ERROR, result);
    // Inside a transaction the database itself is asked; a failed look counts as taken too.
    ASSERT_EQ(DB_OPERATION_SUCCESS, articles->BeginTransaction());
    log->Clear();
    EXPECT_EQ(DB_OPERATION_ALREADY_EXISTS, manager.AddRecord(1, "116", false));
    EXPECT_TRUE(log->Contains(
        Logger::LOG_ERROR, "ArticleBarcodeManager Seeker: SQL error when try to find a barcode!"));
    articles->RollbackTransaction();
}

TEST_F(ArticleBarcodeManagerTest,
       UninitialisedManagerRefusesEverythingAndInitializeNamesWhatIsMissing) {
    ArticleBarcodeManager fresh;
    Article article;
    article.id = 1;
    article.mainBarcode = "111";
    EXPECT_TRUE(fresh.IsRecordExist("anything"));
    EXPECT_EQ(DB_OPERATION_NOT_INITIALIZED, fresh.AddRecord(1, "111", true));
    EXPECT_EQ(DB_OPERATION_NOT_INITIALIZED, fresh.AddRecord(article, true));
    EXPECT_EQ(DB_OPERATION_NOT_INITIALIZED, fresh.UpdateMainBarcode(1, "1"));
    EXPECT_EQ(DB_OPERATION_NOT_INITIALIZED, fresh.UpdateAdditionalBarcode(1, "1"));
    EXPECT_EQ(DB_OPERATION_NOT_INITIALIZED, fresh.DeleteRecord("1"));
    EXPECT_EQ(DB_OPERATION_NOT_INITIALIZED, fresh.DeleteBarcodes(1, ALL_BARCODES));
    EXPECT_EQ(DB_OPERATION_NOT_INITIALIZED, fresh.DeleteAllAdditionalBarcodes());
    ArticleBarcodes list(1);
    EXPECT_EQ(DB_OPERATION_NOT_INITIALIZED, fresh.Load(list));
    eDBOperationResult result = DB_OPERATION_AMBIGUOUS;
    EXPECT_EQ(Barcode(), fresh.LoadBarcode(result, 0));
    EXPECT_EQ(DB_OPERATION_AMBIGUOUS, result) << "left as the caller set it";
    EXPECT_EQ(6u, fresh.GetBarcodeIndex("1"));
    EXPECT_EQ(0, Raw().Count("ArticleBarcode"));
    EXPECT_TRUE(log->IsEmpty());

    EXPECT_FALSE(fresh.Initialize(nullptr, &seeker));
    EXPECT_FALSE(fresh.Initialize(articles.get(), nullptr));
    Raw().Exec("DROP TABLE ArticleBarcode");
    EXPECT_FALSE(fresh.Initialize(articles.get(), &seeker));
    EXPECT_EQ(QStringList(
                  {"ArticleBarcodeManager construction FAILED! Can not open articles DB!",
                   "ArticleBarcodeManager construction FAILED! Can not access article seeker!",
                   "ArticleBarcodeManager construction FAILED! Can not find article barcode table "
                   "in DB!"}),
              log->Texts());
}

TEST_F(ArticleBarcodeManagerTest, HostileBarcodesChangeOnlyWhatWasAsked) {
    AddBarcode(1, "111", true);
    AddBarcode(1, "112", false);
    const QStringList hostile = {"\"",      "'; DELETE FROM ArticleBarcode; --", "%",   "_",
                                 "barcode", QString(10000, QLatin1Char('9')),    "żółć"};
    for (const QString& text : hostile) {
        manager.DeleteRecord(text);
        manager.GetBarcodeIndex(text);
        manager.UpdateAdditionalBarcode(999, text);
    }
    EXPECT_EQ(QStringList({"1|111|1", "1|112|0"}), barcodes());
    for (const QString& text : hostile) {
        EXPECT_EQ(DB_OPERATION_SUCCESS, manager.AddRecord(7, text, false))
            << text.left(20).toStdString();
        EXPECT_EQ(DB_OPERATION_ALREADY_EXISTS, manager.AddRecord(8, text, false));
    }
    EXPECT_EQ(2 + hostile.size(), Raw().Count("ArticleBarcode"));
    EXPECT_EQ(DB_OPERATION_SUCCESS, manager.DeleteRecord("%"));
    EXPECT_EQ(1 + hostile.size(), Raw().Count("ArticleBarcode"));
}
