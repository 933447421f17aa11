#pragma once

#include <QString>

#include "VexCoreGlobal.h"

// A scaled decimal value: GetNumberValue() / 10^GetPrecisionDigits(). 4.3210 with four
// precision digits has the number value 43210. Integer arithmetic only, as the register's
// fiscal rules require.
class VEXCORE_EXPORT AbstractPrice {
public:
    AbstractPrice(qint64 numberValue, unsigned int precisionDigits);
    virtual ~AbstractPrice();

    qint64 GetNumberValue() const { return numberValue; }
    unsigned int GetPrecisionDigits() const { return precisionDigits; }
    // False for a value made from text that is not a decimal number it can hold.
    bool IsValid() const { return valid; }
    // The value written with its precision digits, e.g. "4.3210" or "-0.50".
    QString ToString() const;

    // Reads a decimal number such as "4.3210", "-12" or "0,5" (comma or point). `digits` gets
    // the number of digits after the separator. False for anything else, or more than 18
    // digits in all.
    static bool Parse(const QString& text, qint64& number, unsigned int& digits);

protected:
    AbstractPrice();
    void setFromText(const QString& text);
    // Rescales to `digits` precision digits; false when that would drop non-zero digits or
    // overflow.
    bool rescale(unsigned int digits);

    qint64 numberValue;
    unsigned int precisionDigits;
    bool valid;
};
