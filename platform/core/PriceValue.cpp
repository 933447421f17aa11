#include "PriceValue.h"

PriceValue::PriceValue(qint64 numberValue, unsigned int precisionDigits)
    : AbstractPrice(numberValue, precisionDigits) {}

PriceValue::PriceValue(const QString& text) {
    setFromText(text);
    if (valid && !rescale(currencyDigits)) {
        valid = false;
        numberValue = 0;
        precisionDigits = currencyDigits;
    }
}
