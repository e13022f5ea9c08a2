// Wi-Fi manager: not on the host yet; every call fails as an absent Wi-Fi would.
#include "wifi.h"
#include "missing_service.h"

namespace {
void Warn(const char* function) {
    host::WarnMissingService("Wi-Fi service", function);
}
}  // namespace

extern "C" int wifi_initialize(void) {
    Warn(__func__);
    return WIFI_ERROR_NOT_SUPPORTED;
}

extern "C" int wifi_deinitialize(void) {
    Warn(__func__);
    return WIFI_ERROR_NOT_SUPPORTED;
}

extern "C" int wifi_set_connection_state_changed_cb(wifi_connection_state_changed_cb callback,
                                                    void* user_data) {
    (void)callback;
    (void)user_data;
    Warn(__func__);
    return WIFI_ERROR_NOT_SUPPORTED;
}

extern "C" int wifi_unset_connection_state_changed_cb(void) {
    Warn(__func__);
    return WIFI_ERROR_NOT_SUPPORTED;
}

extern "C" int wifi_ap_get_essid(wifi_ap_h ap, char** essid) {
    (void)ap;
    if (essid)
        *essid = nullptr;
    Warn(__func__);
    return WIFI_ERROR_NOT_SUPPORTED;
}
