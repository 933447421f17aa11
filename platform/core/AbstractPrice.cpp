#include "AbstractPrice.h"

#include <limits>

namespace {
constexpr int maxDigits = 18;  // keeps every value inside a 64-bit integer
}  // namespace

AbstractPrice::AbstractPrice() : numberValue(0), precisionDigits(0), valid(true) {}

AbstractPrice::AbstractPrice(qint64 numberValue, unsigned int precisionDigits)
    : numberValue(numberValue), precisionDigits(precisionDigits), valid(true) {}

AbstractPrice::~AbstractPrice() = default;

bool AbstractPrice::Parse(const QString& text, qint64& number, unsigned int& digits) {
    const QString trimmed = text.trimmed();
    int i = 0;
    bool negative = false;
    if (i < trimmed.size() && (trimmed[i] == QLatin1Char('-') || trimmed[i] == QLatin1Char('+'))) {
        negative = trimmed[i] == QLatin1Char('-');
        ++i;
    }
    qint64 value = 0;
    int digitCount = 0;
    int decimals = 0;
    bool separatorSeen = false;
    for (; i < trimmed.size(); ++i) {
        const QChar c = trimmed[i];
        if ((c == QLatin1Char('.') || c == QLatin1Char(',')) && !separatorSeen) {
            separatorSeen = true;
            continue;
        }
        if (c < QLatin1Char('0') || c > QLatin1Char('9') || ++digitCount > maxDigits) {
            return false;
        }
        value = value * 10 + (c.unicode() - '0');
        if (separatorSeen) {
            ++decimals;
        }
    }
    if (digitCount == 0) {
        return false;
    }
    number = negative ? -value : value;
    digits = static_cast<unsigned int>(decimals);
    return true;
}

QString AbstractPrice::ToString() const {
    // Unsigned, so that the most negative value has a magnitude too.
    const quint64 magnitude =
        numberValue < 0 ? 0 - static_cast<quint64>(numberValue) : static_cast<quint64>(numberValue);
    QString digits = QString::number(magnitude).rightJustified(
        static_cast<int>(precisionDigits) + 1, QLatin1Char('0'));
    if (precisionDigits > 0) {
        digits.insert(digits.size() - static_cast<int>(precisionDigits), QLatin1Char('.'));
    }
    return numberValue < 0 ? QLatin1Char('-') + digits : digits;
}

void AbstractPrice::setFromText(const QString& text) {
    qint64 number = 0;
    unsigned int digits = 0;
    valid = Parse(text, number, digits);
    numberValue = valid ? number : 0;
    precisionDigits = valid ? digits : 0;
}

bool AbstractPrice::rescale(unsigned int digits) {
    qint64 value = numberValue;
    unsigned int current = precisionDigits;
    while (current < digits) {
        if (value > std::numeric_limits<qint64>::max() / 10 ||
            value < std::numeric_limits<qint64>::min() / 10) {
            return false;
        }
        value *= 10;
        ++current;
    }
    while (current > digits) {
        if (value % 10 != 0) {
            return false;
        }
        value /= 10;
        --current;
    }
    numberValue = value;
    precisionDigits = current;
    return true;
}
