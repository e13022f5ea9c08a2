// quillon-bench-bus: load on a running daemon over the system bus named by
// DBUS_SYSTEM_BUS_ADDRESS (a private bus: run-all.sh starts one), against the echo service
// (quillon-bench-echo) on the same bus, called by the same client with the same arguments.
//
// The daemon holds --stored devices (run-all.sh stores them before it starts). Status
// lookups cycle over them; every access request is a new device (isNoUX 1, so stored
// silently without a prompt). Requests come in rounds: after each round its devices are
// removed again, untimed, so the list stays between --stored and --stored plus one round.
// Sequential calls and --concurrency in flight, p50 and p99 as ratios to the echo's; the
// floor of a change (floor_work.h) measured in this process; with --log and --syncs, the
// daemon's log bytes and flushes (sync_counter.c) per new device.
// Bounded in calls and in time; exits 1 when a call fails or answers an unexpected code.
#include <gio/gio.h>
#include <sys/stat.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bus_batch.h"
#include "floor_work.h"
#include "latency_stats.h"

namespace {

const int kCallTimeoutMs = 30000;
// New devices are numbered from here, far from the stored ones.
const long kFirstNewDevice = 1000000;

struct Options {
    long stored = 150;     // devices the daemon holds; status lookups cycle over them
    int calls = 120;       // per method and mode, over all rounds
    int concurrency = 8;   // calls in flight in the concurrent mode
    int rounds = 4;        // methods alternate each round, so drift hits all alike
    int deadline_s = 120;  // no call starts after this; what was measured is reported
    int wait_name_s = 20;  // for the daemon and the echo service to own their names
    int floor_reps = 40;
    bool status_only = false;
    std::string log;    // the daemon's stderr
    std::string syncs;  // the sync counter's file
};

bool WaitForName(GDBusConnection* connection, const char* name, int timeout_s) {
    const gint64 until = g_get_monotonic_time() + static_cast<gint64>(timeout_s) * 1000000;
    while (g_get_monotonic_time() < until) {
        GVariant* reply = g_dbus_connection_call_sync(
            connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
            "NameHasOwner", g_variant_new("(s)", name), G_VARIANT_TYPE("(b)"),
            G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
        gboolean owned = FALSE;
        if (reply != nullptr) {
            g_variant_get(reply, "(b)", &owned);
            g_variant_unref(reply);
        }
        if (owned) {
            return true;
        }
        g_usleep(20000);
    }
    return false;
}

bool ParseOptions(int argc, char** argv, Options* options) {
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--status-only") {
            options->status_only = true;
            continue;
        }
        if (i + 1 >= argc) {
            return false;
        }
        const char* value = argv[++i];
        if (arg == "--log") {
            options->log = value;
            continue;
        }
        if (arg == "--syncs") {
            options->syncs = value;
            continue;
        }
        int* target = nullptr;
        if (arg == "--calls") {
            target = &options->calls;
        } else if (arg == "--concurrency") {
            target = &options->concurrency;
        } else if (arg == "--rounds") {
            target = &options->rounds;
        } else if (arg == "--deadline") {
            target = &options->deadline_s;
        } else if (arg == "--wait") {
            target = &options->wait_name_s;
        } else if (arg == "--floor-reps") {
            target = &options->floor_reps;
        } else if (arg == "--stored") {
            options->stored = std::atol(value);
            if (options->stored < 1) {
                return false;
            }
            continue;
        }
        if (target == nullptr || std::atoi(value) < 1) {
            return false;
        }
        *target = std::atoi(value);
    }
    return true;
}

std::string RatioText(double ratio) {
    if (std::isnan(ratio) || std::isinf(ratio)) {
        return "n/a";
    }
    char text[16];
    std::snprintf(text, sizeof(text), "%.2fx", ratio);
    return text;
}

double Ratio(double numerator, double denominator) {
    return denominator > 0 ? numerator / denominator : NAN;
}

long FileSize(const std::string& path) {
    struct stat st;
    return !path.empty() && stat(path.c_str(), &st) == 0 ? static_cast<long>(st.st_size) : 0;
}

// Flushes noted by the sync counter so far: [0] the main thread's, [1] other threads'.
struct Flushes {
    long main = 0;
    long other = 0;
};

Flushes CountFlushes(const std::string& path) {
    Flushes flushes;
    FILE* file = path.empty() ? nullptr : std::fopen(path.c_str(), "r");
    if (file == nullptr) {
        return flushes;
    }
    for (int c; (c = std::fgetc(file)) != EOF;) {
        flushes.main += c == 'M';
        flushes.other += c == 'O';
    }
    std::fclose(file);
    return flushes;
}

// Waits until the daemon's log has been quiet for a moment: its save threads are done.
void Settle(const std::string& log) {
    const gint64 until = g_get_monotonic_time() + 10 * G_USEC_PER_SEC;
    long size = FileSize(log);
    gint64 quiet_since = g_get_monotonic_time();
    while (g_get_monotonic_time() < until) {
        g_usleep(20000);
        long now = FileSize(log);
        if (now != size) {
            size = now;
            quiet_since = g_get_monotonic_time();
        } else if (g_get_monotonic_time() - quiet_since >= 200000) {
            return;
        }
    }
}

