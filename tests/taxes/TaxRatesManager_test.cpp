// Tax rates: defaults, reset, replacement and look-ups.

#include "TaxRatesManager.h"
#include "DatabaseFixture.h"
#include "Globals.h"
#include "Logger.h"
#include "SignalSystem.h"

namespace {

class TaxRatesManagerTest : public DatabaseFixture {
protected:
    void TearDown() override {
        G::getSignals->ClearCallbacks(SignalSystem::SIGNAL_TAX_RATES_CHANGED);
        manager.Uninitialize();
        DatabaseFixture::TearDown();
    }

    QStringList stored() { return Raw().Rows("SELECT * FROM TaxRates ORDER BY tax_rate_id"); }

    static QStringList describe(const TaxRatesList& list) {
        QStringList described;
        for (const TaxRate* rate : list) {
            described.append(QStringLiteral("%1|%2|%3")
                                 .arg(rate->GetId())
                                 .arg(rate->GetName())
                                 .arg(rate->GetValue()));
        }
        return described;
    }

    TaxRatesManager manager;
};

const QStringList defaultRows = {"1|A|2300",  "2|B|800",   "3|C|500",  "4|D|0",
                                 "5|E|65535", "6|F|65535", "7|G|61440"};

}  // namespace

// The defaults stand in memory even when their insert fails; once it works they are stored.
TEST_F(TaxRatesManagerTest, EmptyTableGetsTheDefaultRates) {
    Raw().FailOn("TaxRates", "INSERT");
    articles->SetWriteOnlyInTransaction(true);
    ASSERT_TRUE(manager.Initialize());
    EXPECT_FALSE(articles->IsWriteOnlyInTransaction()) << "switched off before writing";
    EXPECT_EQ(defaultRows, describe(manager.GetRecords()));
    EXPECT_TRUE(stored().isEmpty());
    Raw().StopFailing("TaxRates", "INSERT");
    manager.Uninitialize();
    log->Clear();
    ASSERT_TRUE(manager.Initialize());
    EXPECT_TRUE(log->Contains(Logger::LOG_NOTICE, "TaxRatesManager: Tax rates table is empty!"));
    EXPECT_EQ(defaultRows, describe(manager.GetRecords()));
    EXPECT_EQ(defaultRows, stored());
    EXPECT_TRUE(manager.IsSet("A"));
    EXPECT_TRUE(manager.IsSet("D"));   // 0 % is a rate in use
    EXPECT_FALSE(manager.IsSet("E"));  // not in use
    EXPECT_TRUE(manager.IsSet("G"));   // tax-exempt, in use
    EXPECT_TRUE(manager.GetRecord(7)->IsExempt());
    EXPECT_TRUE(manager.GetRecord(5)->IsReserved());
}

// Each signalled once per successful write; a failed or empty update changes and signals
// nothing.
TEST_F(TaxRatesManagerTest, UpdateAndResetWriteEveryRateAndFailedOnesNothing) {
    QList<int> calls;
    G::getSignals->AddCallback(SignalSystem::SIGNAL_TAX_RATES_CHANGED,
                               [&](int v) { calls.append(v); });
    G::getSignals->AddCallback(SignalSystem::SIGNAL_TAX_RATES_CHANGED,
                               [&](int v) { calls.append(v + 10); });
    EXPECT_EQ(6, manager.UpdateRecord(TaxRates{{1, 2, 3, 4, 5, 6, 7}, 0}));
    ASSERT_TRUE(manager.Initialize());
    Raw().FailOn("TaxRates", "UPDATE");
    log->Clear();
    EXPECT_EQ(4, manager.UpdateRecord(TaxRates{{1, 1, 1, 1, 1, 1, 1}, 2}));
    EXPECT_EQ(QStringList({"TaxRatesManager: SQL error when try to update counter data!"}),
              log->Texts().filter("TaxRatesManager"));
    EXPECT_EQ(defaultRows, describe(manager.GetRecords()));
    EXPECT_EQ(defaultRows, stored());
    EXPECT_TRUE(calls.isEmpty());

    Raw().StopFailing("TaxRates", "UPDATE");
    ASSERT_EQ(0, manager.UpdateRecord(TaxRates{{2300, 800, 500, 0, 65535, 1200, 61440}, 2}));
    const QStringList updated = {"1|A|2300",  "2|B|800",  "3|C|500",  "4|D|0",
                                 "5|E|65535", "6|F|1200", "7|G|61440"};
    EXPECT_EQ(updated, stored());
    EXPECT_EQ(updated, describe(manager.GetRecords()));
    EXPECT_EQ(QList<int>({0, 10}), calls);
    // A reset leaves seven unused rates.
    ASSERT_TRUE(manager.ResetTable());
    const QStringList reset = {"1|A|65535", "2|B|65535", "3|C|65535", "4|D|65535",
                               "5|E|65535", "6|F|65535", "7|G|65535"};
    EXPECT_EQ(reset, stored());
    EXPECT_EQ(reset, describe(manager.GetRecords()));
    // With nothing in memory there is nothing to replace.
    calls.clear();
    Raw().Exec("DELETE FROM TaxRates");
    EXPECT_EQ(3, manager.getRecordsFromDB());
    EXPECT_EQ(0, manager.UpdateRecord(TaxRates{{1, 1, 1, 1, 1, 1, 1}, 2}));
    EXPECT_TRUE(stored().isEmpty());
    EXPECT_TRUE(calls.isEmpty());
}

