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
    db = loaded ? newDb : nullptr;
    mode = loaded ? Bound : Off;
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

template <typename Read>
bool UnitsDBManager::withCurrent(Read read) {
    // The database is asked without this manager's lock held: a thread holding the database in
    // a transaction may ask for a unit meanwhile. The units table's own version keeps the cache
    // valid while articles are written.
    const Source source = mode;
    DBManager* from =
        source == FollowGlobal ? G::dbArticles : (source == Bound ? db.load() : nullptr);
    if (!from || !from->IsOpen()) {
        return false;
    }
    const quint64 version = from->GetTableVersion(unitsTable);
    {
        std::lock_guard<std::mutex> lock(mutex);
        if (from == loadedFrom && version == loadedVersion) {
            read(units);
            return true;
        }
    }
    Units fresh;
    const bool loaded = load(from, fresh);
    std::lock_guard<std::mutex> lock(mutex);
    if (loaded) {
        units = fresh;
        loadedFrom = from;
        loadedVersion = version;
    } else if (from != loadedFrom) {
        return false;  // never answer from another database's units
    }
    read(units);
    return true;
}

QSharedPointer<Unit> UnitsDBManager::GetUnit(unsigned int unitNo) {
    QSharedPointer<Unit> unit;
    withCurrent([&](const Units& current) { unit = current.value(unitNo); });
    return unit;
}

QList<QSharedPointer<Unit>> UnitsDBManager::GetUnits() {
    QList<QSharedPointer<Unit>> all;
    withCurrent([&](const Units& current) { all = current.values(); });
    std::sort(all.begin(), all.end(),
              [](const QSharedPointer<Unit>& a, const QSharedPointer<Unit>& b) {
                  return a->GetId() < b->GetId();
              });
    return all;
}

bool UnitsDBManager::GetUnitName(unsigned int unitNo, QString& name) {
    bool found = false;
    withCurrent([&](const Units& current) {
        const auto unit = current.constFind(unitNo);
        if (unit != current.constEnd() && *unit) {
            name = (*unit)->GetName();
            found = true;
        }
    });
    return found;
}

bool UnitsDBManager::load(DBManager* from, Units& fresh) {
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
