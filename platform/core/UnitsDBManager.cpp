#include "UnitsDBManager.h"

#include <algorithm>

#include "DBManager.h"
#include "Globals.h"

namespace {
const QString unitsTable = QStringLiteral("Units");
const QString unitNoColumn = QStringLiteral("unit_no");
const QString unitNameColumn = QStringLiteral("unit_name");
}  // namespace

UnitsDBManager::UnitsDBManager() = default;

UnitsDBManager::~UnitsDBManager() = default;

bool UnitsDBManager::Initialize(DBManager* newDb) {
    std::lock_guard<std::mutex> lock(mutex);
    units.clear();
    loadedFrom = nullptr;
    mode = Off;
    db = nullptr;
    if (!newDb || !newDb->GetTable(unitsTable) || !reload(newDb)) {
        return false;
    }
    mode = Bound;
    db = newDb;
    return true;
}

void UnitsDBManager::Uninitialize() {
    std::lock_guard<std::mutex> lock(mutex);
    mode = Off;
    db = nullptr;
    loadedFrom = nullptr;
    units.clear();
}

QSharedPointer<Unit> UnitsDBManager::GetUnit(unsigned int unitNo) {
    std::lock_guard<std::mutex> lock(mutex);
    refresh();
    return units.value(unitNo);
}

QList<QSharedPointer<Unit>> UnitsDBManager::GetUnits() {
    std::lock_guard<std::mutex> lock(mutex);
    refresh();
    QList<QSharedPointer<Unit>> all = units.values();
    std::sort(all.begin(), all.end(),
              [](const QSharedPointer<Unit>& a, const QSharedPointer<Unit>& b) {
                  return a->GetId() < b->GetId();
              });
    return all;
}

DBManager* UnitsDBManager::source() const {
    switch (mode) {
        case FollowGlobal:
            return G::dbArticles;
        case Bound:
            return db;
        case Off:
        default:
            return nullptr;
    }
}

void UnitsDBManager::refresh() {
    DBManager* from = source();
    if (!from || !from->IsOpen()) {
        units.clear();
        loadedFrom = nullptr;
        return;
    }
    if (from != loadedFrom || from->GetDataVersion() != loadedVersion) {
        reload(from);
    }
}

bool UnitsDBManager::reload(DBManager* from) {
    const quint64 version = from->GetDataVersion();
    QSharedPointer<DBData> rows = QSharedPointer<DBData>::create();
    if (!from->GetTable(unitsTable) || from->LoadAll(unitsTable, rows) != DB_OPERATION_SUCCESS) {
        if (from != loadedFrom) {
            units.clear();  // never answer from another database's units
        }
        return false;
    }
    QHash<unsigned int, QSharedPointer<Unit>> fresh;
    for (const DBRow* row : *rows) {
        const unsigned int number = row->GetValue(unitNoColumn).toUInt();
        fresh.insert(
            number, QSharedPointer<Unit>::create(number, row->GetValue(unitNameColumn).toString()));
    }
    units = fresh;
    loadedFrom = from;
    loadedVersion = version;
    return true;
}