struct Series {
    const bench::BusMethod* method;
    int concurrency;
    std::vector<double> latencies_us;
    double wall_s = 0;
};

struct Accounting {
    long requests = 0;
    long log_bytes = 0;
    Flushes flushes;
};

const Series* Find(const std::vector<Series>& series, const bench::BusMethod& method,
                   int concurrency) {
    for (const Series& s : series) {
        if (s.method == &method && s.concurrency == concurrency) {
            return &s;
        }
    }
    return nullptr;
}

void PrintSeries(const std::vector<Series>& series, const Options& options, bool stopped) {
    std::printf(
        "bus load: %ld stored devices; up to %d calls per method and mode in %d rounds, %d in "
        "flight when concurrent%s\n",
        options.stored, options.calls, options.rounds, options.concurrency,
        stopped ? "; STOPPED at the deadline, counts are partial" : "");
    std::printf("%-11s %-19s %6s %9s %9s %9s   %-8s %-8s\n", "mode", "method", "calls", "calls/s",
                "p50 us", "p99 us", "p50 x echo", "p99 x echo");
    for (const Series& s : series) {
        const bench::BusMethod& echo =
            s.method->args == bench::BusArgs::kRequest ? bench::kEchoRequest : bench::kEchoStatus;
        const Series* base = Find(series, echo, s.concurrency);
        bench::LatencySummary summary = bench::Summarize(s.latencies_us, s.wall_s);
        bench::LatencySummary baseline =
            base ? bench::Summarize(base->latencies_us, base->wall_s) : bench::LatencySummary();
        std::printf("%-11s %-19s %6zu %9.0f %9.1f %9.1f   %-10s %-10s\n",
                    s.concurrency == 1 ? "sequential" : "concurrent", s.method->label,
                    summary.calls, summary.calls_per_s, summary.p50_us, summary.p99_us,
                    RatioText(Ratio(summary.p50_us, baseline.p50_us)).c_str(),
                    RatioText(Ratio(summary.p99_us, baseline.p99_us)).c_str());
    }
}

double P(const std::vector<Series>& series, const bench::BusMethod& method, int concurrency,
         double percentile) {
    const Series* s = Find(series, method, concurrency);
    return s ? bench::Percentile(s->latencies_us, percentile) : 0;
}

