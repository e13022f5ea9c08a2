// quillon-bench-daemon: the daemon's whole life under load, on the bus named by
// DBUS_SYSTEM_BUS_ADDRESS (run-all.sh starts a private one). Each command starts and stops
// the daemon itself, in a platform root it prepares with quillon-platform.
//
//   seed N FILE             FILE gets the stored text of N devices (bus_batch.h's devices)
//   startup BIN ROOT N R    start-up time with N stored devices over start-up with none:
//                           from the start of the process to its first answer, R runs of each
//   burst BIN ROOT N K      N new devices from an empty list, K in flight, started 5 s before
//                           the first watchdog ping is due: the pings (a NOTIFY_SOCKET of our
//                           own), the daemon's threads, and after a restart every device in
//                           the list and in storage
//
// BIN is the folder of quillon and quillon-platform. Exits 1 when the daemon fails or a
// device is missing, never because of a time.
#include <gio/gio.h>
#include <glib-unix.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <set>
#include <string>
#include <vector>

#include "bus_batch.h"
#include "daemon_process.h"
#include "floor_work.h"
#include "latency_stats.h"

namespace {

const int kStopTimeoutMs = 60000;
const int kStartTimeoutMs = 30000;
const double kPingIntervalS = 15.0;
const double kPingLeadS = 5.0;

struct Paths {
    std::string bin, root;
    std::string daemon() const { return bin + "/quillon"; }
    std::string platform() const { return bin + "/quillon-platform"; }
    std::string log() const { return root + ".log"; }
};

std::vector<std::string> RootEnv(const Paths& paths) {
    return {"QUILLON_PLATFORM_ROOT=" + paths.root};
}

bool Platform(const Paths& paths, std::vector<std::string> args, std::string* out = nullptr) {
    args.insert(args.begin(), paths.platform());
    g_setenv("QUILLON_PLATFORM_ROOT", paths.root.c_str(), TRUE);
    return bench::RunTool(args, out);
}

bool WriteSeed(long n, const std::string& file) {
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out << bench::StoredListText(bench::MakeBenchDevices(n, g_get_real_time() / 1000));
    return static_cast<bool>(out);
}

// A fresh root holding the default settings and, when n > 0, n stored devices.
bool PrepareRoot(const Paths& paths, long n) {
    if (!bench::RunTool({"rm", "-rf", paths.root}) ||
        g_mkdir_with_parents(paths.root.c_str(), 0700) != 0 || !Platform(paths, {"init"})) {
        return false;
    }
    if (n == 0) {
        return true;
    }
    const std::string seed = paths.root + ".seed";
    bool ok = WriteSeed(n, seed) && Platform(paths, {"secure-write", "PXM_DEVICE_LIST", seed});
    unlink(seed.c_str());
    return ok;
}

GDBusConnection* SystemBus() {
    GError* error = nullptr;
    GDBusConnection* connection = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
    if (connection == nullptr) {
        std::fprintf(stderr, "quillon-bench-daemon: no system bus: %s\n", error->message);
        g_error_free(error);
    }
    return connection;
}

// Start-up: the time from the start of the process to its first answer on the bus.
int Startup(const Paths& paths, long devices, int runs) {
    GDBusConnection* bus = SystemBus();
    if (bus == nullptr) {
        return 1;
    }
    std::vector<double> empty_ms, full_ms;
    for (int run = 0; run < runs; ++run) {
        for (long n : {0L, devices}) {
            if (!PrepareRoot(paths, n)) {
                std::fprintf(stderr, "quillon-bench-daemon: cannot prepare %s\n",
                             paths.root.c_str());
                return 1;
            }
            const gint64 start = g_get_monotonic_time();
            pid_t pid = bench::StartProcess(paths.daemon(), RootEnv(paths), paths.log());
            bool answered = pid > 0 && bench::WaitForAnswer(bus, kStartTimeoutMs);
            const double ms = static_cast<double>(g_get_monotonic_time() - start) / 1000.0;
            bench::StopProcess(pid, kStopTimeoutMs);
            if (!answered) {
                std::fprintf(stderr, "quillon-bench-daemon: the daemon did not answer (log %s)\n",
                             paths.log().c_str());
                return 1;
            }
            (n == 0 ? empty_ms : full_ms).push_back(ms);
        }
    }
    const double empty = bench::Percentile(empty_ms, 50), full = bench::Percentile(full_ms, 50);
    std::printf(
        "start-up to the first answer, median of %d runs: no devices %.0f ms, %ld devices "
        "%.0f ms: %.2fx (target <= 3x)\n",
        runs, empty, devices, full, full / empty);
    g_object_unref(bus);
    return 0;
}

struct BurstWatch {
    pid_t pid = -1;
    std::vector<gint64> pings_us;  // monotonic times of WATCHDOG=1
    int peak_threads = 0;
};

gboolean OnNotify(gint fd, GIOCondition, gpointer data) {
    BurstWatch* watch = static_cast<BurstWatch*>(data);
    char message[512];
    ssize_t n = recv(fd, message, sizeof(message) - 1, MSG_DONTWAIT);
    if (n > 0) {
        message[n] = '\0';
        if (std::string(message).find("WATCHDOG=1") != std::string::npos) {
            watch->pings_us.push_back(g_get_monotonic_time());
        }
    }
    return G_SOURCE_CONTINUE;
}

int Threads(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.compare(0, 8, "Threads:") == 0) {
            return std::atoi(line.c_str() + 8);
        }
    }
    return 0;
}

