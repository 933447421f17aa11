#pragma once

#include <QtGlobal>

// The whole rate set as the fiscal side knows it: seven values in rate order (hundredths of a
// percent; 65535 not in use, 61440 tax-exempt) and one 8-bit field of the fiscal module.
struct TaxRates {
    static constexpr int count = 7;
    quint16 values[count];
    quint8 extra;
};
