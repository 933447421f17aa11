#include "QueryLimits.h"

#include <sqlite3.h>

int QueryLimits::Install(sqlite3* connection) {
    sqlite3_limit(connection, SQLITE_LIMIT_LENGTH, maxValueBytes);
    sqlite3_limit(connection, SQLITE_LIMIT_SQL_LENGTH, maxSqlBytes);
    sqlite3_limit(connection, SQLITE_LIMIT_COLUMN, maxColumns);
    sqlite3_limit(connection, SQLITE_LIMIT_EXPR_DEPTH, maxExpressionDepth);
    sqlite3_limit(connection, SQLITE_LIMIT_COMPOUND_SELECT, maxCompoundSelects);
    sqlite3_limit(connection, SQLITE_LIMIT_VDBE_OP, maxProgramSteps);
    sqlite3_limit(connection, SQLITE_LIMIT_FUNCTION_ARG, maxFunctionArguments);
    sqlite3_limit(connection, SQLITE_LIMIT_ATTACHED, 0);
    sqlite3_limit(connection, SQLITE_LIMIT_LIKE_PATTERN_LENGTH, maxGlobPatternBytes);
    sqlite3_limit(connection, SQLITE_LIMIT_VARIABLE_NUMBER, maxParameters);
    sqlite3_limit(connection, SQLITE_LIMIT_TRIGGER_DEPTH, maxTriggerDepth);
    sqlite3_limit(connection, SQLITE_LIMIT_WORKER_THREADS, 0);
    sqlite3_progress_handler(connection, progressSteps, &QueryLimits::onProgress, this);
    return boundedPrintf.Register(connection);
}

void QueryLimits::Start(int limitMs) {
    running = true;
    stopped = Reason::None;
    timeLimitMs = limitMs;
    timed = limitMs > 0;
    // The clock and the heap are read at the first check, after the first thousand steps: a
    // lookup ends before that, and a scan made at every sale should not pay for either.
    measuring = false;
}

void QueryLimits::Stop() {
    running = false;
}

bool QueryLimits::Exceeded() {
    if (!running) {
        return false;
    }
    if (stopped != Reason::None) {
        return true;
    }
    if (!measuring) {
        measuring = true;
        deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeLimitMs);
        memoryAtStart = sqlite3_memory_used();
        return false;
    }
    if (timed && std::chrono::steady_clock::now() > deadline) {
        stopped = Reason::Time;
    } else if (sqlite3_memory_used() - memoryAtStart > maxQueryMemoryBytes) {
        stopped = Reason::Memory;
    }
    return stopped != Reason::None;
}

QString QueryLimits::StopReason() const {
    switch (stopped) {
        case Reason::Time:
            return QStringLiteral("the query ran longer than %1 ms and was stopped")
                .arg(timeLimitMs);
        case Reason::Memory:
            return QStringLiteral("the query took more than %1 MiB and was stopped")
                .arg(maxQueryMemoryBytes / (1024 * 1024));
        case Reason::None:
        default:
            return QString();
    }
}

int QueryLimits::onProgress(void* limits) {
    return static_cast<QueryLimits*>(limits)->Exceeded() ? 1 : 0;
}

QueryLimits::LongValueScope::LongValueScope(sqlite3* connection, int bytes)
    : connection(connection), lifted(bytes > maxValueBytes) {
    if (lifted) {
        sqlite3_limit(connection, SQLITE_LIMIT_LENGTH, bytes);
    }
}

QueryLimits::LongValueScope::~LongValueScope() {
    if (lifted) {
        sqlite3_limit(connection, SQLITE_LIMIT_LENGTH, maxValueBytes);
    }
}
