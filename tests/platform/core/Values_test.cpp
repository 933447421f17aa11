// Scaled decimal values and the signal lists.
// (The tax-rate list is checked through TaxRatesManager, which fills and cleans it.)

#include <gtest/gtest.h>

#include <limits>

#include "CurrencyExchangeRate.h"
#include "PercentValue.h"
#include "PriceValue.h"
#include "QtPrinters.h"
#include "SignalSystem.h"

TEST(ScaledValues, ReadDecimalTextWithItsDigits) {
    const CurrencyExchangeRate rate("4.3210");
    EXPECT_TRUE(rate.IsValid());
    EXPECT_EQ(43210, rate.GetNumberValue());
    EXPECT_EQ(4u, rate.GetPrecisionDigits());
    EXPECT_EQ("4.3210", rate.ToString());
    EXPECT_EQ(1, CurrencyExchangeRate("1").GetNumberValue());
    EXPECT_EQ(0u, CurrencyExchangeRate("1").GetPrecisionDigits());
    EXPECT_EQ(-5, PercentValue("-0,5").GetNumberValue());
    EXPECT_EQ("-0.5", PercentValue("-0,5").ToString());
    EXPECT_EQ("-92233720368547758.08", PercentValue(std::numeric_limits<qint64>::min()).ToString());
    for (const char* bad : {"", "abc", "1.2.3", "1e5", "--1", ".", "1234567890123456789"}) {
        EXPECT_FALSE(CurrencyExchangeRate(bad).IsValid()) << bad;
    }
    // Prices hold two digits: fewer are filled up, more only as zeros.
    for (const char* text : {"12.5", "12,50", "12.500"}) {
        EXPECT_EQ(1250, PriceValue(text).GetNumberValue()) << text;
    }
    EXPECT_EQ(1200, PriceValue("12").GetNumberValue());
    EXPECT_EQ(2u, PriceValue("12").GetPrecisionDigits());
    EXPECT_FALSE(PriceValue("12.345").IsValid());
    EXPECT_EQ("0.05", PriceValue(5).ToString());
}

TEST(SignalSystemTest, CallsEachListInOrderAndRefusesEmptyCallbacks) {
    SignalSystem signalSystem;
    QList<int> calls;
    const auto removed = SignalSystem::SIGNAL_ALL_ARTICLES_REMOVED;
    EXPECT_EQ(0, signalSystem.AddCallback(removed, [&](int v) { calls.append(v); }));
    EXPECT_EQ(1, signalSystem.AddCallback(removed, [&](int v) { calls.append(v * 100); }));
    EXPECT_EQ(-1, signalSystem.AddCallback(removed, SignalSystem::Callback()));
    signalSystem.Emit(SignalSystem::SIGNAL_TAX_RATES_CHANGED, 0);
    signalSystem.Emit(removed, 1);
    EXPECT_EQ(QList<int>({1, 100}), calls);
    signalSystem.ClearCallbacks(removed);
    EXPECT_TRUE(signalSystem.GetCallbacks(removed).isEmpty());
}
