#pragma once

#include <QString>
#include <QVector>
#include <memory>
#include <vector>

#include "DBColumn.h"
#include "DataBaseManagerGlobal.h"

// The description of one table, read from the live schema. Obtained from
// DBManager::GetTable, owned by the DBManager and valid until it is closed. Immutable: when
// the schema changes the manager describes the table anew and keeps this object alive.
class DATABASEMANAGER_EXPORT DBTable {
public:
    struct ColumnInfo {
        QString name;
        QString declaredType;
        bool notNull;
        QString defaultValue;
        int primaryKeyPosition;
    };

    DBTable(const QString& name, const QVector<ColumnInfo>& columns);
    ~DBTable();

    DBTable(const DBTable&) = delete;
    DBTable& operator=(const DBTable&) = delete;

    const QString& GetName() const { return name; }
    // The name quoted as an SQL identifier.
    const QString& GetQuotedName() const { return quotedName; }
    // The column of exactly that name (rows are read by case-sensitive column names), or null
    // when the table has none.
    const DBColumn* GetColumn(const QString& name) const;
    // All columns in table order.
    const QVector<const DBColumn*>& GetColumns() const { return columnList; }
    // The columns of the declared primary key, in key order; empty when the table has none.
    const QVector<const DBColumn*>& GetPrimaryKey() const { return primaryKey; }

private:
    QString name;
    QString quotedName;
    std::vector<std::unique_ptr<DBColumn>> columns;
    QVector<const DBColumn*> columnList;
    QVector<const DBColumn*> primaryKey;
};
