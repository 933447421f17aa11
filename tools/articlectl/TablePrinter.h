#pragma once

#include <QStringList>
#include <QTextStream>
#include <QVector>

// Prints rows as a table for people: a header, a rule, and columns padded to their widest cell.
class TablePrinter {
public:
    // A header per column; a header ending in ">" marks a right-aligned (numeric) column.
    explicit TablePrinter(const QStringList& headers);

    void AddRow(const QStringList& cells);
    int RowCount() const { return rows.size(); }
    void Print(QTextStream& out) const;

private:
    QStringList headers;
    QVector<bool> rightAligned;
    QVector<QStringList> rows;
};
