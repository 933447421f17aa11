#include "UnusedValueSearch.h"

#include <sqlite3.h>

#include <limits>

#include "DBTable.h"
#include "StatementRunner.h"

namespace UnusedValueSearch {

bool FindByIndex(StatementRunner& runner, const DBTable* table, const DBColumn* column,
                 QVariant& value) {
    const QString c = column->GetQuotedName();
    const QString t = table->GetQuotedName();
    // The k-th value above `lo` in index order; skipping entries with OFFSET costs the index a
    // step each, far less than counting or probing them one by one.
    const StatementRunner::Lease nth = runner.TryPrepare(
        QStringLiteral("SELECT %1 FROM %2 WHERE %1 > ? ORDER BY %1 LIMIT 1 OFFSET ?").arg(c, t));
    if (!nth) {
        return false;
    }
    sqlite3_stmt* handle = nth->Handle();
    // Whether the k-th value above `lo` is lo + k; as the values are distinct, every value of
    // (lo, lo + k] is then present.
    bool failed = false;
    auto contiguous = [handle, &failed](qint64 lo, qint64 k) {
        sqlite3_bind_int64(handle, 1, lo);
        sqlite3_bind_int64(handle, 2, k - 1);
        const int step = sqlite3_step(handle);
        const bool holds = step == SQLITE_ROW && sqlite3_column_type(handle, 0) == SQLITE_INTEGER &&
                           sqlite3_column_int64(handle, 0) == lo + k;
        failed = failed || (step != SQLITE_ROW && step != SQLITE_DONE);
        sqlite3_reset(handle);
        return holds;
    };
    constexpr qint64 largest = std::numeric_limits<qint64>::max() / 4;
    // Gallop: every value of 1..lo is present; double the stride until a gap lies within it.
    qint64 lo = 0;
    qint64 stride = 1;
    while (lo < largest && contiguous(lo, stride)) {
        lo += stride;
        stride *= 2;
    }
    // Bisect the stride that holds the gap: (lo, lo + stride] misses a value.
    while (lo < largest && stride > 1 && !failed) {
        const qint64 half = stride / 2;
        if (contiguous(lo, half)) {
            lo += half;
            stride -= half;
        } else {
            stride = half;
        }
    }
    if (failed || lo >= largest) {
        return false;
    }
    // Values other than integers (a REAL among the keys) break the reasoning above; make sure
    // the answer is really unused, or let the plain statement decide.
    const StatementRunner::Lease present =
        runner.TryPrepare(QStringLiteral("SELECT 1 FROM %2 WHERE %1 = ?").arg(c, t));
    if (!present) {
        return false;
    }
    sqlite3_bind_int64(present->Handle(), 1, lo + 1);
    if (sqlite3_step(present->Handle()) != SQLITE_DONE) {
        return false;
    }
    value = QVariant(static_cast<qlonglong>(lo + 1));
    return true;
}

}  // namespace UnusedValueSearch
