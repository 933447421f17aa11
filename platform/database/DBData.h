#pragma once

#include <QVector>

#include "DBRow.h"
#include "DataBaseManagerGlobal.h"

// An ordered collection of rows, in the order appended or as the database returned them. It
// owns its rows and is always handled through QSharedPointer<DBData>.
class DATABASEMANAGER_EXPORT DBData {
public:
    DBData();
    ~DBData();

    DBData(const DBData&) = delete;
    DBData& operator=(const DBData&) = delete;

    // Takes ownership of the row.
    void AppendRow(DBRow* row);
    const QVector<DBRow*>& GetRows() const { return rows; }
    DBRow* GetRow(int index) const { return rows.value(index, nullptr); }
    int RowCount() const { return rows.size(); }
    bool IsEmpty() const { return rows.isEmpty(); }
    // Deletes every row.
    void Clear();

    QVector<DBRow*>::const_iterator begin() const { return rows.cbegin(); }
    QVector<DBRow*>::const_iterator end() const { return rows.cend(); }

private:
    QVector<DBRow*> rows;
};
