#include "TaxRate.h"

TaxRate::TaxRate(unsigned int id, const QString& name, unsigned short value)
    : AbstractDatabaseBasicRecord(id), name(name), value(value) {}

const QString& TaxRate::GetName() const {
    return name;
}

bool TaxRate::IsReserved() const {
    return value == reservedValue;
}

bool TaxRate::IsExempt() const {
    return value == exemptValue;
}
