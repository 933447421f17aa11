#include "DBCloser.h"

#include "DBManager.h"

DBCloser::DBCloser(DBManager* db) : db(db) {
    if (db) {
        db->AcquireKeepOpen();
    }
}

DBCloser::~DBCloser() {
    if (db) {
        db->ReleaseKeepOpen();
    }
}
