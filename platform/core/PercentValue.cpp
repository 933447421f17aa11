#include "PercentValue.h"

PercentValue::PercentValue(qint64 numberValue, unsigned int precisionDigits)
    : AbstractPrice(numberValue, precisionDigits) {}

PercentValue::PercentValue(const QString& text) {
    setFromText(text);
}
