#include "Dept.h"

Dept::Dept(unsigned int id, const QString& name, unsigned int maxDiscount,
           unsigned int maxSurcharge, bool isDiscountBlocked, bool isOrderPrinter)
    : AbstractDatabaseBasicRecord(id)
    , isDiscountBlocked(isDiscountBlocked)
    , isOrderPrinter(isOrderPrinter)
    , name(name)
    , maxDiscount(maxDiscount)
    , maxSurcharge(maxSurcharge) {}

QString Dept::GetName() const {
    return name;
}

PercentValue Dept::GetMaxDiscount() const {
    return PercentValue(maxDiscount);
}

PercentValue Dept::GetMaxSurcharge() const {
    return PercentValue(maxSurcharge);
}
