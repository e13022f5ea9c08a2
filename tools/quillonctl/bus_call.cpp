#include "bus_call.h"

#include <cstdio>

#include "exit_status.h"
#include "policy_groups.h"

namespace quillonctl {

GDBusConnection* ConnectSystemBus(std::string* error) {
    GError* failure = nullptr;
    GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &failure);
    if (bus == nullptr) {
        *error = std::string("cannot reach the system bus: ") +
                 (failure != nullptr ? failure->message : "unknown error");
        g_clear_error(&failure);
    }
    return bus;
}

GVariant* CallDaemon(GDBusConnection* bus, const char* interface, const char* method,
                     GVariant* parameters, const GVariantType* reply_type, int timeout_ms,
                     std::string* error, int* exit_status) {
    *exit_status = kExitUnreachable;
    GError* failure = nullptr;
    // Never start the daemon on the way: a status query must not change what it reports.
    GVariant* reply = g_dbus_connection_call_sync(
        bus, QUILLON_BUS_NAME, QUILLON_OBJECT_PATH, interface, method, parameters, reply_type,
        G_DBUS_CALL_FLAGS_NO_AUTO_START, timeout_ms, nullptr, &failure);
    if (reply != nullptr) {
        return reply;
    }
    if (g_error_matches(failure, G_DBUS_ERROR, G_DBUS_ERROR_ACCESS_DENIED)) {
        *exit_status = kExitDenied;
        const char* group = quillon_tools::GroupAllowedToCall(method);
        *error = std::string("permission denied: ") + method + " needs root" +
                 (group ? std::string(" or membership of the group ") + group : "");
    } else if (g_error_matches(failure, G_DBUS_ERROR, G_DBUS_ERROR_SERVICE_UNKNOWN) ||
               g_error_matches(failure, G_DBUS_ERROR, G_DBUS_ERROR_NAME_HAS_NO_OWNER)) {
        *error = "the daemon " QUILLON_BUS_NAME " is not on the bus";
    } else if (g_error_matches(failure, G_IO_ERROR, G_IO_ERROR_TIMED_OUT) ||
               g_error_matches(failure, G_DBUS_ERROR, G_DBUS_ERROR_NO_REPLY) ||
               g_error_matches(failure, G_DBUS_ERROR, G_DBUS_ERROR_TIMEOUT)) {
        char seconds[32];
        snprintf(seconds, sizeof(seconds), "%g", timeout_ms / 1000.0);
        *error = std::string("no answer to ") + method + " within " + seconds + " s";
    } else {
        gchar* remote = g_dbus_error_get_remote_error(failure);
        if (remote != nullptr) {
            g_dbus_error_strip_remote_error(failure);
            *error = std::string(method) + " failed: " + remote + ": " + failure->message;
        } else {
            *error = std::string(method) +
                     " failed: " + (failure != nullptr ? failure->message : "unknown error");
        }
        g_free(remote);
    }
    g_clear_error(&failure);
    return nullptr;
}

}  // namespace quillonctl
