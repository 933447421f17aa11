#include "DeptFirmwareInitializer.h"

#include "LibraryLog.h"
#include "TableSchema.h"

namespace {

namespace D = TableSchema::Dept;

const QString msgNamesError = QStringLiteral(
    "DeptDBManager::SetFirmwareDeptNamesInDatabase Error: while updating data in database.");
const QString msgDiscountsError = QStringLiteral(
    "DeptDBManager::setFirmwareDiscountAndSurchargeValuesInDatabase Error: while updating "
    "discounts in database.");
const QString msgSurchargesError = QStringLiteral(
    "DeptDBManager::setFirmwareDiscountAndSurchargeValuesInDatabase Error: while updating "
    "surcharges in database.");
const QString msgOrderPrinterError = QStringLiteral(
    "DeptDBManager::setFirmwareOrderPrinterFlagsInDatabase Error: while updating data in "
    "database.");
const QString msgBlockDiscountError = QStringLiteral(
    "DeptDBManager::setFirmwareBlockDiscountFlagsInDatabase Error: while updating data in "
    "database.");

// The statements' fixed fragments; their runs of blanks belong to the statements.
const QString update = QStringLiteral("UPDATE ");
const QString set = QStringLiteral("             SET ");
const QString where = QStringLiteral("                 WHERE ");
const QString whereOpen = QStringLiteral("                 WHERE (");
const QString orOpen = QStringLiteral(")                 OR (");
const QString orRangeOpen = QStringLiteral("                 OR (");
const QString andNotOpen = QStringLiteral("                 AND NOT (");

// The first and last department names get a default; not a member, as the firmware fixes it.
constexpr unsigned int firstNamedDept = 1;
constexpr unsigned int lastNamedDept = 16;

QString number(unsigned int value) {
    return QString::number(value, 10);
}

// "(dept_id >= first AND dept_id <= last" without the closing parenthesis.
QString range(unsigned int first, unsigned int last) {
    return D::id + QStringLiteral(" >= ") + number(first) + QStringLiteral(" AND ") + D::id +
           QStringLiteral(" <= ") + number(last);
}

}  // namespace

DeptFirmwareInitializer::DeptFirmwareInitializer()
    : db(nullptr)
    , specialDept(15)
    , specialRangeFirst(90)
    , specialRangeLast(99)
    , orderPrinterRange1First(1)
    , orderPrinterRange1Last(8)
    , orderPrinterRange2First(51)
    , orderPrinterRange2Last(99)
    , firmwareMaxDiscountAndSurcharge(10000) {}

DeptFirmwareInitializer::~DeptFirmwareInitializer() = default;

bool DeptFirmwareInitializer::Initialize() {
    db = G::dbArticles;
    return db != nullptr;
}

bool DeptFirmwareInitializer::IsDeptSpecial(unsigned int deptId) {
    return deptId == specialDept || (deptId >= specialRangeFirst && deptId <= specialRangeLast);
}

bool DeptFirmwareInitializer::SetFirmwareFlags() {
    return setFirmwareBlockDiscountFlagsInDatabase() && setFirmwareOrderPrinterFlagsInDatabase() &&
           setFirmwareDiscountAndSurchargeValuesInDatabase();
}

bool DeptFirmwareInitializer::run(const QString& statement, const QString& failureMessage) {
    DBDirectQueryResult result;
    if (!db || db->Execute(statement, &result) != DB_OPERATION_SUCCESS) {
        LogMessage(logLevelError, failureMessage);
        return false;
    }
    return true;
}

bool DeptFirmwareInitializer::SetFirmwareDeptNamesInDatabase() {
    const QString statement = QStringLiteral(" UPDATE ") + D::table + QStringLiteral(" SET ") +
                              D::name + QStringLiteral(" = ") +
                              QStringLiteral("'Grupa towarowa '") + QStringLiteral(" || ") + D::id +
                              QStringLiteral(" WHERE (") + range(firstNamedDept, lastNamedDept) +
                              QStringLiteral(")");
    return run(statement, msgNamesError);
}

bool DeptFirmwareInitializer::setFirmwareDiscountAndSurchargeValuesInDatabase() {
    const QString maximum = number(firmwareMaxDiscountAndSurcharge);
    return run(update + D::table + set + D::maxDiscount + QStringLiteral(" =") + maximum,
               msgDiscountsError) &&
           run(update + D::table + set + D::maxSurcharge + QStringLiteral(" =") + maximum,
               msgSurchargesError);
}

bool DeptFirmwareInitializer::setFirmwareOrderPrinterFlagsInDatabase() {
    // Cleared everywhere, then set on its two ranges.
    return run(update + D::table + set + D::isOrderPrinter + QStringLiteral(" = 0"),
               msgOrderPrinterError) &&
           run(update + D::table + set + D::isOrderPrinter + QStringLiteral(" = 1") + whereOpen +
                   range(orderPrinterRange1First, orderPrinterRange1Last) + orOpen +
                   range(orderPrinterRange2First, orderPrinterRange2Last) + QStringLiteral(")"),
               msgOrderPrinterError);
}

bool DeptFirmwareInitializer::setFirmwareBlockDiscountFlagsInDatabase() {
    // Set on the special departments, then cleared on the others.
    return run(update + D::table + set + D::isDiscountBlocked + QStringLiteral(" = 1") + where +
                   D::id + QStringLiteral(" == ") + number(specialDept) + orRangeOpen +
                   range(specialRangeFirst, specialRangeLast) + QStringLiteral(")"),
               msgBlockDiscountError) &&
           run(update + D::table + set + D::isDiscountBlocked + QStringLiteral(" = 0") + where +
                   D::id + QStringLiteral(" != ") + number(specialDept) + andNotOpen +
                   range(specialRangeFirst, specialRangeLast) + QStringLiteral(")"),
               msgBlockDiscountError);
}
