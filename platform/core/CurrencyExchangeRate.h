#pragma once

#include "AbstractPrice.h"

// The rate between two currencies, with as many precision digits as it is given: "4.3210" is
// 43210 with four digits.
class VEXCORE_EXPORT CurrencyExchangeRate : public AbstractPrice {
public:
    CurrencyExchangeRate(qint64 numberValue, unsigned int precisionDigits);
    explicit CurrencyExchangeRate(const QString& text);
};
