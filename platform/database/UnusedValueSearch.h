#pragma once

// Internal to the database layer: the smallest value a column does not hold.

#include <QVariant>

class DBColumn;
class DBTable;
class StatementRunner;

namespace UnusedValueSearch {

// The smallest integer >= 1 that `column` does not hold, for a column with a unique index:
// gallops over the index (about 2 log n probes) instead of walking every value. False when the
// column's values do not allow it (e.g. a REAL among them) or the database failed: the caller
// then asks the plain statement. Runs under the DBManager's mutex.
bool FindByIndex(StatementRunner& runner, const DBTable* table, const DBColumn* column,
                 QVariant& value);

}  // namespace UnusedValueSearch
