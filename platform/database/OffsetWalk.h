#pragma once

// Internal to the database layer: walks through a table by position.

#include <sqlite3.h>
#include <QString>

#include "DBDirectQueryResult.h"
#include "StatementRunner.h"

// A caller that reads the rows of a table one by one as "SELECT * FROM t WHERE c = v LIMIT 1
// OFFSET n" for n = 0, 1, 2, ... would make SQLite skip n rows each time: a walk quadratic in
// the table. When such a text continues the walk the last one left, and the file has not
// changed since (own writes or other connections', SQLite's data version), its row is the first
// one past the rowid of the last: found through the index in one seek. That holds only when the
// text's plan reads the rows in rowid order (a scan of the table, or an index on `c` alone),
// which is checked whenever a walk starts. Any other text, and any doubt, runs the text itself.
// Guarded by the DBManager's mutex.
class OffsetWalk {
public:
    explicit OffsetWalk(StatementRunner& runner) : runner(runner) {}

    // Answers `sql` into `result` (not null) when it continues the walk: true with `outcome`
    // set; false when the text must run itself.
    bool Continue(const QString& sql, DBDirectQueryResult* result, eDBOperationResult& outcome);
    // Notes where `sql`, just run by itself with one row in `result`, leaves a walk.
    void Ran(const QString& sql, const DBDirectQueryResult& result);
    // Forgets the walk (the connection closes).
    void Forget() { position.valid = false; }

private:
    struct Shape {
        QString table;
        QString column;
        qlonglong value = 0;
        qlonglong offset = 0;
    };
    static bool parse(const QString& sql, Shape& shape);
    // The file's data version and this connection's change count, read inside a transaction.
    bool stamp(quint32& version, sqlite3_int64& changes) const;
    bool readsInRowidOrder(const Shape& shape);

    StatementRunner& runner;
    struct Position {
        bool valid = false;
        Shape shape;
        sqlite3_int64 rowid = 0;
        quint32 version = 0;
        sqlite3_int64 changes = 0;
    } position;
};
