#include "ratio_table.h"

#include <json/json.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <sstream>

namespace bench {

namespace {

const char* const kQuillonRole = "quillon";
const char* const kBaselineRole = "baseline";

double UnitToNs(const std::string& unit) {
    if (unit == "us") {
        return 1e3;
    }
    if (unit == "ms") {
        return 1e6;
    }
    if (unit == "s") {
        return 1e9;
    }
    return 1.0;  // "ns", Google Benchmark's default
}

std::vector<std::string> Split(const std::string& text, char sep) {
    std::vector<std::string> parts;
    std::string part;
    std::istringstream in(text);
    while (std::getline(in, part, sep)) {
        parts.push_back(part);
    }
    return parts;
}

// Suffixes that say how long or by which clock a run was measured, not what it measured:
// a daemon run may need a shorter minimum time than its baseline and still pair with it.
bool IsMeasurementSetting(const std::string& part) {
    return part == "real_time" || part == "process_time" || part.rfind("min_time:", 0) == 0 ||
           part.rfind("min_warmup_time:", 0) == 0 || part.rfind("iterations:", 0) == 0 ||
           part.rfind("repeats:", 0) == 0;
}

// GROUP/ROLE/PARAMS...: the role, and GROUP/PARAMS as the key.
bool SplitName(const std::string& name, std::string* role, std::string* key) {
    std::vector<std::string> parts = Split(name, '/');
    if (parts.size() < 2) {
        return false;
    }
    *role = parts[1];
    *key = parts[0];
    for (std::size_t i = 2; i < parts.size(); ++i) {
        if (!IsMeasurementSetting(parts[i])) {
            *key += "/" + parts[i];
        }
    }
    return true;
}

// Orders keys by group, then by the number in their parameters, so that N:10 comes
// before N:100 and N:1000 whatever order the runs were interleaved in.
bool KeyBefore(const std::string& a, const std::string& b) {
    std::string::size_type slashA = a.find('/');
    std::string::size_type slashB = b.find('/');
    std::string groupA = a.substr(0, slashA);
    std::string groupB = b.substr(0, slashB);
    if (groupA != groupB) {
        return groupA < groupB;
    }
    std::string::size_type colonA = a.rfind(':');
    std::string::size_type colonB = b.rfind(':');
    if (colonA != std::string::npos && colonB != std::string::npos &&
        a.compare(0, colonA, b, 0, colonB) == 0) {
        return std::atof(a.c_str() + colonA + 1) < std::atof(b.c_str() + colonB + 1);
    }
    return a < b;
}

struct RunRows {
    std::size_t order = 0;
    bool failed = false;
    std::string error;
    bool has_median = false;
    double median_ns = 0;
    double sum_ns = 0;
    int iterations_rows = 0;
};

}  // namespace

bool ReadBenchmarkJson(const std::string& text, std::vector<BenchResult>* results,
                       std::string* error) {
    Json::CharReaderBuilder builder;
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value root;
    std::string parseErrors;
    if (!reader->parse(text.data(), text.data() + text.size(), &root, &parseErrors)) {
        *error = "not JSON: " + parseErrors;
        return false;
    }
    if (!root.isObject() || !root["benchmarks"].isArray()) {
        *error = "no \"benchmarks\" array";
        return false;
    }

    std::map<std::string, RunRows> runs;
    for (const Json::Value& row : root["benchmarks"]) {
        if (!row.isObject() || !row["name"].isString()) {
            *error = "a benchmark entry without a name";
            return false;
        }
        const std::string runName =
            row["run_name"].isString() ? row["run_name"].asString() : row["name"].asString();
        auto inserted = runs.emplace(runName, RunRows());
        RunRows& run = inserted.first->second;
        if (inserted.second) {
            run.order = runs.size();
        }
        if (row["error_occurred"].asBool()) {
            run.failed = true;
            run.error = row["error_message"].asString();
            continue;
        }
        const double ns = row["real_time"].asDouble() * UnitToNs(row["time_unit"].asString());
        if (row["run_type"].asString() == "aggregate") {
            if (row["aggregate_name"].asString() == "median") {
                run.has_median = true;
                run.median_ns = ns;
            }
        } else {
            run.sum_ns += ns;
            run.iterations_rows++;
        }
    }

    std::vector<std::pair<std::size_t, BenchResult>> ordered;
    for (const auto& entry : runs) {
        const RunRows& run = entry.second;
        BenchResult result;
        result.name = entry.first;
        result.failed = run.failed;
        result.error = run.error;
        if (!run.failed) {
            if (run.has_median) {
                result.ns = run.median_ns;
            } else if (run.iterations_rows > 0) {
                result.ns = run.sum_ns / run.iterations_rows;
            } else {
                result.failed = true;
                result.error = "no time reported";
            }
        }
        ordered.emplace_back(run.order, result);
    }
    std::sort(ordered.begin(), ordered.end(),
              [](const auto& a, const auto& b) { return a.first < b.first; });
    results->clear();
    for (auto& entry : ordered) {
        results->push_back(std::move(entry.second));
    }
    return true;
}

RatioTable PairWithBaselines(const std::vector<BenchResult>& results) {
    RatioTable table;
    std::map<std::string, const BenchResult*> baselines;
    std::vector<std::pair<std::string, const BenchResult*>> subjects;
    for (const BenchResult& result : results) {
        std::string role;
        std::string key;
        if (!SplitName(result.name, &role, &key) ||
            (role != kQuillonRole && role != kBaselineRole)) {
            table.problems.push_back(result.name + ": not named GROUP/quillon|baseline/...");
            continue;
        }
        if (result.failed) {
            table.problems.push_back(result.name + ": failed: " + result.error);
        }
        if (role == kBaselineRole) {
            baselines[key] = &result;
        } else {
            subjects.emplace_back(key, &result);
        }
    }

    std::stable_sort(subjects.begin(), subjects.end(),
                     [](const auto& x, const auto& y) { return KeyBefore(x.first, y.first); });
    std::map<std::string, bool> baselineUsed;
    for (const auto& subject : subjects) {
        auto found = baselines.find(subject.first);
        if (found == baselines.end()) {
            table.problems.push_back(subject.second->name + ": no baseline in this run");
            continue;
        }
        baselineUsed[subject.first] = true;
        const BenchResult& quillon = *subject.second;
        const BenchResult& baseline = *found->second;
        if (quillon.failed || baseline.failed || baseline.ns <= 0) {
            continue;
        }
        table.rows.push_back(
            RatioRow{subject.first, quillon.ns, baseline.ns, quillon.ns / baseline.ns});
    }
    for (const auto& baseline : baselines) {
        if (!baselineUsed[baseline.first]) {
            table.problems.push_back(baseline.second->name +
                                     ": a baseline with nothing to compare");
        }
    }
    return table;
}

std::string FormatDuration(double ns) {
    char text[32];
    if (ns < 1e3) {
        std::snprintf(text, sizeof(text), "%.0f ns", ns);
    } else if (ns < 1e6) {
        std::snprintf(text, sizeof(text), "%.1f us", ns / 1e3);
    } else if (ns < 1e9) {
        std::snprintf(text, sizeof(text), "%.2f ms", ns / 1e6);
    } else {
        std::snprintf(text, sizeof(text), "%.2f s", ns / 1e9);
    }
    return text;
}

std::string FormatRatioTable(const RatioTable& table) {
    std::string out;
    char line[160];
    std::snprintf(line, sizeof(line), "%-28s %12s %12s %12s\n", "measurement", "quillon",
                  "baseline", "ratio");
    out += line;
    for (const RatioRow& row : table.rows) {
        std::snprintf(line, sizeof(line), "%-28s %12s %12s %11.*fx\n", row.key.c_str(),
                      FormatDuration(row.quillon_ns).c_str(),
                      FormatDuration(row.baseline_ns).c_str(), row.ratio < 10 ? 2 : 1, row.ratio);
        out += line;
    }
    for (const std::string& problem : table.problems) {
        out += "PROBLEM " + problem + "\n";
    }
    return out;
}

}  // namespace bench
