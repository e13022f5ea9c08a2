#include "network/nm_mapping.h"

#include <cstring>

#include "network/nm_dbus.h"

namespace host::network {

namespace {

// The primary connection's kind. The platform names no other kind, so any other
// connection (VPN, bridge, bond, tunnel, …) is reported as no connection: it is not Wi-Fi,
// and `quillon-platform network` shows NetworkManager's own name for it.
struct ConnectionTypeRow {
    const char* nm_type;
    connection_type_e type;
};
constexpr ConnectionTypeRow kConnectionTypes[] = {
    {"802-11-wireless", CONNECTION_TYPE_WIFI}, {"802-3-ethernet", CONNECTION_TYPE_ETHERNET},
    {"pppoe", CONNECTION_TYPE_ETHERNET},  // PPPoE runs over an Ethernet device
    {"bluetooth", CONNECTION_TYPE_BT},         {"gsm", CONNECTION_TYPE_CELLULAR},
    {"cdma", CONNECTION_TYPE_CELLULAR},
};

// The Wi-Fi device's state. Connected means activated and nothing less: an address being
// configured or checked is not yet a connection.
struct DeviceStateRow {
    uint32_t device_state;
    wifi_connection_state_e state;
};
constexpr DeviceStateRow kDeviceStates[] = {
    {kDevicePrepare, WIFI_CONNECTION_STATE_ASSOCIATION},
    {kDeviceConfig, WIFI_CONNECTION_STATE_ASSOCIATION},
    {kDeviceNeedAuth, WIFI_CONNECTION_STATE_ASSOCIATION},
    {kDeviceIpConfig, WIFI_CONNECTION_STATE_CONFIGURATION},
    {kDeviceIpCheck, WIFI_CONNECTION_STATE_CONFIGURATION},
    {kDeviceSecondaries, WIFI_CONNECTION_STATE_CONFIGURATION},
    {kDeviceActivated, WIFI_CONNECTION_STATE_CONNECTED},
    {kDeviceFailed, WIFI_CONNECTION_STATE_FAILURE},
    // Unknown, unmanaged, unavailable, disconnected and deactivating: disconnected.
};

// An access point's security, from the key management it offers; the first row whose
// flags carry one of its bits decides, and the pairwise ciphers of those same flags give
// the encryption (CCMP and TKIP: TKIP/AES mixed; CCMP: AES; TKIP: TKIP; neither: none).
// Without any row, the privacy bit means WEP; without it the network is open.
//
// | flags    | key management              | security |
// |----------|-----------------------------|----------|
// | RsnFlags | PSK                         | WPA2-PSK |
// | RsnFlags | SAE (WPA3-Personal)         | WPA2-PSK |
// | WpaFlags | PSK                         | WPA-PSK  |
// | RsnFlags | 802.1X, EAP Suite-B 192     | EAP      |
// | WpaFlags | 802.1X                      | EAP      |
// | RsnFlags | OWE, OWE transition         | none     |
// | Flags    | privacy bit only            | WEP      |
//
// SAE counts as WPA2-PSK: a WPA3-Personal network, like a WPA2-PSK one, lets in only who
// knows its password, with a stronger handshake. The platform's list stops at WPA2-PSK, and
// reporting SAE as anything weaker would make a TV on the better network ask about every
// device.
// OWE counts as an open network: Enhanced Open encrypts the air but lets anyone join, so a
// device on it proves nothing about its owner. Its encryption (AES) is still reported.
enum class FlagSet { kWpa, kRsn };
struct KeyManagementRow {
    FlagSet flags;
    uint32_t any_of;
    connection_wifi_security_type_e security;
};
constexpr KeyManagementRow kKeyManagement[] = {
    {FlagSet::kRsn, kKeyMgmtPsk, CONNECTION_WIFI_SECURITY_TYPE_WPA2_PSK},
    {FlagSet::kRsn, kKeyMgmtSae, CONNECTION_WIFI_SECURITY_TYPE_WPA2_PSK},
    {FlagSet::kWpa, kKeyMgmtPsk, CONNECTION_WIFI_SECURITY_TYPE_WPA_PSK},
    {FlagSet::kRsn, kKeyMgmt8021x | kKeyMgmtEapSuiteB192, CONNECTION_WIFI_SECURITY_TYPE_EAP},
    {FlagSet::kWpa, kKeyMgmt8021x, CONNECTION_WIFI_SECURITY_TYPE_EAP},
    {FlagSet::kRsn, kKeyMgmtOwe | kKeyMgmtOweTm, CONNECTION_WIFI_SECURITY_TYPE_NONE},
};

connection_wifi_encryption_type_e PairwiseCiphers(uint32_t flags) {
    const bool ccmp = (flags & kPairCcmp) != 0;
    const bool tkip = (flags & kPairTkip) != 0;
    if (ccmp && tkip)
        return CONNECTION_WIFI_ENCRYPTION_TYPE_TKIP_AES_MIXED;
    if (ccmp)
        return CONNECTION_WIFI_ENCRYPTION_TYPE_AES;
    if (tkip)
        return CONNECTION_WIFI_ENCRYPTION_TYPE_TKIP;
    return CONNECTION_WIFI_ENCRYPTION_TYPE_NONE;
}

}  // namespace

connection_type_e ConnectionTypeFromNm(const char* nm_type) {
    if (nm_type == nullptr)
        return CONNECTION_TYPE_DISCONNECTED;
    for (const ConnectionTypeRow& row : kConnectionTypes) {
        if (std::strcmp(row.nm_type, nm_type) == 0)
            return row.type;
    }
    return CONNECTION_TYPE_DISCONNECTED;
}

wifi_connection_state_e WifiStateFromDevice(uint32_t device_state) {
    for (const DeviceStateRow& row : kDeviceStates) {
        if (row.device_state == device_state)
            return row.state;
    }
    return WIFI_CONNECTION_STATE_DISCONNECTED;
}

WifiSecurity WifiSecurityFromFlags(uint32_t flags, uint32_t wpa_flags, uint32_t rsn_flags) {
    for (const KeyManagementRow& row : kKeyManagement) {
        const uint32_t set = row.flags == FlagSet::kRsn ? rsn_flags : wpa_flags;
        if ((set & row.any_of) != 0)
            return WifiSecurity{row.security, PairwiseCiphers(set)};
    }
    if ((flags & kApPrivacy) != 0)
        return WifiSecurity{CONNECTION_WIFI_SECURITY_TYPE_WEP, CONNECTION_WIFI_ENCRYPTION_TYPE_WEP};
    return WifiSecurity{};
}

}  // namespace host::network
