#pragma once

// Internal to the database layer: the descriptions of the tables of one connection.

#include <QHash>
#include <QSet>
#include <QString>
#include <memory>
#include <vector>

#include "DBTable.h"
#include "SqliteStatement.h"

struct sqlite3;

// Describes the tables of the live schema as DBTable objects and keeps every description it
// handed out until Clear, so that pointers stay valid after the schema changed; also knows
// which columns lead an index and which carry a unique one. Guarded by the DBManager's mutex.
class SchemaCatalogue {
public:
    // Reads the schema again when its version moved since it was last described; unchanged
    // tables keep their descriptions. Returns true when it read the schema again.
    bool Refresh(sqlite3* connection);
    // The table of exactly that name (or, with `ignoreCase`, failing that, the one whose name
    // differs only in case) as last described; null when there is none.
    DBTable* Find(const QString& name, bool ignoreCase) const;
    // The tables as last described, by name.
    const QHash<QString, DBTable*>& Tables() const { return tables; }
    bool LeadsAnIndex(const QString& table, const QString& column) const;
    bool HasUniqueIndex(const QString& table, const QString& column) const;
    // Whether a whole-table index ordered by the column under COLLATE NOCASE leads with it.
    bool LeadsANoCaseIndex(const QString& table, const QString& column) const;
    // The schema version last described (-1 before the first).
    qint64 Version() const { return version; }
    // Forgets everything; called when the connection closes.
    void Clear();

private:
    void describeIndexes(sqlite3* connection);

    QHash<QString, DBTable*> tables;
    std::vector<std::unique_ptr<DBTable>> described;
    QHash<QString, QSet<QString>> leadingIndexColumns;
    QHash<QString, QSet<QString>> uniqueColumns;
    QHash<QString, QSet<QString>> noCaseColumns;
    qint64 version = -1;
    std::unique_ptr<SqliteStatement> versionQuery;
};
