#include "feedback_call.h"

#include "daemon_bus.h"

namespace quillon_ux {

bool SendFeedback(const PromptRequest& request, int status, std::string* error) {
    GDBusConnection* bus = ConnectSystemBus(error);
    if (!bus)
        return false;
    // The daemon's order: the six texts, then type, icon, verdict and the three options.
    GVariant* values =
        g_variant_new("(ssssssiiiiii)", request.device_name.c_str(), request.bt_mac.c_str(),
                      request.wifi_mac.c_str(), request.p2p_mac.c_str(), request.zel_id.c_str(),
                      request.mirroring_id.c_str(), request.devtype, request.devicon, status,
                      request.mirroring_support, request.no_ux, request.ux_always);
    std::string failure;
    GVariant* reply =
        CallDaemonSync(bus, kUxInterface, "pxm_feedback_ux", values, nullptr, &failure);
    if (reply)
        g_variant_unref(reply);
    else
        *error = "pxm_feedback_ux failed: " + failure;
    g_object_unref(bus);
    return reply != nullptr;
}

}  // namespace quillon_ux
