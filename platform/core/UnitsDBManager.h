#pragma once

#include <QHash>
#include <QList>
#include <QSharedPointer>
#include <mutex>

#include "Unit.h"
#include "VexCoreGlobal.h"

class DBManager;

// The units of measure of the article database's Units table, cached in memory and read again
// when the database changed. Thread-safe.
class VEXCORE_EXPORT UnitsDBManager {
public:
    UnitsDBManager();
    ~UnitsDBManager();

    UnitsDBManager(const UnitsDBManager&) = delete;
    UnitsDBManager& operator=(const UnitsDBManager&) = delete;

    // Binds the manager to a database holding the Units table and loads it. False when the
    // database is null, has no Units table or cannot be read.
    bool Initialize(DBManager* db);
    void Uninitialize();

    // The unit of that number, or null when there is none (or the manager is not initialised).
    QSharedPointer<Unit> GetUnit(unsigned int unitNo);
    // Every unit, by number.
    QList<QSharedPointer<Unit>> GetUnits();

private:
    bool reload();

    std::mutex mutex;
    DBManager* db = nullptr;
    quint64 loadedVersion = 0;
    QHash<unsigned int, QSharedPointer<Unit>> units;
};
