#include "TaxRatesList.h"

void TaxRatesList::Fill(const TaxRates& rates) {
    for (int i = 0; i < TaxRates::count; ++i) {
        append(new TaxRate(static_cast<unsigned int>(i + 1), QString(QLatin1Char('A' + i)),
                           rates.values[i]));
    }
}

void TaxRatesList::Clean() {
    qDeleteAll(*this);
    clear();
}
