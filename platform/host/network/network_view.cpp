#include "network/network_view.h"

#include "network/nm_dbus.h"

namespace host::network {

PlatformConnection PlatformConnectionOf(const NetworkView& view) {
    PlatformConnection connection;
    if (view.presence != Presence::kPresent)
        return connection;
    connection.type = ConnectionTypeFromNm(view.primary_type.c_str());
    if (connection.type != CONNECTION_TYPE_WIFI)
        return connection;
    if (view.primary_device_state != kDeviceActivated) {
        connection.type = CONNECTION_TYPE_DISCONNECTED;
        return connection;
    }
    const AccessPoint& ap = view.primary_ap;
    connection.wifi_security_known = !ap.path.empty();
    if (connection.wifi_security_known)
        connection.wifi = WifiSecurityFromFlags(ap.flags, ap.wpa_flags, ap.rsn_flags);
    return connection;
}

wifi_connection_state_e WifiStateOf(const NetworkView& view) {
    if (view.presence != Presence::kPresent || view.wifi_device.empty())
        return WIFI_CONNECTION_STATE_DISCONNECTED;
    return WifiStateFromDevice(view.wifi_device_state);
}

}  // namespace host::network
