#pragma once

#include <QList>

#include "TaxRate.h"
#include "TaxRates.h"
#include "VexCoreGlobal.h"

// A list of owned tax rate records. Clean() frees them; the list itself never does, so that
// records can be handed between lists.
class VEXCORE_EXPORT TaxRatesList : public QList<TaxRate*> {
public:
    // Appends the seven rates of `rates`: ids 1 to 7 named "A" to "G", values in order.
    void Fill(const TaxRates& rates);
    // Deletes every record and empties the list.
    void Clean();
};
