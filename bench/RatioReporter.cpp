#include "RatioReporter.h"

#include <cstdio>

namespace {

double toMicroseconds(double value, benchmark::TimeUnit unit) {
    switch (unit) {
        case benchmark::kNanosecond:
            return value / 1e3;
        case benchmark::kMicrosecond:
            return value;
        case benchmark::kMillisecond:
            return value * 1e3;
        case benchmark::kSecond:
        default:
            return value * 1e6;
    }
}

std::string formatMicroseconds(double us) {
    char text[32];
    if (us >= 1e6) {
        std::snprintf(text, sizeof text, "%.2f s", us / 1e6);
    } else if (us >= 1e3) {
        std::snprintf(text, sizeof text, "%.2f ms", us / 1e3);
    } else {
        std::snprintf(text, sizeof text, "%.2f us", us);
    }
    return text;
}

}  // namespace

RatioReporter::RatioReporter(int catalogueSize, std::vector<Target> targets)
    : size(catalogueSize), targets(std::move(targets)) {}

void RatioReporter::ReportRuns(const std::vector<Run>& runs) {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
        const std::string name = run.run_name.function_name;
        if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median") {
            medians[name] = toMicroseconds(run.GetAdjustedRealTime(), run.time_unit);
        } else if (run.run_type == Run::RT_Iteration && !medians.count(name)) {
            // A benchmark run without repetitions reports its only time.
            medians[name] = toMicroseconds(run.GetAdjustedRealTime(), run.time_unit);
        }
    }
}

void RatioReporter::AddMeasurement(const std::string& name, double value, const std::string& unit) {
    extras[name] = Extra{value, unit};
}

void RatioReporter::Finalize() {
    ConsoleReporter::Finalize();
    std::printf("\n%-46s %9s %12s %12s %-6s %8s %-22s %s\n", "operation", "articles", "library",
                "raw", "raw is", "ratio", "target", "holds");
    for (const Target& target : targets) {
        const auto lib = medians.find("lib/" + target.operation);
        const auto raw = medians.find("raw/" + target.operation);
        const auto extra = extras.find(target.operation);
        std::string library = "-";
        std::string baseline = "-";
        std::string ratio = "-";
        std::string goal;
        std::string holds = "-";
        char text[48];
        const auto perCall = medians.find("lib/" + target.perCallOf);
        if (target.calls > 0 && perCall != medians.end()) {
            std::snprintf(text, sizeof text, "<= %.0f x raw + %.0f x %s", target.maxRatio,
                          target.calls, formatMicroseconds(perCall->second).c_str());
        } else if (target.maxRatio > 0) {
            std::snprintf(text, sizeof text, "<= %.2f x raw", target.maxRatio);
        } else if (target.limit > 0) {
            std::snprintf(text, sizeof text, "<= %s", formatMicroseconds(target.limit).c_str());
        } else {
            std::snprintf(text, sizeof text, "(for reference)");
        }
        goal = text;
        if (extra != extras.end()) {
            std::snprintf(text, sizeof text, "%.1f %s", extra->second.value,
                          extra->second.unit.c_str());
            library = text;
            const auto rawExtra = extras.find("raw " + target.operation);
            if (rawExtra != extras.end()) {
                std::snprintf(text, sizeof text, "%.1f %s", rawExtra->second.value,
                              rawExtra->second.unit.c_str());
                baseline = text;
                std::snprintf(text, sizeof text, "%.2f",
                              extra->second.value / rawExtra->second.value);
                ratio = text;
            }
            if (target.maxRatio > 0 && rawExtra != extras.end()) {
                const bool ok = extra->second.value / rawExtra->second.value <= target.maxRatio;
                holds = ok ? "yes" : "NO";
                allHold = allHold && ok;
            } else if (target.limit > 0) {
                const bool ok = extra->second.value <= target.limit;
                holds = ok ? "yes" : "NO";
                allHold = allHold && ok;
                std::snprintf(text, sizeof text, "<= %.0f %s", target.limit,
                              extra->second.unit.c_str());
                goal = text;
            }
        } else if (lib != medians.end()) {
            library = formatMicroseconds(lib->second);
            bool ok = true;
            if (raw != medians.end()) {
                baseline = formatMicroseconds(raw->second);
                std::snprintf(text, sizeof text, "%.2f", lib->second / raw->second);
                ratio = text;
                if (target.calls > 0 && perCall != medians.end()) {
                    ok = lib->second <=
                         target.maxRatio * raw->second + target.calls * perCall->second;
                    holds = ok ? "yes" : "NO";
                } else if (target.maxRatio > 0) {
                    ok = lib->second / raw->second <= target.maxRatio;
                    holds = ok ? "yes" : "NO";
                }
            }
            if (target.limit > 0) {
                ok = lib->second <= target.limit;
                holds = ok ? "yes" : "NO";
            }
            allHold = allHold && ok;
        } else {
            continue;
        }
        const char* kind = baseline == "-" ? "-" : (target.naive ? "naive" : "floor");
        std::printf("%-46s %9d %12s %12s %-6s %8s %-22s %s\n", target.operation.c_str(), size,
                    library.c_str(), baseline.c_str(), kind, ratio.c_str(), goal.c_str(),
                    holds.c_str());
    }
    std::fflush(stdout);
}
