#pragma once

#include <QHash>
#include <QList>
#include <QSharedPointer>
#include <atomic>
#include <mutex>

#include "Unit.h"
#include "VexCoreGlobal.h"

class DBManager;

// The units of measure of the article database's Units table, cached in memory and read again
// when the database changed. Until Initialize binds it to a database it follows G::dbArticles.
// Thread-safe.
class VEXCORE_EXPORT UnitsDBManager {
public:
    UnitsDBManager();
    ~UnitsDBManager();

    UnitsDBManager(const UnitsDBManager&) = delete;
    UnitsDBManager& operator=(const UnitsDBManager&) = delete;

    // Binds the manager to a database holding the Units table and loads it. False (and no unit
    // answered) when the database is null, has no Units table or cannot be read.
    bool Initialize(DBManager* db);
    // Forgets the units; none is answered until the next Initialize.
    void Uninitialize();

    // The unit of that number, or null when there is none (or the manager is not initialised).
    QSharedPointer<Unit> GetUnit(unsigned int unitNo);
    // Every unit, by number.
    QList<QSharedPointer<Unit>> GetUnits();
    // The name of the unit of that number into `name`; false (name untouched) when there is no
    // such unit. Copies no unit: an article's unit is named at every scan.
    bool GetUnitName(unsigned int unitNo, QString& name);

private:
    enum Source { FollowGlobal, Bound, Off };

    using Units = QHash<unsigned int, QSharedPointer<Unit>>;
    // Calls `read` with the units of the current source under the lock, reading them again
    // first when the source or its content changed; false, without calling it, when there is
    // no source to answer from.
    template <typename Read>
    bool withCurrent(Read read);
    static bool load(DBManager* from, Units& fresh);

    std::mutex mutex;
    // Written under the mutex, read without it at every scan.
    std::atomic<Source> mode{FollowGlobal};
    std::atomic<DBManager*> db{nullptr};
    DBManager* loadedFrom = nullptr;
    quint64 loadedVersion = 0;
    Units units;
};
