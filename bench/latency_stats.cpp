#include "latency_stats.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace bench {

namespace {

double Ratio(double numerator, double denominator) {
    if (denominator <= 0 || numerator <= 0) {
        return std::numeric_limits<double>::quiet_NaN();
    }
    return numerator / denominator;
}

}  // namespace

double Percentile(std::vector<double> samples, double p) {
    if (samples.empty()) {
        return 0;
    }
    std::sort(samples.begin(), samples.end());
    double rank = std::ceil(p / 100.0 * static_cast<double>(samples.size()));
    std::size_t index = rank < 1 ? 0 : static_cast<std::size_t>(rank) - 1;
    return samples[std::min(index, samples.size() - 1)];
}

LatencySummary Summarize(const std::vector<double>& latencies_us, double wall_s) {
    LatencySummary summary;
    summary.calls = latencies_us.size();
    summary.calls_per_s = wall_s > 0 ? static_cast<double>(summary.calls) / wall_s : 0;
    summary.p50_us = Percentile(latencies_us, 50);
    summary.p99_us = Percentile(latencies_us, 99);
    return summary;
}

PingRatios RatiosToPing(const LatencySummary& method, const LatencySummary& ping) {
    PingRatios ratios;
    ratios.time_per_call = Ratio(ping.calls_per_s, method.calls_per_s);
    ratios.p50 = Ratio(method.p50_us, ping.p50_us);
    ratios.p99 = Ratio(method.p99_us, ping.p99_us);
    return ratios;
}

}  // namespace bench
