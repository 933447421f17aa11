#pragma once

#include <QString>

// GS1 check digits of the digit-only codes the register meets: EAN-8, UPC-A (12), EAN-13 and
// GTIN-14. Other codes (internal alphanumeric ones, other lengths) carry no check digit.
namespace Gs1 {

// True for a code of 8, 12, 13 or 14 digits, whose last digit is a GS1 check digit.
inline bool HasCheckDigit(const QString& code) {
    const int n = code.size();
    if (n != 8 && n != 12 && n != 13 && n != 14) {
        return false;
    }
    for (const QChar c : code) {
        if (c < QLatin1Char('0') || c > QLatin1Char('9')) {
            return false;
        }
    }
    return true;
}

// The check digit for `body` (the digits before it): weights 3 and 1 from the right.
inline QChar CheckDigit(const QString& body) {
    int sum = 0;
    bool three = true;
    for (int i = body.size() - 1; i >= 0; --i) {
        sum += (body[i].unicode() - '0') * (three ? 3 : 1);
        three = !three;
    }
    return QLatin1Char(static_cast<char>('0' + (10 - sum % 10) % 10));
}

// True when `code` carries no check digit, or carries the right one.
inline bool CheckDigitValid(const QString& code) {
    return !HasCheckDigit(code) || CheckDigit(code.left(code.size() - 1)) == code.back();
}

}  // namespace Gs1
