// One batch of bus calls to the daemon: a bounded number of calls of one method, a fixed
// number of them in flight, every latency recorded, stopped early by a deadline.
#pragma once

#include <gio/gio.h>

#include <cstddef>
#include <string>
#include <vector>

namespace bench {

struct BusMethod {
    const char* label;
    const char* interface;
    const char* member;
    const char* reply_type;  // GVariant type string of the reply
    int expected;            // the code every reply must carry; Ping has none
};

extern const BusMethod kPing;
extern const BusMethod kGetStatus;
extern const BusMethod kRequestAccess;

// Requests cycle over this many devices, so that once each is stored every request merges
// into a stored record and the list (and with it each save) keeps its size.
inline constexpr int kBusDevices = 4;

// The arguments of call number `call` of `method` (a new floating reference, or null).
GVariant* BusCallParameters(const BusMethod& method, std::size_t call);

struct BusBatch {
    std::size_t started = 0;
    std::size_t finished = 0;
    std::size_t max_in_flight = 0;
    bool stopped = false;              // the deadline passed before every call was started
    std::vector<double> latencies_us;  // of the calls that were answered
    int failures = 0;                  // errors and unexpected codes
    std::string first_failure;
};

struct BusBatchPlan {
    const BusMethod* method;
    std::size_t calls;
    int concurrency;
    gint64 deadline_us;  // g_get_monotonic_time() by which no further call is started
    int call_timeout_ms;
};

// Runs the plan on the default main context and returns its wall time in seconds.
double RunBusBatch(GDBusConnection* connection, const BusBatchPlan& plan, BusBatch* batch);

}  // namespace bench