TEST_F(TaxRatesManagerTest, StoredRatesLoadAsTheyAreWithTheirLettersAndLookUps) {
    EXPECT_FALSE(manager.IsRecordExist("A"));
    EXPECT_EQ(nullptr, manager.GetRecord("A"));
    EXPECT_FALSE(manager.IsSet("A"));
    Raw().Exec("INSERT INTO TaxRates VALUES (1, 'A', 2300), (2, 'AB', 70000), (7, 'G', 0)");
    ASSERT_TRUE(manager.Initialize());
    // Stored rates are loaded as they are, 70000 cut to its low 16 bits.
    EXPECT_EQ(QStringList({"1|A|2300", "2|AB|4464", "7|G|0"}), describe(manager.GetRecords()));
    EXPECT_FALSE(log->Mentions("empty"));
    char letter = '?';
    EXPECT_TRUE(manager.GetTaxRateASCIIChar(1, letter));
    EXPECT_EQ('A', letter);
    EXPECT_TRUE(manager.GetTaxRateASCIIChar(7, letter));
    EXPECT_EQ('G', letter);
    letter = '?';
    EXPECT_FALSE(manager.GetTaxRateASCIIChar(2, letter));
    EXPECT_FALSE(manager.GetTaxRateASCIIChar(8, letter));
    EXPECT_EQ('?', letter);
    EXPECT_TRUE(manager.IsRecordExist("AB"));
    EXPECT_FALSE(manager.IsRecordExist("a"));
    EXPECT_EQ(2u, manager.GetRecord("AB")->GetId());
    EXPECT_FALSE(manager.DeleteRecord("A"));
    EXPECT_EQ(3, stored().size());
}

TEST_F(TaxRatesManagerTest, FailuresAreReportedWithTheirTexts) {
    G::dbArticles = nullptr;
    EXPECT_FALSE(manager.Initialize());
    G::dbArticles = articles.get();
    Raw().Exec("ALTER TABLE TaxRates RENAME TO Rates");
    EXPECT_FALSE(manager.Initialize());
    EXPECT_EQ(QStringList({"TaxRatesDBManager initialization FAILED! Can not open articles DB!",
                           "TaxRatesDBManager initialization FAILED! TaxRates inaccessible!"}),
              log->Texts());
    Raw().Exec("ALTER TABLE Rates RENAME TO TaxRates");
    ASSERT_TRUE(manager.Initialize());
    Raw().FailOn("TaxRates", "DELETE");
    log->Clear();
    EXPECT_FALSE(manager.ResetTable());
    Raw().StopFailing("TaxRates", "DELETE");
    Raw().FailOn("TaxRates", "INSERT");
    EXPECT_FALSE(manager.ResetTable());
    Raw().Exec("DROP TABLE TaxRates");
    EXPECT_EQ(4, manager.getRecordsFromDB());
    EXPECT_EQ(QStringList({"TaxRatesManager::ResetTable(): error while clearing table.",
                           "TaxRatesManager::ResetTable(): error while inserting default values.",
                           "TaxRatesManager: SQL error when try to load depts data!"}),
              log->Texts().filter("TaxRatesManager"));
    EXPECT_TRUE(manager.GetRecords().isEmpty());
}
