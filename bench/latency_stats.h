// Latency statistics of a batch of bus calls, and their ratios to the bus round trip.
#pragma once

#include <cstddef>
#include <vector>

namespace bench {

// The p-th percentile (0 < p <= 100) by nearest rank: the smallest sample with at least
// p percent of the samples at or below it. 0 for no samples.
double Percentile(std::vector<double> samples, double p);

struct LatencySummary {
    std::size_t calls = 0;
    double calls_per_s = 0;
    double p50_us = 0;
    double p99_us = 0;
};

// Latencies of every call (us) and the wall time the batch took (s).
LatencySummary Summarize(const std::vector<double>& latencies_us, double wall_s);

// A method's cost in units of the round trip that carries it: 2.0 is twice a Ping.
struct PingRatios {
    double time_per_call = 0;  // Ping's calls/s over the method's calls/s
    double p50 = 0;
    double p99 = 0;
};

// NaN for any ratio whose Ping figure, or whose own throughput, is zero.
PingRatios RatiosToPing(const LatencySummary& method, const LatencySummary& ping);

}  // namespace bench
