// quillon-bench-bus: load on a running daemon over the system bus named by
// DBUS_SYSTEM_BUS_ADDRESS (a private bus: run-all.sh starts one). Calls pxm_get_status and
// pxm_request_access (isNoUX=1, so no prompt), one at a time and K in flight, and reports
// calls/s and p50/p99 latency as ratios to org.freedesktop.DBus.Peer.Ping to the same
// daemon, which GDBus answers by itself: the cost of the bus round trip alone.
// Bounded in calls and in time; exits 1 when a call fails or answers an unexpected code.
#include <gio/gio.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bus_batch.h"
#include "latency_stats.h"

namespace {

const char* const kBusName = "org.nuvak.quillon";
const int kCallTimeoutMs = 10000;

struct Options {
    int calls = 1200;      // per method and mode, over all rounds
    int concurrency = 8;   // calls in flight in the concurrent mode
    int rounds = 3;        // methods alternate each round, so drift hits all alike
    int deadline_s = 60;   // no call starts after this; what was measured is reported
    int wait_name_s = 20;  // for the daemon to own its name
};

struct NameWait {
    GMainLoop* loop;
    bool owned = false;
    bool timed_out = false;
};

void OnNameAppeared(GDBusConnection*, const gchar*, const gchar*, gpointer data) {
    NameWait* wait = static_cast<NameWait*>(data);
    wait->owned = true;
    g_main_loop_quit(wait->loop);
}

gboolean OnNameWaitTimeout(gpointer data) {
    NameWait* wait = static_cast<NameWait*>(data);
    wait->timed_out = true;
    g_main_loop_quit(wait->loop);
    return G_SOURCE_REMOVE;
}

bool WaitForDaemon(GDBusConnection* connection, int timeout_s) {
    NameWait wait;
    wait.loop = g_main_loop_new(nullptr, FALSE);
    guint watch =
        g_bus_watch_name_on_connection(connection, kBusName, G_BUS_NAME_WATCHER_FLAGS_NONE,
                                       OnNameAppeared, nullptr, &wait, nullptr);
    guint timer = g_timeout_add_seconds(static_cast<guint>(timeout_s), OnNameWaitTimeout, &wait);
    g_main_loop_run(wait.loop);
    if (!wait.timed_out) {
        g_source_remove(timer);
    }
    g_bus_unwatch_name(watch);
    g_main_loop_unref(wait.loop);
    return wait.owned;
}

bool ParseOptions(int argc, char** argv, Options* options) {
    for (int i = 1; i < argc; ++i) {
        int* target = nullptr;
        if (std::strcmp(argv[i], "--calls") == 0) {
            target = &options->calls;
        } else if (std::strcmp(argv[i], "--concurrency") == 0) {
            target = &options->concurrency;
        } else if (std::strcmp(argv[i], "--rounds") == 0) {
            target = &options->rounds;
        } else if (std::strcmp(argv[i], "--deadline") == 0) {
            target = &options->deadline_s;
        } else if (std::strcmp(argv[i], "--wait") == 0) {
            target = &options->wait_name_s;
        }
        if (target == nullptr || i + 1 >= argc || std::atoi(argv[i + 1]) < 1) {
            return false;
        }
        *target = std::atoi(argv[++i]);
    }
    return true;
}

std::string RatioText(double ratio) {
    if (std::isnan(ratio)) {
        return "n/a";
    }
    char text[16];
    std::snprintf(text, sizeof(text), "%.2fx", ratio);
    return text;
}

struct Series {
    const bench::BusMethod* method;
    int concurrency;
    std::vector<double> latencies_us;
    double wall_s = 0;
};

void PrintSeries(const std::vector<Series>& series, const Options& options, bool stopped) {
    std::printf(
        "bus load: up to %d calls per method and mode in %d rounds, %d in flight when "
        "concurrent%s\n",
        options.calls, options.rounds, options.concurrency,
        stopped ? "; STOPPED at the deadline, counts are partial" : "");
    std::printf("%-11s %-19s %6s %9s %9s %9s   %-9s %-8s %-8s\n", "mode", "method", "calls",
                "calls/s", "p50 us", "p99 us", "x Ping:", "p50", "p99");
    const Series* ping = nullptr;
    for (const Series& s : series) {
        if (s.method == &bench::kPing) {
            ping = &s;  // Ping leads each mode
        }
        bench::LatencySummary summary = bench::Summarize(s.latencies_us, s.wall_s);
        bench::PingRatios ratios =
            bench::RatiosToPing(summary, bench::Summarize(ping->latencies_us, ping->wall_s));
        std::printf("%-11s %-19s %6zu %9.0f %9.1f %9.1f   %-9s %-8s %-8s\n",
                    s.concurrency == 1 ? "sequential" : "concurrent", s.method->label,
                    summary.calls, summary.calls_per_s, summary.p50_us, summary.p99_us,
                    RatioText(ratios.time_per_call).c_str(), RatioText(ratios.p50).c_str(),
                    RatioText(ratios.p99).c_str());
    }
    std::printf(
        "x Ping: time per call (Ping's calls/s over the method's), p50 and p99 latency, each "
        "over Ping's in the same mode\n");
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (!ParseOptions(argc, argv, &options)) {
        std::fprintf(stderr,
                     "usage: quillon-bench-bus [--calls N] [--concurrency K] [--rounds R] "
                     "[--deadline SECONDS] [--wait SECONDS]\n");
        return 2;
    }

    GError* error = nullptr;
    GDBusConnection* connection = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
    if (connection == nullptr) {
        std::fprintf(stderr, "quillon-bench-bus: no system bus: %s\n", error->message);
        g_error_free(error);
        return 1;
    }
    if (!WaitForDaemon(connection, options.wait_name_s)) {
        std::fprintf(stderr, "quillon-bench-bus: %s did not appear within %d s\n", kBusName,
                     options.wait_name_s);
        g_object_unref(connection);
        return 1;
    }

    const gint64 deadline_us =
        g_get_monotonic_time() + static_cast<gint64>(options.deadline_s) * 1000000;
    int failures = 0;
    std::string first_failure;
    auto run = [&](const bench::BusMethod& method, std::size_t calls, int concurrency,
                   bench::BusBatch* batch) {
        const bench::BusBatchPlan plan{&method, calls, concurrency, deadline_us, kCallTimeoutMs};
        double wall_s = bench::RunBusBatch(connection, plan, batch);
        if (failures == 0 && batch->failures > 0) {
            first_failure = batch->first_failure;
        }
        failures += batch->failures;
        return wall_s;
    };

    // Stores the devices first, so that every measured status lookup finds one.
    bench::BusBatch warmup;
    run(bench::kRequestAccess, bench::kBusDevices, 1, &warmup);

    std::vector<Series> series;
    for (int concurrency : {1, options.concurrency}) {
        for (const bench::BusMethod* method :
             {&bench::kPing, &bench::kGetStatus, &bench::kRequestAccess}) {
            series.push_back(Series{method, concurrency, {}, 0});
        }
    }
    const std::size_t per_round =
        static_cast<std::size_t>((options.calls + options.rounds - 1) / options.rounds);
    bool stopped = warmup.stopped;
    for (int round = 0; round < options.rounds && !stopped; ++round) {
        for (Series& s : series) {
            bench::BusBatch batch;
            s.wall_s += run(*s.method, per_round, s.concurrency, &batch);
            s.latencies_us.insert(s.latencies_us.end(), batch.latencies_us.begin(),
                                  batch.latencies_us.end());
            stopped = stopped || batch.stopped;
        }
    }
    PrintSeries(series, options, stopped);

    g_object_unref(connection);
    if (failures > 0) {
        std::fprintf(stderr, "quillon-bench-bus: %d failed calls; first: %s\n", failures,
                     first_failure.c_str());
        return 1;
    }
    return 0;
}
