#pragma once

// Internal to the database layer: which tables' rows may have changed, without asking the
// database.

#include <QString>
#include <QtGlobal>
#include <string>
#include <unordered_map>

struct sqlite3;

// Counts the rows this connection changes, per table (SQLite's update hook, so triggers'
// changes too), the writes it cannot attribute to a table, and the commits other connections
// made (the pager's data version), so that DBManager::GetTableVersion costs no database
// access. Guarded by the DBManager's mutex: the hook runs inside this connection's statements.
class ChangeTracker {
public:
    // Installs the update hook on a newly opened connection.
    void Attach(sqlite3* connection);
    // A write that SQLite makes without reporting its rows (emptying a table without triggers).
    void CountTableWrite(const QString& table);
    // A write whose tables are not known (a statement handed to Execute).
    void CountUnattributedWrite() { ++unattributedWrites; }

    // Moves whenever rows of `table` may have changed: at once for this connection's writes
    // (inside a transaction too), from this connection's next read on for other connections'
    // commits.
    quint64 TableVersion(sqlite3* connection, const QString& table);
    // The pager's data version: moves with every commit, this connection's own included.
    static quint64 DataVersion(sqlite3* connection);

private:
    static void onRowChange(void* tracker, int operation, const char* database, const char* table,
                            long long rowid);

    std::unordered_map<std::string, quint64> tableChanges;
    // A bulk statement changes one table row after row: its counter is remembered.
    std::string lastChangedTable;
    quint64* lastChangedCount = nullptr;
    quint64 unattributedWrites = 0;
    unsigned int seenDataVersion = 0;
    quint64 commitEpoch = 0;
};
