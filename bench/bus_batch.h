// One batch of bus calls: a bounded number of calls of one method, a fixed number of them in
// flight, every latency recorded, stopped early by a deadline.
#pragma once

#include <gio/gio.h>

#include <cstddef>
#include <string>
#include <vector>

namespace bench {

// The arguments a method takes; the echo service's methods take those of the daemon's.
enum class BusArgs { kNone, kStatus, kRequest, kRemove };

struct BusMethod {
    const char* label;
    const char* bus_name;
    const char* path;
    const char* interface;
    const char* member;
    BusArgs args;
    const char* reply_type;  // GVariant type string of the reply
    int expected;            // the code every reply must carry; Ping has none
};

extern const BusMethod kPing;
extern const BusMethod kGetStatus;
extern const BusMethod kRequestAccess;
extern const BusMethod kRemoveDevice;
// The echo service (echo_service.cpp): a GDBus handler on a main loop that answers at once,
// with the daemon's argument shapes. The baseline every daemon method is divided by.
extern const BusMethod kEchoStatus;
extern const BusMethod kEchoRequest;

inline constexpr const char* kEchoBusName = "org.nuvak.QuillonBenchEcho";
inline constexpr const char* kEchoPath = "/org/nuvak/QuillonBenchEcho";

// Requests cycle over this many devices when a plan names no others, so that once each is
// stored every request merges into a stored record and the list keeps its size.
inline constexpr long kBusDevices = 4;

// The address of kind 1 (Bluetooth), 2 (Wi-Fi) or 3 (P2P) of device number `device`: every
// device up to 2^24 has its own, and none is all zeros.
std::string DeviceMac(long device, int kind);
// The name a device asks with.
std::string DeviceName(long device);

// Which devices the calls of a batch name: call k names device first + k % count (status
// lookups take the same devices in another order).
struct DeviceRange {
    long first = 0;
    long count = kBusDevices;
};

// The arguments of call number `call` of `method` (a new floating reference, or null).
GVariant* BusCallParameters(const BusMethod& method, std::size_t call, DeviceRange devices = {});

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
    DeviceRange devices = {};
};

// Runs the plan on the default main context and returns its wall time in seconds.
double RunBusBatch(GDBusConnection* connection, const BusBatchPlan& plan, BusBatch* batch);

}  // namespace bench
