#pragma once

#include "AbstractPrice.h"

// An amount of money in the currency's minor unit: two precision digits, 1299 is 12.99.
class VEXCORE_EXPORT PriceValue : public AbstractPrice {
public:
    static constexpr unsigned int currencyDigits = 2;

    explicit PriceValue(qint64 numberValue = 0, unsigned int precisionDigits = currencyDigits);
    // From text such as "12.5" or "12,99", scaled to the currency's two digits: "12.5" is 1250.
    // Invalid (IsValid() false) for text with more decimals than that or not a number.
    explicit PriceValue(const QString& text);
};
