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
    QHash<unsigned int, QSharedPointer<Unit>> fresh;
    const quint64 version = newDb ? newDb->GetTableVersion(unitsTable) : 0;
    const bool loaded = newDb && newDb->GetTable(unitsTable) && load(newDb, fresh);
    std::lock_guard<std::mutex> lock(mutex);
    mode = loaded ? Bound : Off;
    db = loaded ? newDb : nullptr;
    loadedFrom = db;
    loadedVersion = version;
    units = loaded ? fresh : QHash<unsigned int, QSharedPointer<Unit>>();
    return loaded;
}

void UnitsDBManager::Uninitialize() {
    std::lock_guard<std::mutex> lock(mutex);
    mode = Off;
    db = nullptr;
    loadedFrom = nullptr;
    units.clear();
}

QSharedPointer<Unit> UnitsDBManager::GetUnit(unsigned int unitNo) {
    return current().value(unitNo);
}

QList<QSharedPointer<Unit>> UnitsDBManager::GetUnits() {
    QList<QSharedPointer<Unit>> all = current().values();
    std::sort(all.begin(), all.end(),
              [](const QSharedPointer<Unit>& a, const QSharedPointer<Unit>& b) {
                  return a->GetId() < b->GetId();
              });
    return all;
}

QHash<unsigned int, QSharedPointer<Unit>> UnitsDBManager::current() {
    // The database is asked without this manager's lock held: a thread holding the database in
    // a transaction may ask for a unit meanwhile. The units table's own version keeps the cache
    // valid while articles are written.
    DBManager* from = nullptr;
    {
        std::lock_guard<std::mutex> lock(mutex);
        from = mode == FollowGlobal ? G::dbArticles : (mode == Bound ? db : nullptr);
    }
    if (!from || !from->IsOpen()) {
        return {};
    }
    const quint64 version = from->GetTableVersion(unitsTable);
    {
        std::lock_guard<std::mutex> lock(mutex);
        if (from == loadedFrom && version == loadedVersion) {
            return units;
        }
    }
    QHash<unsigned int, QSharedPointer<Unit>> fresh;
    const bool loaded = load(from, fresh);
    std::lock_guard<std::mutex> lock(mutex);
    if (loaded) {
        units = fresh;
        loadedFrom = from;
        loadedVersion = version;
    } else if (from != loadedFrom) {
        return {};  // never answer from another database's units
    }
    return units;
}

bool UnitsDBManager::load(DBManager* from, QHash<unsigned int, QSharedPointer<Unit>>& fresh) {
    QSharedPointer<DBData> rows = QSharedPointer<DBData>::create();
    if (!from->GetTable(unitsTable) || from->LoadAll(unitsTable, rows) != DB_OPERATION_SUCCESS) {
        return false;
    }
    for (const DBRow* row : *rows) {
        const unsigned int number = row->GetValue(unitNoColumn).toUInt();
        fresh.insert(
            number, QSharedPointer<Unit>::create(number, row->GetValue(unitNameColumn).toString()));
    }
    return true;
}
