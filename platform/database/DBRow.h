#pragma once

#include <QString>
#include <QVariant>
#include <QVector>
#include <vector>

#include "DBField.h"
#include "DBTable.h"
#include "DataBaseManagerGlobal.h"

// The fields of one row of one table, in the order appended or as the database returned them.
// In a query the fields are equality conditions joined by AND; in a change they are the values
// to write. The row owns its fields.
class DATABASEMANAGER_EXPORT DBRow {
public:
    explicit DBRow(const DBTable* table);
    // Takes ownership of the fields.
    DBRow(const DBTable* table, const QVector<DBField*>& fields);
    ~DBRow();

    DBRow(const DBRow&) = delete;
    DBRow& operator=(const DBRow&) = delete;

    // Appends a field for the named column. Returns false when the table (or the row's null
    // table) has no such column; the field is kept anyway, so that an operation given this row
    // refuses it instead of silently dropping a condition.
    bool AppendField(const QString& columnName, const QVariant& value);
    // Takes ownership of the field.
    void AppendField(DBField* field);
    // Appends a field for a column already looked up (null: a column the table lacks, known by
    // `columnName`).
    void AppendField(const DBColumn* column, const QString& columnName, const QVariant& value);
    // Makes room for that many fields in one go.
    void ReserveFields(int count);

    const DBTable* GetTable() const { return table; }
    const QVector<DBField*>& GetFields() const { return fields; }
    int FieldCount() const { return fields.size(); }
    // The first field for that column name (exact match), or null.
    const DBField* GetField(const QString& columnName) const;
    // The value of that field, or an invalid QVariant when the row has none.
    QVariant GetValue(const QString& columnName) const;

private:
    const DBTable* table;
    QVector<DBField*> fields;
    // Fields the row made itself live here while the reserved room lasts (it is never
    // reallocated, so pointers stay valid); the others, and fields handed in, are owned
    // through `owned`.
    std::vector<DBField> madeHere;
    QVector<DBField*> owned;
};
