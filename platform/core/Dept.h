#pragma once

#include <QString>

#include "AbstractDatabaseBasicRecord.h"
#include "PercentValue.h"
#include "VexCoreGlobal.h"

// A department (product group), one row of the Dept table; an immutable value.
class VEXCORE_EXPORT Dept : public AbstractDatabaseBasicRecord {
public:
    // Arguments in this order: number, name, maximum discount, maximum surcharge (percent
    // number values, 10000 = 100.00 %), discount blocked, order printer.
    Dept(unsigned int id, const QString& name, unsigned int maxDiscount, unsigned int maxSurcharge,
         bool isDiscountBlocked, bool isOrderPrinter);

    virtual QString GetName() const;
    PercentValue GetMaxDiscount() const;
    PercentValue GetMaxSurcharge() const;

    // Prices of the department's articles may not be modified (discounts and surcharges).
    bool isDiscountBlocked;
    // The department's articles go to the order printer.
    bool isOrderPrinter;

private:
    QString name;
    unsigned int maxDiscount;
    unsigned int maxSurcharge;
};
