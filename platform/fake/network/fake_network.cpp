// Wi-Fi and connection manager: the connection the test describes, and the Wi-Fi state
// callback that the test fires.
#include <glib.h>

#include "common/fake_state.h"
#include "net_connection.h"
#include "wifi.h"

using fake::detail::Callback;
using fake::detail::CallScope;
using fake::detail::Ptr;

namespace {

// Handles only have to be non-null and stable; nothing is behind them.
char g_connection_token;
char g_profile_token;

}  // namespace

extern "C" {

int wifi_initialize(void) {
    CallScope call("wifi_initialize", {});
    return call.scripted() ? *call.scripted() : WIFI_ERROR_NONE;
}

int wifi_deinitialize(void) {
    CallScope call("wifi_deinitialize", {});
    return call.scripted() ? *call.scripted() : WIFI_ERROR_NONE;
}

int wifi_set_connection_state_changed_cb(wifi_connection_state_changed_cb callback,
                                         void* user_data) {
    CallScope call("wifi_set_connection_state_changed_cb", {Callback(callback), Ptr(user_data)});
    if (call.failed()) {
        return *call.scripted();
    }
    if (callback == nullptr) {
        return WIFI_ERROR_INVALID_PARAMETER;
    }
    call.data().wifi_cb = callback;
    call.data().wifi_cb_data = user_data;
    return WIFI_ERROR_NONE;
}

int wifi_unset_connection_state_changed_cb(void) {
    CallScope call("wifi_unset_connection_state_changed_cb", {});
    if (call.failed()) {
        return *call.scripted();
    }
    call.data().wifi_cb = nullptr;
    call.data().wifi_cb_data = nullptr;
    return WIFI_ERROR_NONE;
}

int wifi_ap_get_essid(wifi_ap_h ap, char** essid) {
    CallScope call("wifi_ap_get_essid", {Ptr(ap), Ptr(essid)});
    if (call.failed()) {
        return *call.scripted();
    }
    if (essid == nullptr) {
        return WIFI_ERROR_INVALID_PARAMETER;
    }
    *essid = g_strdup(call.data().essid.c_str());
    return WIFI_ERROR_NONE;
}

int connection_create(connection_h* connection) {
    CallScope call("connection_create", {Ptr(connection)});
    if (call.failed()) {
        return *call.scripted();
    }
    if (connection == nullptr) {
        return CONNECTION_ERROR_INVALID_PARAMETER;
    }
    *connection = reinterpret_cast<connection_h>(&g_connection_token);
    return CONNECTION_ERROR_NONE;
}

int connection_get_type(connection_h connection, connection_type_e* type) {
    CallScope call("connection_get_type", {Ptr(connection), Ptr(type)});
    if (call.failed()) {
        return *call.scripted();
    }
    if (connection == nullptr || type == nullptr) {
        return CONNECTION_ERROR_INVALID_PARAMETER;
    }
    *type = static_cast<connection_type_e>(call.data().connection_type);
    return CONNECTION_ERROR_NONE;
}

int connection_get_current_profile(connection_h connection, connection_profile_h* profile) {
    CallScope call("connection_get_current_profile", {Ptr(connection), Ptr(profile)});
    if (call.failed()) {
        return *call.scripted();
    }
    if (connection == nullptr || profile == nullptr) {
        return CONNECTION_ERROR_INVALID_PARAMETER;
    }
    *profile = reinterpret_cast<connection_profile_h>(&g_profile_token);
    return CONNECTION_ERROR_NONE;
}

int connection_profile_get_wifi_security_type(connection_profile_h profile,
                                              connection_wifi_security_type_e* type) {
    CallScope call("connection_profile_get_wifi_security_type", {Ptr(profile), Ptr(type)});
    if (call.failed()) {
        return *call.scripted();
    }
    if (profile == nullptr || type == nullptr) {
        return CONNECTION_ERROR_INVALID_PARAMETER;
    }
    *type = static_cast<connection_wifi_security_type_e>(call.data().wifi_security);
    return CONNECTION_ERROR_NONE;
}

int connection_profile_get_wifi_encryption_type(connection_profile_h profile,
                                                connection_wifi_encryption_type_e* type) {
    CallScope call("connection_profile_get_wifi_encryption_type", {Ptr(profile), Ptr(type)});
    if (call.failed()) {
        return *call.scripted();
    }
    if (profile == nullptr || type == nullptr) {
        return CONNECTION_ERROR_INVALID_PARAMETER;
    }
    *type = static_cast<connection_wifi_encryption_type_e>(call.data().wifi_encryption);
    return CONNECTION_ERROR_NONE;
}

int connection_destroy(connection_h connection) {
    CallScope call("connection_destroy", {Ptr(connection)});
    if (call.scripted()) {
        return *call.scripted();
    }
    return connection ? CONNECTION_ERROR_NONE : CONNECTION_ERROR_INVALID_PARAMETER;
}

}  // extern "C"

namespace fake {

void SetConnection(int type, int security, int encryption) {
    auto& s = detail::GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.data.connection_type = type;
    s.data.wifi_security = security;
    s.data.wifi_encryption = encryption;
}

void SetEssid(const std::string& essid) {
    auto& s = detail::GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.data.essid = essid;
}

bool HasWifiCallback() {
    auto& s = detail::GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.data.wifi_cb != nullptr;
}

void DeliverWifiState(int state, wifi_ap_h ap) {
    wifi_connection_state_changed_cb cb;
    void* data;
    {
        auto& s = detail::GetState();
        std::lock_guard<std::mutex> lock(s.mutex);
        cb = s.data.wifi_cb;
        data = s.data.wifi_cb_data;
    }
    if (cb != nullptr) {
        cb(static_cast<wifi_connection_state_e>(state), ap, data);
    }
}

}  // namespace fake
