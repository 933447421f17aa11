#include "CurrencyExchangeRate.h"

CurrencyExchangeRate::CurrencyExchangeRate(qint64 numberValue, unsigned int precisionDigits)
    : AbstractPrice(numberValue, precisionDigits) {}

CurrencyExchangeRate::CurrencyExchangeRate(const QString& text) {
    setFromText(text);
}
