// What the host knows of NetworkManager at one moment, and what the platform's connection
// and Wi-Fi functions make of it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "net_connection.h"
#include "network/nm_mapping.h"
#include "wifi.h"

namespace host::network {

enum class Presence {
    kNoBus,       // no system bus: nothing can be known
    kAbsent,      // NetworkManager's name has no owner (or it has not been looked up yet)
    kUnanswered,  // it owns its name but did not answer
    kPresent,     // read: the rest of the view is its answer
};

struct AccessPoint {
    std::string path;  // "" when there is none
    std::vector<uint8_t> ssid;
    uint32_t flags = 0;
    uint32_t wpa_flags = 0;
    uint32_t rsn_flags = 0;
};

struct NetworkView {
    Presence presence = Presence::kAbsent;
    std::string owner;  // NetworkManager's unique name on the bus
    // The primary connection (the one with the default route): NetworkManager's name of its
    // kind ("" when there is none), its name, its first device's state and, for Wi-Fi, the
    // access point it is associated with.
    std::string primary_type;
    std::string primary_id;
    uint32_t primary_device_state = 0;
    AccessPoint primary_ap;
    // The Wi-Fi device that the state callback follows ("" when there is none), its
    // state and its ActiveAccessPoint.
    std::string wifi_device;
    std::string wifi_interface;
    uint32_t wifi_device_state = 0;
    AccessPoint wifi_ap;
};

// What connection_* report for a view.
struct PlatformConnection {
    connection_type_e type = CONNECTION_TYPE_DISCONNECTED;
    bool wifi_security_known = false;  // Wi-Fi, and its access point was read
    WifiSecurity wifi;
};

// A Wi-Fi primary connection counts only while its device is activated: while it is taken
// down (or still coming up) it is no connection, so a request in between cannot find a
// secure network that the Wi-Fi state callback has just reported gone.
PlatformConnection PlatformConnectionOf(const NetworkView& view);
// The Wi-Fi device's state as the platform names it; disconnected without one.
wifi_connection_state_e WifiStateOf(const NetworkView& view);

}  // namespace host::network
