#pragma once

// Internal to the database layer: what one query may cost, and the SQLite limits that keep
// every statement of a connection small.

#include <QString>
#include <chrono>

#include "BoundedPrintf.h"

struct sqlite3;

// The budget of the query that Execute is running, checked by SQLite's progress handler every
// `progressSteps` virtual-machine steps and by this layer's like(), upper() and lower() inside
// their loops, so that not even one function call can run far past it. Owned by the
// connection; guarded by the DBManager's mutex (checks run on the thread running the query).
class QueryLimits {
public:
    // The register stores names of at most 40 characters and barcodes of at most 20; each limit
    // leaves a margin of hundreds of times that, while keeping SQLite's quadratic built-in
    // functions (instr(), replace()) to a few milliseconds per call.
    static constexpr int maxValueBytes = 16 * 1024;  // one text or blob
    static constexpr int maxSqlBytes = 64 * 1024;    // one SQL text
    static constexpr int maxColumns = 100;           // in a table, a result or an index
    static constexpr int maxExpressionDepth = 100;
    static constexpr int maxCompoundSelects = 20;
    static constexpr int maxProgramSteps = 50000;  // size of one compiled statement
    static constexpr int maxFunctionArguments = 32;
    static constexpr int maxGlobPatternBytes = 1000;  // GLOB; like() is this layer's own
    static constexpr int maxParameters = 250;
    static constexpr int maxTriggerDepth = 10;
    // SQLite heap a query may take above what was in use when it started (process-wide
    // figure: another connection's work in the same instant counts too).
    static constexpr long long maxQueryMemoryBytes = 16LL * 1024 * 1024;
    static constexpr int progressSteps = 1000;
    // How often the custom functions look at the budget, in units of their work.
    static constexpr int checkEveryUnits = 1 << 14;

    // Applies the limits above to a connection, installs the progress handler and bounds the
    // widths of printf(). No database is attached to it either: ATTACH could create files
    // anywhere. Returns an SQLite result code.
    int Install(sqlite3* connection);

    // Starts the budget of one query: `timeLimitMs` (0: no time limit) and the memory limit,
    // both counted from the first check (a query that ends before it is never measured).
    void Start(int timeLimitMs);
    void Stop();
    // True once the running query went past its budget (and from then on until Stop); false
    // while no query is being limited. Cheap enough to call every few thousand steps.
    bool Exceeded();
    // Whether the query last limited was stopped, and why ("ran longer than 10000 ms").
    bool WasStopped() const { return stopped != Reason::None; }
    QString StopReason() const;

    // Lets a value of `bytes` be bound and compared while it lives: a text pasted into a
    // declared statement is bound as it is, however long, and such a statement creates no
    // value of its own.
    class LongValueScope {
    public:
        LongValueScope(sqlite3* connection, int bytes);
        ~LongValueScope();
        LongValueScope(const LongValueScope&) = delete;
        LongValueScope& operator=(const LongValueScope&) = delete;

    private:
        sqlite3* connection;
        bool lifted;
    };

private:
    enum class Reason { None, Time, Memory };
    static int onProgress(void* limits);

    bool running = false;
    bool measuring = false;  // the clock and the heap were read at the first check
    bool timed = false;
    int timeLimitMs = 0;
    std::chrono::steady_clock::time_point deadline;
    long long memoryAtStart = 0;
    Reason stopped = Reason::None;
    BoundedPrintf boundedPrintf;
};
