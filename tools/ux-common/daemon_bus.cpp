#include "daemon_bus.h"

#include "policy_groups.h"

namespace quillon_ux {

namespace {

// Long enough for a daemon busy saving; short enough that a person still sees the failure.
constexpr int kCallTimeoutMs = 15000;

struct PendingCall {
    std::string method;
    CallDone done;
};

void OnCallDone(GObject* source, GAsyncResult* result, gpointer data) {
    auto* call = static_cast<PendingCall*>(data);
    GError* failure = nullptr;
    GVariant* reply = g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, &failure);
    if (reply) {
        call->done(reply, "");
        g_variant_unref(reply);
    } else if (!g_error_matches(failure, G_IO_ERROR, G_IO_ERROR_CANCELLED)) {
        call->done(nullptr, CallFailure(call->method.c_str(), failure));
    }
    g_clear_error(&failure);
    delete call;
}

}  // namespace

GDBusConnection* ConnectSystemBus(std::string* error) {
    GError* failure = nullptr;
    GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &failure);
    if (!bus) {
        *error = std::string("There is no system bus to reach the Quillon service on (") +
                 (failure ? failure->message : "unknown error") + ").";
        g_clear_error(&failure);
    }
    return bus;
}

std::string CallFailure(const char* method, const GError* error) {
    if (g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_ACCESS_DENIED)) {
        const char* group = quillon_tools::GroupAllowedToCall(method);
        return std::string("This user may not call ") + method + ": it needs root" +
               (group ? std::string(" or membership of the group ") + group : "") + ".";
    }
    if (g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_SERVICE_UNKNOWN) ||
        g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_NAME_HAS_NO_OWNER))
        return "The Quillon service is not running.";
    if (g_error_matches(error, G_IO_ERROR, G_IO_ERROR_TIMED_OUT) ||
        g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_NO_REPLY) ||
        g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_TIMEOUT))
        return std::string("The Quillon service did not answer ") + method + " in time.";
    return std::string(method) + " failed: " + (error ? error->message : "unknown error") + ".";
}

GVariant* CallDaemonSync(GDBusConnection* bus, const char* interface, const char* method,
                         GVariant* parameters, const GVariantType* reply_type, std::string* error) {
    GError* failure = nullptr;
    GVariant* reply = g_dbus_connection_call_sync(bus, kBusName, kObjectPath, interface, method,
                                                  parameters, reply_type, G_DBUS_CALL_FLAGS_NONE,
                                                  kCallTimeoutMs, nullptr, &failure);
    if (!reply)
        *error = CallFailure(method, failure);
    g_clear_error(&failure);
    return reply;
}

void CallDaemon(GDBusConnection* bus, const char* interface, const char* method,
                GVariant* parameters, const GVariantType* reply_type, GCancellable* cancellable,
                CallDone done) {
    g_dbus_connection_call(bus, kBusName, kObjectPath, interface, method, parameters, reply_type,
                           G_DBUS_CALL_FLAGS_NONE, kCallTimeoutMs, cancellable, OnCallDone,
                           new PendingCall{method, std::move(done)});
}

}  // namespace quillon_ux
