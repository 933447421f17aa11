#pragma once

#include <QString>

#include "VexCoreGlobal.h"

class DBManager;
class DBTable;

// Base of the managers that keep one table and a copy of it in memory.
class VEXCORE_EXPORT AbstractDatabaseTableManager {
public:
    AbstractDatabaseTableManager();
    virtual ~AbstractDatabaseTableManager();

    AbstractDatabaseTableManager(const AbstractDatabaseTableManager&) = delete;
    AbstractDatabaseTableManager& operator=(const AbstractDatabaseTableManager&) = delete;

    // Binds the manager to the named table of `db` and loads the records with
    // getRecordsFromDB(). False when `db` is null, has no such table or the table cannot be
    // read; an empty table is no failure.
    virtual bool Initialize(DBManager* db, const QString& tableName);
    // Clears the initialised flag and the table binding; always true.
    virtual bool Uninitialize();
    // Rebuilds the table with its default rows.
    virtual bool ResetTable() = 0;
    // Reloads the records from the table: 0 loaded, 3 the table is empty, 4 it failed.
    virtual int getRecordsFromDB() = 0;

    bool IsInitialized() const { return initialized; }
    DBTable* GetTable() const { return table; }
    DBManager* GetDatabase() const { return db; }
    const QString& GetTableName() const { return tableName; }

protected:
    bool initialized;
    DBTable* table;
    DBManager* db;
    QString tableName;
};
