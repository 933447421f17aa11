#pragma once

#include <QString>

#include "DataBaseManagerGlobal.h"

class DBTable;

// One column of a table as the live schema describes it. Owned by its DBTable; never changes
// after it was read.
class DATABASEMANAGER_EXPORT DBColumn {
public:
    DBColumn(const DBTable* table, int index, const QString& name, const QString& declaredType,
             bool notNull, const QString& defaultValue, int primaryKeyPosition);

    DBColumn(const DBColumn&) = delete;
    DBColumn& operator=(const DBColumn&) = delete;

    // The table the column belongs to.
    const DBTable* GetTable() const { return table; }
    // Position of the column in the table, from 0.
    int GetIndex() const { return index; }
    const QString& GetName() const { return name; }
    // The name quoted as an SQL identifier.
    const QString& GetQuotedName() const { return quotedName; }
    // The type as declared in CREATE TABLE, e.g. "INTEGER" or "VARCHAR(40)".
    const QString& GetType() const { return declaredType; }
    // The size in a declared type such as "VARCHAR(40)"; 0 when the type declares none.
    // SQLite does not enforce it: programs that want the limit check it themselves.
    int GetSize() const { return size; }
    bool IsNotNull() const { return notNull; }
    // The DEFAULT clause as SQL text, empty when there is none.
    const QString& GetDefaultValue() const { return defaultValue; }
    bool IsPrimaryKey() const { return primaryKeyPosition > 0; }
    // 1-based position within the primary key, 0 when not part of it.
    int GetPrimaryKeyPosition() const { return primaryKeyPosition; }

private:
    const DBTable* table;
    int index;
    QString name;
    QString quotedName;
    QString declaredType;
    bool notNull;
    QString defaultValue;
    int primaryKeyPosition;
    int size;
};
