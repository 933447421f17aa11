#include "UnitsDBManager.h"

#include <algorithm>

#include "DBManager.h"

namespace {
const QString unitsTable = QStringLiteral("Units");
const QString unitNoColumn = QStringLiteral("unit_no");
const QString unitNameColumn = QStringLiteral("unit_name");
}  // namespace

UnitsDBManager::UnitsDBManager() = default;

UnitsDBManager::~UnitsDBManager() = default;

bool UnitsDBManager::Initialize(DBManager* newDb) {
    std::lock_guard<std::mutex> lock(mutex);
    db = nullptr;
    units.clear();
    if (!newDb || !newDb->GetTable(unitsTable)) {
        return false;
    }
    db = newDb;
    if (!reload()) {
        db = nullptr;
        return false;
    }
    return true;
}

void UnitsDBManager::Uninitialize() {
    std::lock_guard<std::mutex> lock(mutex);
    db = nullptr;
    units.clear();
}

QSharedPointer<Unit> UnitsDBManager::GetUnit(unsigned int unitNo) {
    std::lock_guard<std::mutex> lock(mutex);
    if (!db) {
        return {};
    }
    if (db->GetDataVersion() != loadedVersion) {
        reload();
    }
    return units.value(unitNo);
}

QList<QSharedPointer<Unit>> UnitsDBManager::GetUnits() {
    std::lock_guard<std::mutex> lock(mutex);
    if (db && db->GetDataVersion() != loadedVersion) {
        reload();
    }
    QList<QSharedPointer<Unit>> all = units.values();
    std::sort(all.begin(), all.end(),
              [](const QSharedPointer<Unit>& a, const QSharedPointer<Unit>& b) {
                  return a->GetId() < b->GetId();
              });
    return all;
}

bool UnitsDBManager::reload() {
    const quint64 version = db->GetDataVersion();
    QSharedPointer<DBData> rows = QSharedPointer<DBData>::create();
    if (db->LoadAll(unitsTable, rows) != DB_OPERATION_SUCCESS) {
        return false;  // keep serving what was loaded before
    }
    QHash<unsigned int, QSharedPointer<Unit>> fresh;
    for (const DBRow* row : *rows) {
        const unsigned int number = row->GetValue(unitNoColumn).toUInt();
        fresh.insert(
            number, QSharedPointer<Unit>::create(number, row->GetValue(unitNameColumn).toString()));
    }
    units = fresh;
    loadedVersion = version;
    return true;
}
