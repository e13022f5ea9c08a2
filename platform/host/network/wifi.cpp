// Wi-Fi manager: not on the host yet; every call fails as an absent Wi-Fi would.
#include "wifi.h"
#include "common/missing_service.h"

namespace {
// Says once per function that the service is missing; Wi-Fi looks absent.
int NotSupported(const char* function) {
    host::WarnMissingService("Wi-Fi service", function);
    return WIFI_ERROR_NOT_SUPPORTED;
}
}  // namespace

extern "C" int wifi_initialize(void) {
    return NotSupported(__func__);
}

extern "C" int wifi_deinitialize(void) {
    return NotSupported(__func__);
}

extern "C" int wifi_set_connection_state_changed_cb(wifi_connection_state_changed_cb /*callback*/,
                                                    void* /*user_data*/) {
    return NotSupported(__func__);
}

extern "C" int wifi_unset_connection_state_changed_cb(void) {
    return NotSupported(__func__);
}

extern "C" int wifi_ap_get_essid(wifi_ap_h /*ap*/, char** essid) {
    if (essid)
        *essid = nullptr;
    return NotSupported(__func__);
}
