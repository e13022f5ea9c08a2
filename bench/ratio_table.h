// Turns Google Benchmark's JSON output into one ratio per measurement: the daemon's time
// over the time of its baseline from the same run. Benchmarks are named
// GROUP/quillon/PARAMS and GROUP/baseline/PARAMS; the two with equal GROUP and PARAMS pair.
#pragma once

#include <string>
#include <vector>

namespace bench {

struct BenchResult {
    std::string name;  // run name, e.g. "add_merge/quillon/N:10/real_time"
    double ns = 0;     // real time per iteration: the median when repeated
    bool failed = false;
    std::string error;
};

// Reads a --benchmark_out JSON document. With repetitions the "median" aggregate stands
// for the run; a run with any errored repetition is failed. False when `text` is not
// such a document (error says why).
bool ReadBenchmarkJson(const std::string& text, std::vector<BenchResult>* results,
                       std::string* error);

struct RatioRow {
    std::string key;  // GROUP/PARAMS, e.g. "add_merge/N:10", "lock/threads:2"
    double quillon_ns = 0;
    double baseline_ns = 0;
    double ratio = 0;  // quillon over baseline: 3.0 means three times the baseline's time
};

struct RatioTable {
    std::vector<RatioRow> rows;         // by group, then by the number in the parameters
    std::vector<std::string> problems;  // failed runs, runs without a partner
};

RatioTable PairWithBaselines(const std::vector<BenchResult>& results);

// "812 ns", "35.2 us", "4.10 ms", "1.20 s".
std::string FormatDuration(double ns);

// The table people read, one row per pair, then one line per problem.
std::string FormatRatioTable(const RatioTable& table);

}  // namespace bench
