#include "CurrentMaxPLUManager.h"

#include "DBCloser.h"
#include "LibraryLog.h"
#include "TableSchema.h"

namespace {

namespace A = TableSchema::Article;

const QString msgNoDatabase = QStringLiteral(
    "CurrentMaxPLUManager::loadDatabaseAndTables(): ERROR: Can not open articles database.");
const QString msgNoTable = QStringLiteral(
    "CurrentMaxPLUManager::loadDatabaseAndTables(): ERROR: Can not find articles table in "
    "database.");
const QString msgMaxError = QStringLiteral(
    "CurrentMaxPLUManager::determineDigitsCountOfMaxPlu(): ERROR: Can not get max PLU value from "
    "article database table.");
const QString msgConvertError = QStringLiteral(
    "CurrentMaxPLUManager::determineDigitsCountOfMaxPlu(): ERROR: Can not convert "
    "'maxPLUValueQVariant' to long long int.");

}  // namespace

CurrentMaxPLUManager::CurrentMaxPLUManager() : digitsCount(0), db(nullptr), table(nullptr) {}

CurrentMaxPLUManager::~CurrentMaxPLUManager() = default;

bool CurrentMaxPLUManager::Initialize(DBManager* newDb) {
    if (!loadDatabaseAndTables(newDb)) {
        return false;
    }
    return DetermineDigitsCountOfMaxPlu();
}

bool CurrentMaxPLUManager::loadDatabaseAndTables(DBManager* newDb) {
    if (!newDb) {
        LogMessage(logLevelError, msgNoDatabase);
        return false;
    }
    DBCloser closer(newDb);
    db = newDb;
    table = db->GetTable(A::table);
    if (!table) {
        LogMessage(logLevelError, msgNoTable);
        return false;
    }
    return true;
}

bool CurrentMaxPLUManager::DetermineDigitsCountOfMaxPlu() {
    QVariant maxPLUValueQVariant;
    if (!db || !table ||
        db->MaxValue(table->GetName(), A::pluNo, QString(), maxPLUValueQVariant) !=
            DB_OPERATION_SUCCESS) {
        LogMessage(logLevelError, msgMaxError);
        return false;
    }
    if (maxPLUValueQVariant.toString().isEmpty()) {
        digitsCount = 0;
        return true;
    }
    bool converted = false;
    qlonglong value = maxPLUValueQVariant.toLongLong(&converted);
    if (!converted) {
        LogMessage(logLevelError, msgConvertError);
        return false;
    }
    int count = value < 0 ? 1 : 0;
    while (value != 0) {
        value /= 10;
        ++count;
    }
    digitsCount = static_cast<unsigned char>(count);
    return true;
}

unsigned char CurrentMaxPLUManager::GetDigitsCountOfMaxPlu() {
    return digitsCount;
}
