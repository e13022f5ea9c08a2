// The host's network room: NetworkManager's security flags in the platform's words and SSIDs
// as safe text; the states on the bus are followed in test_network_security.py.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "network/nm_mapping.h"
#include "network/ssid_text.h"

namespace {

// NetworkManager's NM80211ApSecurityFlags, written out as its documentation gives them.
constexpr uint32_t kPsk = 0x100, k8021x = 0x200, kSae = 0x400, kOwe = 0x800;
constexpr uint32_t kPairTkip = 0x4, kPairCcmp = 0x8, kGroupTkip = 0x40, kGroupCcmp = 0x80;

TEST(HostNetworkMapping, AccessPointFlagsGiveSecurityAndEncryptionAndSsidsReadAsText) {
    // Security: 0 none, 1 WEP, 2 WPA-PSK, 3 WPA2-PSK, 4 EAP; encryption: 0 none, 1 WEP,
    // 2 TKIP, 3 AES, 4 TKIP and AES mixed.
    struct Row {
        const char* network;
        uint32_t flags, wpa, rsn;
        int security, encryption;
    };
    const Row rows[] = {
        {"open", 0, 0, 0, 0, 0},
        {"WEP: privacy bit only", 0x1, 0, 0, 1, 1},
        {"WPA2-PSK, CCMP", 0x1, 0, kPsk | kPairCcmp | kGroupCcmp, 3, 3},
        {"WPA2-PSK, TKIP", 0x1, 0, kPsk | kPairTkip | kGroupTkip, 3, 2},
        {"WPA2-PSK, CCMP and TKIP", 0x1, 0, kPsk | kPairCcmp | kPairTkip | kGroupTkip, 3, 4},
        {"WPA-PSK, TKIP", 0x1, kPsk | kPairTkip | kGroupTkip, 0, 2, 2},
        {"WPA/WPA2 mixed: the RSN side", 0x1, kPsk | kPairTkip, kPsk | kPairCcmp, 3, 3},
        {"WPA2-PSK without a pairwise cipher", 0x1, 0, kPsk | kGroupCcmp, 3, 0},
        {"WPA3-SAE counts as WPA2-PSK", 0x1, 0, kSae | kPairCcmp | kGroupCcmp, 3, 3},
        {"WPA2-Enterprise", 0x1, 0, k8021x | kPairCcmp | kGroupCcmp, 4, 3},
        {"WPA-Enterprise", 0x1, k8021x | kPairTkip | kGroupTkip, 0, 4, 2},
        {"OWE is an open network, encrypted", 0x1, 0, kOwe | kPairCcmp | kGroupCcmp, 0, 3},
        {"PSK on one side wins over the privacy bit", 0x1, kPsk | kPairCcmp, 0, 2, 3},
    };
    for (const Row& row : rows) {
        host::network::WifiSecurity got =
            host::network::WifiSecurityFromFlags(row.flags, row.wpa, row.rsn);
        EXPECT_EQ(row.security, got.security) << row.network;
        EXPECT_EQ(row.encryption, got.encryption) << row.network;
    }
    // SSIDs are shown as text: UTF-8 as it is, other bytes and the backslash escaped, else
    // "a\x41" and "aA" would read alike.
    for (const auto& [bytes, text] : std::vector<std::pair<std::string, std::string>>{
             {"Caf\xc3\xa9 \xe2\x98\x95", "Caf\xc3\xa9 \xe2\x98\x95"},
             {std::string("Caf\xe9 a\\b\0\n", 10), "Caf\\xe9 a\\\\b\\x00\\x0a"}})
        EXPECT_EQ(text, host::network::SsidText(std::vector<uint8_t>(bytes.begin(), bytes.end())));
}

}  // namespace