gboolean SampleThreads(gpointer data) {
    BurstWatch* watch = static_cast<BurstWatch*>(data);
    watch->peak_threads = std::max(watch->peak_threads, Threads(watch->pid));
    return G_SOURCE_CONTINUE;
}

int BindNotifySocket(const std::string& path) {
    int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (fd < 0 || path.size() >= sizeof(address.sun_path)) {
        return -1;
    }
    path.copy(address.sun_path, path.size());
    unlink(path.c_str());
    if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

void RunLoopFor(double seconds) {
    GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
    g_timeout_add(
        static_cast<guint>(seconds * 1000),
        [](gpointer l) {
            g_main_loop_quit(static_cast<GMainLoop*>(l));
            return G_SOURCE_REMOVE;
        },
        loop);
    g_main_loop_run(loop);
    g_main_loop_unref(loop);
}

// Every device 0 .. n-1 that is in the daemon's list (after a restart) and in storage.
void CheckStored(const Paths& paths, GDBusConnection* bus, long n, long* in_list,
                 long* in_storage) {
    std::set<std::string> expected;
    for (long i = 0; i < n; ++i) {
        expected.insert(bench::DeviceMac(i, 1));
    }
    *in_list = *in_storage = 0;
    pid_t pid = bench::StartProcess(paths.daemon(), RootEnv(paths), paths.log());
    if (pid > 0 && bench::WaitForAnswer(bus, kStartTimeoutMs)) {
        GVariant* reply = g_dbus_connection_call_sync(
            bus, "org.nuvak.quillon", "/org/nuvak/quillon", "org.nuvak.quillon.GetInterface",
            "pxm_get_list", nullptr, G_VARIANT_TYPE("(a(ssssiiiiiiss)i)"), G_DBUS_CALL_FLAGS_NONE,
            30000, nullptr, nullptr);
        if (reply != nullptr) {
            GVariantIter* iter = nullptr;
            gint32 count = 0;
            g_variant_get(reply, "(a(ssssiiiiiiss)i)", &iter, &count);
            const gchar* bt = nullptr;
            std::set<std::string> seen;
            while (g_variant_iter_next(iter, "(&s&s&s&siiiiii&s&s)", nullptr, &bt, nullptr, nullptr,
                                       nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                       nullptr, nullptr)) {
                seen.insert(bt);
            }
            g_variant_iter_free(iter);
            g_variant_unref(reply);
            for (const std::string& mac : expected) {
                *in_list += seen.count(mac);
            }
        }
    }
    bench::StopProcess(pid, kStopTimeoutMs);

    std::string text;
    if (Platform(paths, {"secure-read", "PXM_DEVICE_LIST"}, &text) && text.size() > 2) {
        Json::Value root;
        Json::CharReaderBuilder builder;
        std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
        if (reader->parse(text.data() + 2, text.data() + text.size(), &root, nullptr) &&
            root.isArray()) {
            std::set<std::string> seen;
            for (const Json::Value& element : root) {
                seen.insert(element["item_data"]["bt_mac"].asString());
            }
            for (const std::string& mac : expected) {
                *in_storage += seen.count(mac);
            }
        }
    }
}

int Burst(const Paths& paths, long devices, int concurrency) {
    GDBusConnection* bus = SystemBus();
    if (bus == nullptr || !PrepareRoot(paths, 0)) {
        return 1;
    }
    const std::string socket_path = paths.root + ".notify";
    int notify_fd = BindNotifySocket(socket_path);
    if (notify_fd < 0) {
        std::fprintf(stderr, "quillon-bench-daemon: cannot bind %s\n", socket_path.c_str());
        return 1;
    }
    BurstWatch watch;
    std::vector<std::string> env = RootEnv(paths);
    env.push_back("NOTIFY_SOCKET=" + socket_path);
    watch.pid = bench::StartProcess(paths.daemon(), env, paths.log());
    if (watch.pid <= 0 || !bench::WaitForAnswer(bus, kStartTimeoutMs)) {
        std::fprintf(stderr, "quillon-bench-daemon: the daemon did not answer (log %s)\n",
                     paths.log().c_str());
        bench::StopProcess(watch.pid, kStopTimeoutMs);
        return 1;
    }
    // The ping timer starts just before the main loop, which answers the first call.
    const gint64 loop_start = g_get_monotonic_time();
    const int idle_threads = Threads(watch.pid);
    guint notify_source = g_unix_fd_add(notify_fd, G_IO_IN, OnNotify, &watch);
    guint sampler = g_timeout_add(2, SampleThreads, &watch);
    // The first ping is due 15 s after the loop started: starting the burst a little before
    // puts a ping inside a burst that is over in seconds.
    RunLoopFor(kPingIntervalS - kPingLeadS);

    bench::BusBatch batch;
    const bench::BusBatchPlan plan{&bench::kRequestAccess,
                                   static_cast<std::size_t>(devices),
                                   concurrency,
                                   g_get_monotonic_time() + 300 * G_USEC_PER_SEC,
                                   60000,
                                   {0, devices}};
    const gint64 burst_start = g_get_monotonic_time();
    const double answered_s = bench::RunBusBatch(bus, plan, &batch);
    const gint64 answered_at = g_get_monotonic_time();
    // At least one ping: a burst shorter than the interval still shows the first one.
    while (watch.pings_us.empty() && g_get_monotonic_time() - loop_start <
                                         static_cast<gint64>(kPingIntervalS + 5) * 1000000) {
        RunLoopFor(0.1);
    }
    const gint64 stop_at = g_get_monotonic_time();
    const bool clean = bench::StopProcess(watch.pid, kStopTimeoutMs);
    const double saved_s = static_cast<double>(g_get_monotonic_time() - stop_at) / 1e6 + answered_s;
    g_source_remove(sampler);
    g_source_remove(notify_source);
    close(notify_fd);
    unlink(socket_path.c_str());

    double worst_late_s = 0;
    int due_in_burst = 0;
    gint64 previous = loop_start;
    for (gint64 ping : watch.pings_us) {
        worst_late_s =
            std::max(worst_late_s, static_cast<double>(ping - previous) / 1e6 - kPingIntervalS);
        const gint64 due = previous + static_cast<gint64>(kPingIntervalS * 1e6);
        due_in_burst += due >= burst_start && due <= answered_at;
        previous = ping;
    }

    long in_list = 0, in_storage = 0;
    CheckStored(paths, bus, devices, &in_list, &in_storage);
    g_object_unref(bus);

    std::printf("burst of %ld new devices, %d in flight, from an empty list:\n", devices,
                concurrency);
    std::printf(
        "  answered: %zu of %ld in %.1f s, %d failed; all saves done (the daemon's exit "
        "after SIGTERM) at %.1f s (target <= 60 s)\n",
        batch.finished, devices, answered_s, batch.failures, saved_s);
    std::printf(
        "  watchdog: %zu pings, %d due during the burst, latest %.2f s late (target <= 2 s)\n",
        watch.pings_us.size(), due_in_burst, worst_late_s);
    std::printf("  threads: %d idle, %d at the peak, sampled every 2 ms (target <= 16)\n",
                idle_threads, watch.peak_threads);
    std::printf("  after a restart: %ld of %ld in the list, %ld of %ld in storage\n", in_list,
                devices, in_storage, devices);
    const bool ok = clean && batch.failures == 0 && in_list == devices && in_storage == devices;
    if (!ok) {
        std::fprintf(stderr, "quillon-bench-daemon: the burst lost devices or failed (log %s)\n",
                     paths.log().c_str());
    }
    return ok ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string command = argc > 1 ? argv[1] : "";
    if (command == "seed" && argc == 4) {
        return WriteSeed(std::atol(argv[2]), argv[3]) ? 0 : 1;
    }
    if ((command == "startup" || command == "burst") && argc == 6) {
        Paths paths{argv[2], argv[3]};
        const long n = std::atol(argv[4]);
        const int k = std::atoi(argv[5]);
        if (n < 1 || k < 1) {
            return 2;
        }
        return command == "startup" ? Startup(paths, n, k) : Burst(paths, n, k);
    }
    std::fprintf(stderr,
                 "usage: quillon-bench-daemon seed N FILE | startup BIN ROOT N RUNS | "
                 "burst BIN ROOT N IN_FLIGHT\n");
    return 2;
}
