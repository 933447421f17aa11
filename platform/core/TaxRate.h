#pragma once

#include <QString>

#include "AbstractDatabaseBasicRecord.h"
#include "VexCoreGlobal.h"

// One tax rate: its number (1 to 7), its one-letter name and its value in hundredths of a
// percent (2300 = 23.00 %).
class VEXCORE_EXPORT TaxRate : public AbstractDatabaseBasicRecord {
public:
    // The value of a rate that is defined but not in use.
    static constexpr unsigned short reservedValue = 65535;
    // The value that marks the tax-exempt rate, which is in use.
    static constexpr unsigned short exemptValue = 61440;

    TaxRate(unsigned int id, const QString& name, unsigned short value);

    virtual const QString& GetName() const;
    unsigned short GetValue() const { return value; }
    // True for a rate that is not in use (value 65535).
    bool IsReserved() const;
    // True for the tax-exempt rate (value 61440).
    bool IsExempt() const;

private:
    QString name;
    unsigned short value;
};
