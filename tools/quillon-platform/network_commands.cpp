// The network command: what the host's network room sees of NetworkManager, in the
// platform's words, and whether the daemon would call the TV's network secure.
#include <cstdio>
#include <initializer_list>
#include <string>
#include <vector>

#include "command.h"
#include "network/network_view.h"
#include "network/nm_monitor.h"
#include "network/ssid_text.h"

namespace quillon_platform {

namespace {

using host::network::NetworkView;
using host::network::PlatformConnection;
using host::network::Presence;

// The name of an enumeration's value; `names` start with the value `first`.
const char* NameOf(int value, std::initializer_list<const char*> names, int first = 0) {
    const int index = value - first;
    return index >= 0 && index < static_cast<int>(names.size()) ? names.begin()[index] : "unknown";
}

const char* TypeName(connection_type_e type) {
    return NameOf(type, {"disconnected", "wifi", "cellular", "ethernet", "bluetooth"});
}

const char* SecurityName(connection_wifi_security_type_e security) {
    return NameOf(security, {"none", "wep", "wpa-psk", "wpa2-psk", "eap"});
}

const char* EncryptionName(connection_wifi_encryption_type_e encryption) {
    return NameOf(encryption, {"none", "wep", "tkip", "aes", "tkip+aes"});
}

const char* StateName(wifi_connection_state_e state) {
    return NameOf(state, {"failure", "disconnected", "association", "configuration", "connected"},
                  WIFI_CONNECTION_STATE_FAILURE);
}

const char* PresenceText(Presence presence) {
    switch (presence) {
        case Presence::kNoBus:
            return "no system bus";
        case Presence::kAbsent:
            return "not on the system bus";
        case Presence::kUnanswered:
            return "not answering";
        case Presence::kPresent:
            return "on the system bus";
    }
    return "unknown";
}

// The daemon's rule: a secure network is Wi-Fi with WPA-PSK or WPA2-PSK security and AES
// (or TKIP and AES mixed) encryption; every other case, not knowing included, is not.
std::string Verdict(const NetworkView& view, const PlatformConnection& connection) {
    if (view.presence == Presence::kNoBus)
        return "not secure: there is no system bus";
    if (view.presence != Presence::kPresent)
        return std::string("not secure: NetworkManager is ") + PresenceText(view.presence);
    if (connection.type != CONNECTION_TYPE_WIFI)
        return "not secure: the connection is not Wi-Fi";
    if (!connection.wifi_security_known)
        return "not secure: the access point could not be read";
    const connection_wifi_security_type_e security = connection.wifi.security;
    if (security != CONNECTION_WIFI_SECURITY_TYPE_WPA_PSK &&
        security != CONNECTION_WIFI_SECURITY_TYPE_WPA2_PSK)
        return "not secure: the security is neither wpa-psk nor wpa2-psk";
    const connection_wifi_encryption_type_e encryption = connection.wifi.encryption;
    if (encryption != CONNECTION_WIFI_ENCRYPTION_TYPE_AES &&
        encryption != CONNECTION_WIFI_ENCRYPTION_TYPE_TKIP_AES_MIXED)
        return "not secure: the encryption is neither aes nor tkip+aes";
    return "secure: in access-notification mode 0 a new device is stored without a prompt";
}

int RunNetwork(const Command& self, const std::vector<std::string>& args) {
    int status = kExitOk;
    if (!ExpectArgs(self, args, 0, &status))
        return status;
    host::network::Monitor& monitor = host::network::Monitor::Instance();
    monitor.Acquire();
    const NetworkView view = monitor.View();
    monitor.Release();
    const PlatformConnection connection = host::network::PlatformConnectionOf(view);

    std::printf("NetworkManager: %s", PresenceText(view.presence));
    std::printf(view.owner.empty() ? "\n" : " (%s)\n", view.owner.c_str());
    std::printf("connection: %s", TypeName(connection.type));
    if (!view.primary_type.empty())
        std::printf(" (%s \"%s\")", view.primary_type.c_str(), view.primary_id.c_str());
    std::printf("\n");
    if (view.wifi_device.empty()) {
        std::printf("wifi device: -\n");
    } else {
        std::printf("wifi device: %s %s (NetworkManager state %u)\n", view.wifi_interface.c_str(),
                    StateName(host::network::WifiStateOf(view)), view.wifi_device_state);
    }
    const host::network::AccessPoint& ap =
        connection.type == CONNECTION_TYPE_WIFI ? view.primary_ap : view.wifi_ap;
    std::printf("ssid: %s\n", ap.path.empty() ? "-" : host::network::SsidText(ap.ssid).c_str());
    if (connection.wifi_security_known) {
        std::printf("access point: flags 0x%x wpa 0x%x rsn 0x%x\n", ap.flags, ap.wpa_flags,
                    ap.rsn_flags);
        std::printf("security: %s (%d)\n", SecurityName(connection.wifi.security),
                    static_cast<int>(connection.wifi.security));
        std::printf("encryption: %s (%d)\n", EncryptionName(connection.wifi.encryption),
                    static_cast<int>(connection.wifi.encryption));
    } else {
        std::printf("access point: -\nsecurity: -\nencryption: -\n");
    }
    std::printf("verdict: %s\n", Verdict(view, connection).c_str());
    return view.presence == Presence::kPresent ? kExitOk : kExitFailed;
}

const CommandRegistrar kRegistrar({
    {"network", "network", "what the host sees of NetworkManager, and the security verdict",
     RunNetwork},
});

}  // namespace

}  // namespace quillon_platform
