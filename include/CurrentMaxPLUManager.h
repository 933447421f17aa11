#pragma once

#include "ArticleManagerGlobal.h"
#include "DBManager.h"

// Knows how many decimal digits the largest PLU of the Article table has. No lock of its own;
// there is no Uninitialize.
class ARTICLEMANAGER_EXPORT CurrentMaxPLUManager {
public:
    CurrentMaxPLUManager();
    ~CurrentMaxPLUManager();

    CurrentMaxPLUManager(const CurrentMaxPLUManager&) = delete;
    CurrentMaxPLUManager& operator=(const CurrentMaxPLUManager&) = delete;

    // Binds the manager to the Article table of `db` and counts. False (logged) when the
    // database or table is missing or the count failed.
    bool Initialize(DBManager* db);
    // Counts the digits of the largest PLU anew (0 for an empty table; a minus sign counts as
    // a digit). False, with the count unchanged, when the maximum cannot be read or converted.
    bool DetermineDigitsCountOfMaxPlu();
    // The last count, without database access.
    unsigned char GetDigitsCountOfMaxPlu();

private:
    bool loadDatabaseAndTables(DBManager* db);

    unsigned char digitsCount;
    DBManager* db;
    DBTable* table;
};
