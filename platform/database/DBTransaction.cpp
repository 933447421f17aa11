#include "DBTransaction.h"

#include "DBManager.h"

DBTransaction::DBTransaction(DBManager* db)
    : db(db)
    , began(db ? db->BeginTransaction() : DB_OPERATION_NOT_INITIALIZED)
    , active(began == DB_OPERATION_SUCCESS) {}

DBTransaction::~DBTransaction() {
    if (active) {
        db->RollbackTransaction();
    }
}

eDBOperationResult DBTransaction::Commit() {
    if (!active) {
        return DB_OPERATION_INVALID_ARGUMENT;
    }
    active = false;
    return db->CommitTransaction();
}

eDBOperationResult DBTransaction::Rollback() {
    if (!active) {
        return DB_OPERATION_INVALID_ARGUMENT;
    }
    active = false;
    return db->RollbackTransaction();
}