void PrintTargets(const std::vector<Series>& series, const Options& options, double floor_us,
                  long floor_devices, const Accounting& accounting) {
    const int k = options.concurrency;
    std::printf("\n%-58s %9s   %s\n", "ratio (one run; medians of its calls)", "measured",
                "target");
    const char* status_target = options.stored > 1000 ? "<= 1.3x" : "<= 1.2x";
    std::printf(
        "%-58s %9s   %s\n", "pxm_get_status sequential p50 / echo",
        RatioText(Ratio(P(series, bench::kGetStatus, 1, 50), P(series, bench::kEchoStatus, 1, 50)))
            .c_str(),
        status_target);
    if (options.status_only) {
        return;
    }
    const double echo_p50 = P(series, bench::kEchoRequest, 1, 50);
    const double request_p50 = P(series, bench::kRequestAccess, 1, 50);
    std::printf("%-58s %9s   %s\n", "pxm_request_access sequential p50 / echo",
                RatioText(Ratio(request_p50, echo_p50)).c_str(), "<= 5x");
    std::printf("%-58s %9s   %s\n", "pxm_request_access sequential p50 / (echo + floor)",
                RatioText(Ratio(request_p50, echo_p50 + floor_us)).c_str(), "<= 1.5x");
    char label[96];
    std::snprintf(label, sizeof(label), "pxm_request_access %d in flight p99 / echo", k);
    std::printf("%-58s %9s   %s\n", label,
                RatioText(Ratio(P(series, bench::kRequestAccess, k, 99),
                                P(series, bench::kEchoRequest, k, 99)))
                    .c_str(),
                "<= 15x");
    std::printf(
        "floor: %.0f us in process (%ld devices: the list document and the backup payload "
        "built and written with JsonCpp's default writer); echo (request) p50 %.0f us\n",
        floor_us, floor_devices, echo_p50);
    if (accounting.requests > 0 && !options.log.empty()) {
        std::printf("log per new device: %.1f KB (target <= 16 KB)\n",
                    static_cast<double>(accounting.log_bytes) / 1024.0 /
                        static_cast<double>(accounting.requests));
    }
    if (accounting.requests > 0 && !options.syncs.empty()) {
        std::printf(
            "fsync/fdatasync per new device: main thread %.2f (target 0), other threads %.2f\n",
            static_cast<double>(accounting.flushes.main) / static_cast<double>(accounting.requests),
            static_cast<double>(accounting.flushes.other) /
                static_cast<double>(accounting.requests));
    }
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (!ParseOptions(argc, argv, &options)) {
        std::fprintf(stderr,
                     "usage: quillon-bench-bus [--stored N] [--calls N] [--concurrency K] "
                     "[--rounds R] [--deadline SECONDS] [--wait SECONDS] [--floor-reps N] "
                     "[--status-only] [--log FILE] [--syncs FILE]\n");
        return 2;
    }

    GError* error = nullptr;
    GDBusConnection* connection = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
    if (connection == nullptr) {
        std::fprintf(stderr, "quillon-bench-bus: no system bus: %s\n", error->message);
        g_error_free(error);
        return 1;
    }
    for (const char* name : {"org.nuvak.quillon", bench::kEchoBusName}) {
        if (!WaitForName(connection, name, options.wait_name_s)) {
            std::fprintf(stderr, "quillon-bench-bus: %s did not appear within %d s\n", name,
                         options.wait_name_s);
            g_object_unref(connection);
            return 1;
        }
    }

    const gint64 deadline_us =
        g_get_monotonic_time() + static_cast<gint64>(options.deadline_s) * 1000000;
    int failures = 0;
    std::string first_failure;
    auto run = [&](const bench::BusMethod& method, std::size_t calls, int concurrency,
                   bench::DeviceRange devices, bench::BusBatch* batch) {
        const bench::BusBatchPlan plan{&method,     calls,          concurrency,
                                       deadline_us, kCallTimeoutMs, devices};
        double wall_s = bench::RunBusBatch(connection, plan, batch);
        if (failures == 0 && batch->failures > 0) {
            first_failure = batch->first_failure;
        }
        failures += batch->failures;
        return wall_s;
    };

    const bench::DeviceRange stored{0, options.stored};
    const std::size_t per_round =
        static_cast<std::size_t>((options.calls + options.rounds - 1) / options.rounds);
    // The list holds between stored and stored + per_round devices while requests run.
    const long floor_devices = options.stored + static_cast<long>(per_round) / 2;
    const std::vector<pxm_core_device_s> floor_list =
        bench::MakeBenchDevices(floor_devices, g_get_real_time() / 1000);
    std::vector<double> floors;
    floors.push_back(bench::MeasureFloorUs(floor_list, options.floor_reps / 2 + 1));

    bench::BusBatch warmup;
    run(bench::kEchoStatus, 20, 1, stored, &warmup);
    run(bench::kGetStatus, 20, 1, stored, &warmup);
    run(bench::kEchoRequest, 20, 1, stored, &warmup);
    if (!options.status_only) {
        // The first change after installation makes the wake tables' database; that is
        // start-up work, not a request's.
        const bench::DeviceRange first{kFirstNewDevice - 1, 1};
        run(bench::kRequestAccess, 1, 1, first, &warmup);
        run(bench::kRemoveDevice, 1, 1, first, &warmup);
        Settle(options.log);
    }
    bool stopped = warmup.stopped;

    std::vector<Series> series;
    for (int concurrency : {1, options.concurrency}) {
        series.push_back(Series{&bench::kEchoStatus, concurrency, {}, 0});
        series.push_back(Series{&bench::kGetStatus, concurrency, {}, 0});
        if (!options.status_only) {
            series.push_back(Series{&bench::kEchoRequest, concurrency, {}, 0});
            series.push_back(Series{&bench::kRequestAccess, concurrency, {}, 0});
        }
    }

    Accounting accounting;
    long next_device = kFirstNewDevice;
    for (int round = 0; round < options.rounds && !stopped; ++round) {
        for (Series& s : series) {
            bench::BusBatch batch;
            if (s.method != &bench::kRequestAccess) {
                s.wall_s += run(*s.method, per_round, s.concurrency, stored, &batch);
            } else {
                const bench::DeviceRange fresh{next_device, static_cast<long>(per_round)};
                next_device += static_cast<long>(per_round);
                Settle(options.log);
                const long log_before = FileSize(options.log);
                const Flushes flushes_before = CountFlushes(options.syncs);
                s.wall_s += run(*s.method, per_round, s.concurrency, fresh, &batch);
                Settle(options.log);
                const Flushes flushes_after = CountFlushes(options.syncs);
                accounting.requests += static_cast<long>(batch.finished);
                accounting.log_bytes += FileSize(options.log) - log_before;
                accounting.flushes.main += flushes_after.main - flushes_before.main;
                accounting.flushes.other += flushes_after.other - flushes_before.other;
                // Untimed: the list goes back to the stored devices.
                bench::BusBatch removal;
                run(bench::kRemoveDevice, batch.finished, 1, fresh, &removal);
                Settle(options.log);
            }
            s.latencies_us.insert(s.latencies_us.end(), batch.latencies_us.begin(),
                                  batch.latencies_us.end());
            stopped = stopped || batch.stopped;
        }
    }
    floors.push_back(bench::MeasureFloorUs(floor_list, options.floor_reps / 2 + 1));

    PrintSeries(series, options, stopped);
    PrintTargets(series, options, (floors[0] + floors[1]) / 2, floor_devices, accounting);

    g_object_unref(connection);
    if (failures > 0) {
        std::fprintf(stderr, "quillon-bench-bus: %d failed calls; first: %s\n", failures,
                     first_failure.c_str());
        return 1;
    }
    return 0;
}
