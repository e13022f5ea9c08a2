// The arithmetic behind the printed ratios: a wrong pairing, unit or percentile would print
// a plausible number that means nothing, so these run before any measurement.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "latency_stats.h"
#include "ratio_table.h"

namespace {

using bench::BenchResult;

std::string Row(const std::string& name, double real_time, const std::string& unit,
                const std::string& extra = "") {
    return "{\"name\": \"" + name + "\", \"run_name\": \"" + name +
           "\", \"run_type\": \"iteration\", \"repetitions\": 1, \"threads\": 1, "
           "\"iterations\": 100, \"real_time\": " +
           std::to_string(real_time) + ", \"cpu_time\": 1.0, \"time_unit\": \"" + unit + "\"" +
           extra + "}";
}

std::string Aggregate(const std::string& run, const std::string& aggregate, double real_time) {
    return "{\"name\": \"" + run + "_" + aggregate + "\", \"run_name\": \"" + run +
           "\", \"run_type\": \"aggregate\", \"aggregate_name\": \"" + aggregate +
           "\", \"iterations\": 3, \"real_time\": " + std::to_string(real_time) +
           ", \"cpu_time\": 1.0, \"time_unit\": \"ns\"}";
}

std::string Document(const std::vector<std::string>& rows) {
    std::string text = "{\"context\": {\"num_cpus\": 2}, \"benchmarks\": [";
    for (std::size_t i = 0; i < rows.size(); ++i) {
        text += (i ? ", " : "") + rows[i];
    }
    return text + "]}";
}

std::vector<BenchResult> Read(const std::string& text) {
    std::vector<BenchResult> results;
    std::string error;
    EXPECT_TRUE(bench::ReadBenchmarkJson(text, &results, &error)) << error;
    return results;
}

TEST(Percentile, NearestRankWhateverTheOrderOfTheSamples) {
    std::vector<double> hundred;
    for (int i = 100; i >= 1; --i) {
        hundred.push_back(i);
    }
    EXPECT_EQ(50, bench::Percentile(hundred, 50));
    EXPECT_EQ(99, bench::Percentile(hundred, 99));
    EXPECT_EQ(100, bench::Percentile(hundred, 100));

    // With few samples p99 is the slowest call, not an interpolation below it.
    std::vector<double> ten = {9, 1, 8, 2, 7, 3, 6, 4, 5, 10};
    EXPECT_EQ(5, bench::Percentile(ten, 50));
    EXPECT_EQ(10, bench::Percentile(ten, 99));
    EXPECT_EQ(42, bench::Percentile({42}, 99));
    EXPECT_EQ(0, bench::Percentile({}, 50));
}

TEST(Summarize, ThroughputComesFromWallTimeNotFromTheSumOfLatencies) {
    // Eight in flight: 400 calls of 1 ms each finish in 50 ms of wall time.
    bench::LatencySummary summary = bench::Summarize(std::vector<double>(400, 1000.0), 0.05);
    EXPECT_EQ(400u, summary.calls);
    EXPECT_DOUBLE_EQ(8000, summary.calls_per_s);
    EXPECT_DOUBLE_EQ(1000, summary.p50_us);
    EXPECT_DOUBLE_EQ(1000, summary.p99_us);
    EXPECT_EQ(0, bench::Summarize({}, 0).calls_per_s);
}

TEST(RatiosToPing, MethodOverPingAndNoRatioWithoutCalls) {
    bench::LatencySummary ping{1000, 10000, 100, 300};
    bench::LatencySummary method{1000, 2500, 350, 1500};
    bench::PingRatios ratios = bench::RatiosToPing(method, ping);
    EXPECT_DOUBLE_EQ(4.0, ratios.time_per_call);
    EXPECT_DOUBLE_EQ(3.5, ratios.p50);
    EXPECT_DOUBLE_EQ(5.0, ratios.p99);

    // A batch cut short at the deadline must not print as free or as infinitely slow.
    bench::PingRatios none = bench::RatiosToPing(bench::LatencySummary{}, ping);
    EXPECT_TRUE(std::isnan(none.time_per_call));
    EXPECT_TRUE(std::isnan(none.p50));
    EXPECT_TRUE(std::isnan(bench::RatiosToPing(method, bench::LatencySummary{}).p99));
}

TEST(ReadBenchmarkJson, ConvertsUnitsAndTakesTheMedianOfRepetitions) {
    const std::string run = "list_json/quillon/N:10/real_time";
    // The mean (20.33), the spread and the last repetition all differ from the median.
    std::vector<BenchResult> results = Read(Document(
        {Row("add_merge/quillon/N:10/real_time", 35, "us"), Row(run, 10, "ns"), Row(run, 40, "ns"),
         Row(run, 11, "ns"), Aggregate(run, "mean", 20.33), Aggregate(run, "median", 11),
         Aggregate(run, "stddev", 16.7), Aggregate(run, "cv", 0.8)}));
    ASSERT_EQ(2u, results.size());
    EXPECT_EQ("add_merge/quillon/N:10/real_time", results[0].name);
    EXPECT_DOUBLE_EQ(35000, results[0].ns);
    EXPECT_EQ(run, results[1].name);
    EXPECT_DOUBLE_EQ(11, results[1].ns);
    EXPECT_FALSE(results[1].failed);
}

TEST(ReadBenchmarkJson, AnErroredRunIsFailedWithItsMessage) {
    std::vector<BenchResult> results =
        Read(Document({Row("load/quillon/N:10/real_time", 0, "ns",
                           ", \"error_occurred\": true, \"error_message\": \"the load did not "
                           "yield the stored list\""),
                       Row("load/baseline/N:10/real_time", 900, "ns")}));
    ASSERT_EQ(2u, results.size());
    EXPECT_TRUE(results[0].failed);
    EXPECT_EQ("the load did not yield the stored list", results[0].error);

    bench::RatioTable table = bench::PairWithBaselines(results);
    EXPECT_TRUE(table.rows.empty());
    ASSERT_EQ(1u, table.problems.size());
    EXPECT_NE(std::string::npos, table.problems[0].find("the load did not yield the stored list"));
}

TEST(ReadBenchmarkJson, RefusesWhatIsNotABenchmarkDocument) {
    std::vector<BenchResult> results;
    std::string error;
    EXPECT_FALSE(bench::ReadBenchmarkJson("not json", &results, &error));
    EXPECT_FALSE(error.empty());
    EXPECT_FALSE(bench::ReadBenchmarkJson("{\"context\": {}}", &results, &error));
    EXPECT_FALSE(
        bench::ReadBenchmarkJson("{\"benchmarks\": [{\"real_time\": 1}]}", &results, &error));
}

TEST(PairWithBaselines, PairsEqualGroupAndParametersOnly) {
    std::vector<BenchResult> results =
        Read(Document({Row("lock/quillon/real_time/threads:1", 40, "ns"),
                       Row("lock/quillon/real_time/threads:2", 400, "ns"),
                       Row("lock/baseline/real_time/threads:1", 20, "ns"),
                       Row("lock/baseline/real_time/threads:2", 100, "ns"),
                       Row("add_merge/quillon/N:100/min_time:0.010/real_time", 50, "us"),
                       Row("add_merge/baseline/N:100/real_time", 0.5, "us")}));
    bench::RatioTable table = bench::PairWithBaselines(results);
    EXPECT_TRUE(table.problems.empty());
    ASSERT_EQ(3u, table.rows.size());
    // Uncontended and contended locks are never compared with each other; how long a run
    // was measured does not keep it from its baseline.
    EXPECT_EQ("add_merge/N:100", table.rows[0].key);
    EXPECT_DOUBLE_EQ(100.0, table.rows[0].ratio);
    EXPECT_EQ("lock/threads:1", table.rows[1].key);
    EXPECT_DOUBLE_EQ(2.0, table.rows[1].ratio);
    EXPECT_EQ("lock/threads:2", table.rows[2].key);
    EXPECT_DOUBLE_EQ(4.0, table.rows[2].ratio);
}

TEST(PairWithBaselines, RowsComeInGroupAndSizeOrderWhateverOrderTheRunsHad) {
    std::vector<std::string> rows;
    for (const char* name : {"lock/%s/real_time/threads:2", "add_merge/%s/N:1000/real_time",
                             "add_merge_saved/%s/N:10/real_time", "add_merge/%s/N:10/real_time",
                             "lock/%s/real_time/threads:1", "add_merge/%s/N:100/real_time"}) {
        for (const char* role : {"baseline", "quillon"}) {
            char run[96];
            std::snprintf(run, sizeof(run), name, role);
            rows.push_back(Row(run, 10, "ns"));
        }
    }
    bench::RatioTable table = bench::PairWithBaselines(Read(Document(rows)));
    std::vector<std::string> keys;
    for (const bench::RatioRow& row : table.rows) {
        keys.push_back(row.key);
    }
    EXPECT_EQ(
        (std::vector<std::string>{"add_merge/N:10", "add_merge/N:100", "add_merge/N:1000",
                                  "add_merge_saved/N:10", "lock/threads:1", "lock/threads:2"}),
        keys);
}

TEST(PairWithBaselines, AMeasurementWithoutPartnerIsAProblem) {
    bench::RatioTable table = bench::PairWithBaselines(Read(Document(
        {Row("load/quillon/N:100/real_time", 5, "us"),
         Row("load/baseline/N:1000/real_time", 5, "us"), Row("stray/real_time", 5, "us")})));
    EXPECT_TRUE(table.rows.empty());
    ASSERT_EQ(3u, table.problems.size());
    std::string all = table.problems[0] + table.problems[1] + table.problems[2];
    EXPECT_NE(std::string::npos, all.find("load/quillon/N:100/real_time: no baseline"));
    EXPECT_NE(std::string::npos, all.find("load/baseline/N:1000/real_time: a baseline"));
    EXPECT_NE(std::string::npos, all.find("stray/real_time: not named"));
}

TEST(FormatRatioTable, ShowsEachPairWithReadableUnitsAndEveryProblem) {
    bench::RatioTable table;
    table.rows.push_back(bench::RatioRow{"add_merge/N:10", 35000, 70, 500});
    table.rows.push_back(bench::RatioRow{"lock/threads:1", 40, 20, 2});
    table.problems.push_back("load/quillon/N:10/real_time: failed: no save");
    std::string text = bench::FormatRatioTable(table);
    EXPECT_NE(std::string::npos, text.find("add_merge/N:10"));
    EXPECT_NE(std::string::npos, text.find("35.0 us"));
    EXPECT_NE(std::string::npos, text.find("70 ns"));
    EXPECT_NE(std::string::npos, text.find("500.0x"));
    EXPECT_NE(std::string::npos, text.find("2.00x"));
    EXPECT_NE(std::string::npos, text.find("PROBLEM load/quillon/N:10/real_time: failed: no save"));

    EXPECT_EQ("999 ns", bench::FormatDuration(999));
    EXPECT_EQ("1.5 us", bench::FormatDuration(1500));
    EXPECT_EQ("2.50 ms", bench::FormatDuration(2.5e6));
    EXPECT_EQ("3.00 s", bench::FormatDuration(3e9));
}

}  // namespace
