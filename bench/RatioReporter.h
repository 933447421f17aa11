#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

// Reports the benchmarks as the console does, then a table pairing each library operation
// ("lib/<name>") with its raw SQLite baseline ("raw/<name>"): the medians, their ratio and
// whether the operation's target holds.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    struct Target {
        std::string operation;
        double maxRatio;  // > 0: library/raw must stay at or below it
        double limit;     // > 0: the library figure must stay at or below it (µs, or the unit of a
                          // measurement added with AddMeasurement)
        bool naive = false;  // the raw figure is what a naive design costs, not the floor
        // With `calls` > 0: the library may take maxRatio x raw plus `calls` times the library
        // median of `perCallOf` (a walk that makes one call per row).
        std::string perCallOf = std::string();
        double calls = 0;
    };

    RatioReporter(int catalogueSize, std::vector<Target> targets);

    void ReportRuns(const std::vector<Run>& runs) override;
    void Finalize() override;

    // Records a measurement taken outside Google Benchmark (e.g. a child's peak memory).
    void AddMeasurement(const std::string& name, double value, const std::string& unit);

    // Whether every target with both figures held.
    bool AllTargetsHold() const { return allHold; }

private:
    struct Extra {
        double value;
        std::string unit;
    };

    int size;
    std::vector<Target> targets;
    std::map<std::string, double> medians;  // microseconds, by benchmark name
    std::map<std::string, Extra> extras;
    bool allHold = true;
};
