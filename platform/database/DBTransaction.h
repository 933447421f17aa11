#pragma once

#include "DataBaseManagerGlobal.h"
#include "eDBOperationResult.h"

class DBManager;

// A transaction for a scope: begins in its constructor (DBManager::BeginTransaction) and rolls
// back in its destructor unless committed, so that no return path or exception can leave the
// transaction open and the database's lock held by this thread. Not copyable.
//
//     DBTransaction transaction(db);
//     if (transaction.Result() != DB_OPERATION_SUCCESS) return ...;
//     ... writes ...
//     return transaction.Commit();
class DATABASEMANAGER_EXPORT DBTransaction {
public:
    explicit DBTransaction(DBManager* db);
    ~DBTransaction();

    DBTransaction(const DBTransaction&) = delete;
    DBTransaction& operator=(const DBTransaction&) = delete;

    // 0 when the transaction began (a null database gives 6, one already in a transaction 7).
    eDBOperationResult Result() const { return began; }
    // Begun and neither committed nor rolled back.
    bool IsActive() const { return active; }
    // Makes every write of the transaction durable at once; on failure nothing of it is kept.
    // 7 when it is not active.
    eDBOperationResult Commit();
    // Undoes every write of the transaction. 7 when it is not active.
    eDBOperationResult Rollback();

private:
    DBManager* db;
    eDBOperationResult began;
    bool active;
};
