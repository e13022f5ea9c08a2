// The host's network room: NetworkManager's flags, states and kinds in the platform's
// words, and SSIDs as safe text.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "net_connection.h"
#include "network/nm_mapping.h"
#include "network/ssid_text.h"
#include "wifi.h"

namespace {

using host::network::WifiSecurityFromFlags;

constexpr connection_wifi_security_type_e kOpen = CONNECTION_WIFI_SECURITY_TYPE_NONE;
constexpr connection_wifi_security_type_e kWep = CONNECTION_WIFI_SECURITY_TYPE_WEP;
constexpr connection_wifi_security_type_e kWpa = CONNECTION_WIFI_SECURITY_TYPE_WPA_PSK;
constexpr connection_wifi_security_type_e kWpa2 = CONNECTION_WIFI_SECURITY_TYPE_WPA2_PSK;
constexpr connection_wifi_security_type_e kEap = CONNECTION_WIFI_SECURITY_TYPE_EAP;
constexpr connection_wifi_encryption_type_e kNone = CONNECTION_WIFI_ENCRYPTION_TYPE_NONE;
constexpr connection_wifi_encryption_type_e kWepKey = CONNECTION_WIFI_ENCRYPTION_TYPE_WEP;
constexpr connection_wifi_encryption_type_e kTkip = CONNECTION_WIFI_ENCRYPTION_TYPE_TKIP;
constexpr connection_wifi_encryption_type_e kAes = CONNECTION_WIFI_ENCRYPTION_TYPE_AES;
constexpr connection_wifi_encryption_type_e kMixed = CONNECTION_WIFI_ENCRYPTION_TYPE_TKIP_AES_MIXED;

// NetworkManager's NM80211ApSecurityFlags, written out as its documentation gives them.
constexpr uint32_t kPsk = 0x100, k8021x = 0x200, kSae = 0x400, kOwe = 0x800, kOweTm = 0x1000,
                   kSuiteB = 0x2000;
constexpr uint32_t kPairTkip = 0x4, kPairCcmp = 0x8, kGroupTkip = 0x40, kGroupCcmp = 0x80;

TEST(HostNetworkMapping, AccessPointFlagsGiveSecurityAndEncryption) {
    struct Row {
        const char* network;
        uint32_t flags, wpa, rsn;
        connection_wifi_security_type_e security;
        connection_wifi_encryption_type_e encryption;
    };
    const Row rows[] = {
        {"open", 0, 0, 0, kOpen, kNone},
        {"WEP: privacy bit only", 0x1, 0, 0, kWep, kWepKey},
        {"WPA2-PSK, CCMP", 0x1, 0, kPsk | kPairCcmp | kGroupCcmp, kWpa2, kAes},
        {"WPA2-PSK, TKIP", 0x1, 0, kPsk | kPairTkip | kGroupTkip, kWpa2, kTkip},
        {"WPA2-PSK, CCMP and TKIP", 0x1, 0, kPsk | kPairCcmp | kPairTkip | kGroupTkip, kWpa2,
         kMixed},
        {"WPA-PSK, TKIP", 0x1, kPsk | kPairTkip | kGroupTkip, 0, kWpa, kTkip},
        {"WPA-PSK, CCMP", 0x1, kPsk | kPairCcmp | kGroupCcmp, 0, kWpa, kAes},
        {"WPA/WPA2 mixed: the RSN side", 0x1, kPsk | kPairTkip | kGroupTkip,
         kPsk | kPairCcmp | kGroupTkip, kWpa2, kAes},
        {"WPA2-PSK without a pairwise cipher", 0x1, 0, kPsk | kGroupCcmp, kWpa2, kNone},
        {"WPA3-SAE counts as WPA2-PSK", 0x1, 0, kSae | kPairCcmp | kGroupCcmp, kWpa2, kAes},
        {"WPA2/WPA3 transition", 0x1, 0, kPsk | kSae | kPairCcmp | kGroupCcmp, kWpa2, kAes},
        {"WPA2-Enterprise", 0x1, 0, k8021x | kPairCcmp | kGroupCcmp, kEap, kAes},
        {"WPA-Enterprise", 0x1, k8021x | kPairTkip | kGroupTkip, 0, kEap, kTkip},
        {"WPA3-Enterprise 192-bit", 0x1, 0, kSuiteB | kPairCcmp, kEap, kAes},
        {"OWE is an open network, encrypted", 0x1, 0, kOwe | kPairCcmp | kGroupCcmp, kOpen, kAes},
        {"OWE transition, the open side", 0, 0, kOweTm, kOpen, kNone},
        {"PSK on one side wins over the privacy bit", 0x1, kPsk | kPairCcmp, 0, kWpa, kAes},
    };
    for (const Row& row : rows) {
        host::network::WifiSecurity got = WifiSecurityFromFlags(row.flags, row.wpa, row.rsn);
        EXPECT_EQ(row.security, got.security) << row.network;
        EXPECT_EQ(row.encryption, got.encryption) << row.network;
    }
}

TEST(HostNetworkMapping, ConnectionKindsDeviceStatesAndSsids) {
    const std::vector<std::pair<const char*, connection_type_e>> kinds = {
        {"802-11-wireless", CONNECTION_TYPE_WIFI},
        {"802-3-ethernet", CONNECTION_TYPE_ETHERNET},
        {"bluetooth", CONNECTION_TYPE_BT},
        {"gsm", CONNECTION_TYPE_CELLULAR},
        {"cdma", CONNECTION_TYPE_CELLULAR},
        {"pppoe", CONNECTION_TYPE_ETHERNET},
        {"", CONNECTION_TYPE_DISCONNECTED},
        {"vpn", CONNECTION_TYPE_DISCONNECTED},
        {"802-11-WIRELESS", CONNECTION_TYPE_DISCONNECTED},
    };
    for (const auto& [nm_type, type] : kinds)
        EXPECT_EQ(type, host::network::ConnectionTypeFromNm(nm_type)) << nm_type;
    EXPECT_EQ(CONNECTION_TYPE_DISCONNECTED, host::network::ConnectionTypeFromNm(nullptr));

    // NMDeviceState: only activated is connected.
    const std::vector<std::pair<uint32_t, wifi_connection_state_e>> states = {
        {0, WIFI_CONNECTION_STATE_DISCONNECTED},   {10, WIFI_CONNECTION_STATE_DISCONNECTED},
        {20, WIFI_CONNECTION_STATE_DISCONNECTED},  {30, WIFI_CONNECTION_STATE_DISCONNECTED},
        {40, WIFI_CONNECTION_STATE_ASSOCIATION},   {50, WIFI_CONNECTION_STATE_ASSOCIATION},
        {60, WIFI_CONNECTION_STATE_ASSOCIATION},   {70, WIFI_CONNECTION_STATE_CONFIGURATION},
        {80, WIFI_CONNECTION_STATE_CONFIGURATION}, {90, WIFI_CONNECTION_STATE_CONFIGURATION},
        {100, WIFI_CONNECTION_STATE_CONNECTED},    {110, WIFI_CONNECTION_STATE_DISCONNECTED},
        {120, WIFI_CONNECTION_STATE_FAILURE},      {101, WIFI_CONNECTION_STATE_DISCONNECTED},
    };
    for (const auto& [device_state, state] : states)
        EXPECT_EQ(state, host::network::WifiStateFromDevice(device_state)) << device_state;

    const std::vector<std::pair<std::string, std::string>> ssids = {
        {"Home", "Home"},
        {"Caf\xc3\xa9 \xe2\x98\x95", "Caf\xc3\xa9 \xe2\x98\x95"},  // UTF-8 stays as it is
        {"Caf\xe9", "Caf\\xe9"},                                   // Latin-1
        {"a\\b\xff", "a\\\\b\\xff"},                               // escaped: the backslash too
        {"a\\b", "a\\\\b"},  // else "a\x41" and "aA" would read alike
        {std::string("a\0b", 3), "a\\x00b"},
        {"tab\there\n", "tab\\x09here\\x0a"},
        {"", ""},
    };
    for (const auto& [bytes, text] : ssids)
        EXPECT_EQ(text, host::network::SsidText(std::vector<uint8_t>(bytes.begin(), bytes.end())));
}

}  // namespace
