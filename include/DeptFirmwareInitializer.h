#pragma once

#include "ArticleManagerGlobal.h"
#include "DBManager.h"

// The department rules the register's firmware dictates, written into the Dept table with
// direct UPDATE statements: discount-blocked departments (15 and 90 to 99, also the "special"
// ones), order-printer departments (1 to 8 and 51 to 99), the maximum discount and surcharge
// of every department (100.00 %), and the default names of departments 1 to 16.
//
// Each operation returns true when all its statements worked; on a failure it logs, runs no
// further statement and returns false (statements already run stay applied).
class ARTICLEMANAGER_EXPORT DeptFirmwareInitializer {
public:
    DeptFirmwareInitializer();
    ~DeptFirmwareInitializer();

    DeptFirmwareInitializer(const DeptFirmwareInitializer&) = delete;
    DeptFirmwareInitializer& operator=(const DeptFirmwareInitializer&) = delete;

    // Binds to G::dbArticles; false while that is null.
    bool Initialize();
    // Department 15 and departments 90 to 99.
    bool IsDeptSpecial(unsigned int deptId);
    // The discount-blocked flags, then the order-printer flags, then the maxima.
    bool SetFirmwareFlags();
    // Names departments 1 to 16 "Grupa towarowa <n>"; the others keep their names.
    bool SetFirmwareDeptNamesInDatabase();
    // Maximum discount, then maximum surcharge, of every department to 10000.
    bool setFirmwareDiscountAndSurchargeValuesInDatabase();
    // Clears the order-printer flag everywhere, then sets it on departments 1-8 and 51-99.
    bool setFirmwareOrderPrinterFlagsInDatabase();
    // Sets the discount-blocked flag on departments 15 and 90-99, then clears it on the others.
    bool setFirmwareBlockDiscountFlagsInDatabase();

private:
    // Runs one statement; logs `failureMessage` when it fails.
    bool run(const QString& statement, const QString& failureMessage);

    DBManager* db;
    unsigned int specialDept;
    unsigned int specialRangeFirst;
    unsigned int specialRangeLast;
    unsigned int orderPrinterRange1First;
    unsigned int orderPrinterRange1Last;
    unsigned int orderPrinterRange2First;
    unsigned int orderPrinterRange2Last;
    unsigned int firmwareMaxDiscountAndSurcharge;
};
