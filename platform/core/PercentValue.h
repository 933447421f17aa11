#pragma once

#include "AbstractPrice.h"

// A percentage with two precision digits by default: 10000 is 100.00 %.
class VEXCORE_EXPORT PercentValue : public AbstractPrice {
public:
    static constexpr unsigned int defaultDigits = 2;

    explicit PercentValue(qint64 numberValue = 0, unsigned int precisionDigits = defaultDigits);
    // From text such as "12.5": kept with the digits as written.
    explicit PercentValue(const QString& text);
};
