#pragma once

#include <QList>
#include <QMutex>
#include <QObject>
#include <QSharedPointer>

#include "AbstractDatabaseTableManager.h"
#include "Article.h"
#include "ArticleManagerGlobal.h"
#include "DBManager.h"
#include "Dept.h"
#include "DeptFirmwareInitializer.h"

// Keeps the Dept table (departments 1 to 99) and a cache of it, answers the sale logic's
// per-article department questions, writes single departments and announces each written
// department with deptChanged(deptId). Thread-safe: the mutex guards the cache and the writes
// of AddOrUpdateRecord; the signal is emitted after it is released.
//
// The cache entry at position n - 1 is department n, as in a table built by ResetTable.
class ARTICLEMANAGER_EXPORT DeptDBManager : public QObject, public AbstractDatabaseTableManager {
    Q_OBJECT

public:
    DeptDBManager();
    ~DeptDBManager() override;

    // The base's two-argument form stays callable beside this one.
    using AbstractDatabaseTableManager::Initialize;
    // Binds the manager to the Dept table of `db` and loads the cache, then binds the firmware
    // initializer to G::dbArticles. False when any of that fails.
    bool Initialize(DBManager* db);
    // Clears the table binding; the cache is kept. Always true.
    bool Uninitialize() override;

    // Department deptId from the cache, or null for 0 or a number past the cache.
    QSharedPointer<const Dept> GetDept(unsigned int deptId);
    // A copy of the whole cache.
    QList<QSharedPointer<const Dept>> GetDepts();
    // The firmware's department rules, owned by this manager.
    DeptFirmwareInitializer* GetDeptFirmwareInitializer() { return firmwareInitializer; }

    // Whether the price of an article of this department may be modified (its department does
    // not block discounts). False when the department is not in the cache.
    bool DoesDeptPermitsPriceModifications(const Article& article);
    // Whether the article's department sends it to the order printer. False when the
    // department is not in the cache.
    bool IsDeptForPrinterOrder(const Article& article);
    // Whether the article's department is special; true while not initialised.
    bool IsDeptSpecial(const Article& article);

    // Writes the department (replacing a stored one of the same number), reloads the cache and
    // emits deptChanged. 0 done, 4 the write failed, 6 not initialised, 3 or 4 from the reload:
    // a failed reload returns without unlocking, so every later locked call blocks.
    int AddOrUpdateRecord(QSharedPointer<const Dept> dept);
    // Rebuilds the table: 99 unnamed departments with the firmware flags and maxima; reloads
    // the cache. No signal.
    bool ResetTable() override;
    // Reloads the cache: 0 loaded, 3 the table is empty, 4 the load failed.
    int getRecordsFromDB() override;
    // One department from a loaded row; missing columns keep their defaults (no name, maxima
    // 10000, flags false).
    QSharedPointer<const Dept> extractDept(DBRow* row);

signals:
    void deptChanged(int deptId);

private:
    DeptFirmwareInitializer* firmwareInitializer;
    QList<QSharedPointer<const Dept>> depts;
    QMutex mutex;
};
