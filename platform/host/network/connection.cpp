// Network connection manager: the primary connection and its Wi-Fi security, as
// NetworkManager tells them. A handle holds what was known when it was made.
#include "net_connection.h"
#include "network/nm_monitor.h"

using host::network::Monitor;
using host::network::PlatformConnection;
using host::network::PlatformConnectionOf;
using host::network::Presence;

struct connection_profile_s {
    PlatformConnection platform;
};

struct connection_s {
    connection_profile_s profile;  // the current profile belongs to its handle
};

extern "C" int connection_create(connection_h* connection) {
    if (connection == nullptr)
        return CONNECTION_ERROR_INVALID_PARAMETER;
    *connection = nullptr;
    // While Wi-Fi is initialised the monitor already runs and this waits for nothing.
    Monitor& monitor = Monitor::Instance();
    monitor.Acquire();
    const host::network::NetworkView view = monitor.View();
    monitor.Release();
    // The monitor has logged why it knows nothing.
    if (view.presence != Presence::kPresent)
        return CONNECTION_ERROR_OPERATION_FAILED;
    *connection = new connection_s{connection_profile_s{PlatformConnectionOf(view)}};
    return CONNECTION_ERROR_NONE;
}

extern "C" int connection_get_type(connection_h connection, connection_type_e* type) {
    if (connection == nullptr || type == nullptr)
        return CONNECTION_ERROR_INVALID_PARAMETER;
    *type = connection->profile.platform.type;
    return CONNECTION_ERROR_NONE;
}

extern "C" int connection_get_current_profile(connection_h connection,
                                              connection_profile_h* profile) {
    if (connection == nullptr || profile == nullptr)
        return CONNECTION_ERROR_INVALID_PARAMETER;
    *profile = nullptr;
    if (connection->profile.platform.type == CONNECTION_TYPE_DISCONNECTED)
        return CONNECTION_ERROR_NO_CONNECTION;
    *profile = &connection->profile;
    return CONNECTION_ERROR_NONE;
}

namespace {

// The profile's Wi-Fi security, or the error for a profile that has none.
int WifiSecurityOf(connection_profile_h profile, const void* out,
                   host::network::WifiSecurity* security) {
    if (profile == nullptr || out == nullptr || profile->platform.type != CONNECTION_TYPE_WIFI)
        return CONNECTION_ERROR_INVALID_PARAMETER;
    if (!profile->platform.wifi_security_known)
        return CONNECTION_ERROR_OPERATION_FAILED;
    *security = profile->platform.wifi;
    return CONNECTION_ERROR_NONE;
}

}  // namespace

extern "C" int connection_profile_get_wifi_security_type(connection_profile_h profile,
                                                         connection_wifi_security_type_e* type) {
    host::network::WifiSecurity security;
    int ret = WifiSecurityOf(profile, type, &security);
    if (ret == CONNECTION_ERROR_NONE)
        *type = security.security;
    return ret;
}

extern "C" int connection_profile_get_wifi_encryption_type(
    connection_profile_h profile, connection_wifi_encryption_type_e* type) {
    host::network::WifiSecurity security;
    int ret = WifiSecurityOf(profile, type, &security);
    if (ret == CONNECTION_ERROR_NONE)
        *type = security.encryption;
    return ret;
}

extern "C" int connection_destroy(connection_h connection) {
    if (connection == nullptr)
        return CONNECTION_ERROR_INVALID_PARAMETER;
    delete connection;
    return CONNECTION_ERROR_NONE;
}
