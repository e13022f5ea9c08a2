// What NetworkManager says, in the platform's words: the kind of the primary connection,
// the Wi-Fi device's state, and an access point's security and encryption from its flags.
#pragma once

#include <cstdint>

#include "net_connection.h"
#include "wifi.h"

namespace host::network {

struct WifiSecurity {
    connection_wifi_security_type_e security = CONNECTION_WIFI_SECURITY_TYPE_NONE;
    connection_wifi_encryption_type_e encryption = CONNECTION_WIFI_ENCRYPTION_TYPE_NONE;
};

// From the manager's PrimaryConnectionType ("802-11-wireless", …); "" is no connection.
connection_type_e ConnectionTypeFromNm(const char* nm_type);
// From a device's NMDeviceState.
wifi_connection_state_e WifiStateFromDevice(uint32_t device_state);
// From an access point's Flags, WpaFlags and RsnFlags.
WifiSecurity WifiSecurityFromFlags(uint32_t flags, uint32_t wpa_flags, uint32_t rsn_flags);

}  // namespace host::network
