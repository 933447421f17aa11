#include "AbstractDatabaseTableManager.h"

#include "DBManager.h"

namespace {
constexpr int loadFailed = 4;
}  // namespace

AbstractDatabaseTableManager::AbstractDatabaseTableManager()
    : initialized(false), table(nullptr), db(nullptr) {}

AbstractDatabaseTableManager::~AbstractDatabaseTableManager() = default;

bool AbstractDatabaseTableManager::Initialize(DBManager* newDb, const QString& newTableName) {
    if (!newDb) {
        return false;
    }
    db = newDb;
    tableName = newTableName;
    table = db->GetTable(tableName);
    if (!table) {
        return false;
    }
    if (getRecordsFromDB() == loadFailed) {
        return false;
    }
    initialized = true;
    return true;
}

bool AbstractDatabaseTableManager::Uninitialize() {
    initialized = false;
    table = nullptr;
    return true;
}
