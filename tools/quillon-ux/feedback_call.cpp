#include "feedback_call.h"

#include <gio/gio.h>

namespace quillon_ux {

namespace {
constexpr const char* kBusName = "org.nuvak.quillon";
constexpr const char* kObjectPath = "/org/nuvak/quillon";
constexpr const char* kUxInterface = "org.nuvak.quillon.UxInterface";
constexpr int kCallTimeoutMs = 15000;
}  // namespace

bool SendFeedback(const PromptRequest& request, int status, std::string* error) {
    GError* failure = nullptr;
    GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &failure);
    if (!bus) {
        *error = std::string("no system bus: ") + (failure ? failure->message : "unknown error");
        g_clear_error(&failure);
        return false;
    }
    // The daemon's order: the six texts, then type, icon, verdict and the three options.
    GVariant* values =
        g_variant_new("(ssssssiiiiii)", request.device_name.c_str(), request.bt_mac.c_str(),
                      request.wifi_mac.c_str(), request.p2p_mac.c_str(), request.zel_id.c_str(),
                      request.mirroring_id.c_str(), request.devtype, request.devicon, status,
                      request.mirroring_support, request.no_ux, request.ux_always);
    GVariant* reply = g_dbus_connection_call_sync(
        bus, kBusName, kObjectPath, kUxInterface, "pxm_feedback_ux", values, nullptr,
        G_DBUS_CALL_FLAGS_NONE, kCallTimeoutMs, nullptr, &failure);
    bool ok = reply != nullptr;
    if (reply)
        g_variant_unref(reply);
    else
        *error = std::string("pxm_feedback_ux failed: ") +
                 (failure ? failure->message : "unknown error");
    g_clear_error(&failure);
    g_object_unref(bus);
    return ok;
}

}  // namespace quillon_ux
