#pragma once

#include "DataBaseManagerGlobal.h"

class DBManager;

// Scope guard that keeps a database open for as long as it lives: a DBManager::Close() asked
// for meanwhile is carried out when the last guard is destroyed. Null databases are allowed.
class DATABASEMANAGER_EXPORT DBCloser {
public:
    explicit DBCloser(DBManager* db);
    ~DBCloser();

    DBCloser(const DBCloser&) = delete;
    DBCloser& operator=(const DBCloser&) = delete;

private:
    DBManager* db;
};
