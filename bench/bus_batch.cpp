#include "bus_batch.h"

#include <algorithm>
#include <cstdio>

namespace bench {

namespace {
const std::size_t kLookupStep = 7919;
const char* const kBusName = "org.nuvak.quillon";
const char* const kObjectPath = "/org/nuvak/quillon";
}  // namespace

const BusMethod kPing = {"Peer.Ping", kBusName,       kObjectPath, "org.freedesktop.DBus.Peer",
                         "Ping",      BusArgs::kNone, "()",        0};
const BusMethod kGetStatus = {
    "pxm_get_status", kBusName,         kObjectPath, "org.nuvak.quillon.GetInterface",
    "pxm_get_status", BusArgs::kStatus, "(i)",       0};
const BusMethod kRequestAccess = {
    "pxm_request_access", kBusName,          kObjectPath, "org.nuvak.quillon.SetInterface",
    "pxm_request_access", BusArgs::kRequest, "(i)",       0};
const BusMethod kRemoveDevice = {
    "pxm_remove_device", kBusName,         kObjectPath, "org.nuvak.quillon.SetInterface",
    "pxm_remove_device", BusArgs::kRemove, "(i)",       1};
const BusMethod kEchoStatus = {"echo (si)", kEchoBusName,     kEchoPath, kEchoBusName,
                               "status",    BusArgs::kStatus, "(i)",     0};
const BusMethod kEchoRequest = {"echo (request)", kEchoBusName,      kEchoPath, kEchoBusName,
                                "request",        BusArgs::kRequest, "(i)",     0};

std::string DeviceMac(long device, int kind) {
    char mac[18];
    const unsigned long k = static_cast<unsigned long>(device) + 1;
    std::snprintf(mac, sizeof(mac), "B0:C1:%02lX:%02lX:%02lX:%02X", (k >> 16) & 0xFF,
                  (k >> 8) & 0xFF, k & 0xFF, kind & 0xFF);
    return mac;
}

std::string DeviceName(long device) {
    return "Bench phone " + std::to_string(device + 1);
}

namespace {

struct Run {
    GDBusConnection* connection;
    const BusBatchPlan* plan;
    BusBatch* batch;
    GMainLoop* loop;
};

struct PendingCall {
    Run* run;
    gint64 start_us;
};

void StartCall(Run* run);

void Fail(BusBatch* batch, const std::string& why) {
    if (batch->failures++ == 0) {
        batch->first_failure = why;
    }
}

void OnReply(GObject* source, GAsyncResult* result, gpointer data) {
    PendingCall* pending = static_cast<PendingCall*>(data);
    Run* run = pending->run;
    BusBatch* batch = run->batch;
    const BusMethod& method = *run->plan->method;
    GError* error = nullptr;
    GVariant* reply = g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, &error);
    const gint64 end_us = g_get_monotonic_time();
    if (reply == nullptr) {
        Fail(batch, std::string(method.label) + ": " + error->message);
        g_error_free(error);
    } else {
        batch->latencies_us.push_back(static_cast<double>(end_us - pending->start_us));
        if (method.args != BusArgs::kNone) {
            gint32 code = 0;
            g_variant_get(reply, "(i)", &code);
            if (code != method.expected) {
                Fail(batch, std::string(method.label) + " answered " + std::to_string(code) +
                                ", expected " + std::to_string(method.expected));
            }
        }
        g_variant_unref(reply);
    }
    delete pending;
    batch->finished++;

    if (batch->started < run->plan->calls && end_us >= run->plan->deadline_us) {
        batch->stopped = true;
    }
    if (!batch->stopped && batch->started < run->plan->calls) {
        StartCall(run);
    } else if (batch->finished == batch->started) {
        g_main_loop_quit(run->loop);
    }
}

void StartCall(Run* run) {
    BusBatch* batch = run->batch;
    const BusMethod& method = *run->plan->method;
    PendingCall* pending = new PendingCall{run, g_get_monotonic_time()};
    GVariant* params = BusCallParameters(method, batch->started, run->plan->devices);
    batch->started++;
    batch->max_in_flight = std::max(batch->max_in_flight, batch->started - batch->finished);
    g_dbus_connection_call(run->connection, method.bus_name, method.path, method.interface,
                           method.member, params, G_VARIANT_TYPE(method.reply_type),
                           G_DBUS_CALL_FLAGS_NONE, run->plan->call_timeout_ms, nullptr, OnReply,
                           pending);
}

}  // namespace

GVariant* BusCallParameters(const BusMethod& method, std::size_t call, DeviceRange devices) {
    const std::size_t count = devices.count > 0 ? static_cast<std::size_t>(devices.count) : 1;
    const long device = devices.first + static_cast<long>(call % count);
    switch (method.args) {
        case BusArgs::kNone:
            return nullptr;
        case BusArgs::kStatus: {
            // Lookups hop through the whole range (a prime step), so that a few calls
            // already find devices near the front and near the end of a long list.
            const long spread = devices.first + static_cast<long>((call * kLookupStep) % count);
            return g_variant_new("(si)", DeviceMac(spread, 2).c_str(), 2);
        }
        case BusArgs::kRemove:
            return g_variant_new("(si)", DeviceMac(device, 1).c_str(), 1);
        case BusArgs::kRequest:
            // devtype, devicon, status allowed, no TV-initiated mirroring, isNoUX (so no
            // prompt), isUXAlways off.
            return g_variant_new("(ssssssiiiiii)", DeviceName(device).c_str(),
                                 DeviceMac(device, 1).c_str(), DeviceMac(device, 2).c_str(),
                                 DeviceMac(device, 3).c_str(), "zel", "mirror", 1, 1, 0, 0, 1, 0);
    }
    return nullptr;
}

double RunBusBatch(GDBusConnection* connection, const BusBatchPlan& plan, BusBatch* batch) {
    *batch = BusBatch();
    if (plan.calls == 0 || plan.concurrency < 1) {
        return 0;
    }
    if (g_get_monotonic_time() >= plan.deadline_us) {
        batch->stopped = true;
        return 0;
    }
    Run run{connection, &plan, batch, g_main_loop_new(nullptr, FALSE)};
    const gint64 begin = g_get_monotonic_time();
    for (int i = 0; i < plan.concurrency && batch->started < plan.calls; ++i) {
        StartCall(&run);
    }
    // Only a reply quits the loop: with nothing in flight it would run forever.
    if (batch->started > 0) {
        g_main_loop_run(run.loop);
    }
    const gint64 end = g_get_monotonic_time();
    g_main_loop_unref(run.loop);
    return static_cast<double>(end - begin) / 1e6;
}

}  // namespace bench
