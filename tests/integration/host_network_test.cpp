// The host's network room: NetworkManager's security flags in the platform's
// words, SSIDs as safe text, and the Wi-Fi state callback following python3-dbusmock's
// NetworkManager on a private bus, delivered on the default main context.
#include <gio/gio.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "host_test_support.h"
#include "net_connection.h"
#include "network/nm_mapping.h"
#include "network/ssid_text.h"
#include "wifi.h"

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
        {"WPA2/WPA3 transition", 0x1, 0, kPsk | kSae | kPairCcmp | kGroupCcmp, 3, 3},
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

constexpr const char* kNm = "org.freedesktop.NetworkManager";
constexpr const char* kNmPath = "/org/freedesktop/NetworkManager";
constexpr const char* kDevice = "org.freedesktop.NetworkManager.Device";
constexpr const char* kWireless = "org.freedesktop.NetworkManager.Device.Wireless";
constexpr const char* kAccessPoint = "org.freedesktop.NetworkManager.AccessPoint";

// python3-dbusmock's NetworkManager on the private bus, with the properties a client reads
// that its template lacks, and a Wi-Fi device wlan0.
class MockNetworkManager {
public:
    MockNetworkManager() {
        GError* error = nullptr;
        const char* argv[] = {"/usr/bin/python3", "-m",   "dbusmock", "--system", "--template",
                              "networkmanager",   nullptr};
        const auto quiet =
            static_cast<GSpawnFlags>(G_SPAWN_STDOUT_TO_DEV_NULL | G_SPAWN_STDERR_TO_DEV_NULL);
        if (!g_spawn_async(nullptr, const_cast<char**>(argv), nullptr, quiet, nullptr, nullptr,
                           &pid_, &error) ||
            !(bus_ = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &error))) {
            ADD_FAILURE() << error->message;
            g_clear_error(&error);
            return;
        }
        bool owned = false;
        guint watch = g_bus_watch_name_on_connection(
            bus_, kNm, G_BUS_NAME_WATCHER_FLAGS_NONE,
            [](GDBusConnection*, const gchar*, const gchar*, gpointer flag) {
                *static_cast<bool*>(flag) = true;
            },
            nullptr, &owned, nullptr);
        ready_ = host_test::RunLoopUntil([&] { return owned; }, 30000);
        g_bus_unwatch_name(watch);
        if (!ready_)
            return;
        Mock(kNmPath, "AddProperty",
             g_variant_new("(ssv)", kNm, "PrimaryConnection", g_variant_new_object_path("/")));
        Mock(kNmPath, "AddProperty",
             g_variant_new("(ssv)", kNm, "PrimaryConnectionType", g_variant_new_string("")));
        wifi_ = Mock(kNmPath, "AddWiFiDevice", g_variant_new("(ssi)", "wlan0", "wlan0", 30));
        Mock(
            wifi_, "AddProperty",
            g_variant_new("(ssv)", kWireless, "ActiveAccessPoint", g_variant_new_object_path("/")));
    }
    ~MockNetworkManager() {
        if (bus_ != nullptr)
            g_object_unref(bus_);
        if (pid_ > 0 && kill(pid_, SIGTERM) == 0)
            waitpid(pid_, nullptr, 0);
    }
    // Calls a method of the mock; the text it returned, if any.
    std::string Mock(const std::string& path, const char* method, GVariant* args) {
        GError* error = nullptr;
        GVariant* reply = g_dbus_connection_call_sync(
            bus_, kNm, path.c_str(), "org.freedesktop.DBus.Mock", method, args, nullptr,
            G_DBUS_CALL_FLAGS_NONE, 10000, nullptr, &error);
        EXPECT_NE(reply, nullptr) << method << ": " << (error ? error->message : "");
        g_clear_error(&error);
        const gchar* text = "";
        if (reply != nullptr && g_variant_is_of_type(reply, G_VARIANT_TYPE("(s)")))
            g_variant_get(reply, "(&s)", &text);
        const std::string copy = text;
        if (reply != nullptr)
            g_variant_unref(reply);
        return copy;
    }
    void Set(const std::string& path, const char* interface, const char* name, GVariant* value) {
        Mock(kNmPath, "SetProperty", g_variant_new("(sssv)", path.c_str(), interface, name, value));
    }
    // wlan0 on an RSN access point "Home" with these flags, as its primary connection.
    void Join(uint32_t rsn_flags) {
        const std::string ap =
            Mock(kNmPath, "AddAccessPoint",
                 g_variant_new("(ssssuuuyu)", wifi_.c_str(), "home", "Home", "00:11:22:33:44:55",
                               2u, 2437u, 54000u, 80, 0x100u));
        const std::string connection =
            Mock(kNmPath, "AddWiFiConnection",
                 g_variant_new("(ssss)", wifi_.c_str(), "home", "Home", ""));
        Set(ap, kAccessPoint, "RsnFlags", g_variant_new_uint32(rsn_flags));
        Set(ap, kAccessPoint, "WpaFlags", g_variant_new_uint32(0));
        Set(wifi_, kWireless, "ActiveAccessPoint", g_variant_new_object_path(ap.c_str()));
        Set(kNmPath, kNm, "PrimaryConnection",
            g_variant_new_object_path("/org/freedesktop/NetworkManager/ActiveConnection/home"));
        Set(kNmPath, kNm, "PrimaryConnectionType", g_variant_new_string("802-11-wireless"));
        const char* devices[] = {wifi_.c_str()};
        Mock(kNmPath, "AddActiveConnection",
             g_variant_new("(@assssu)", g_variant_new_strv(devices, 1), connection.c_str(),
                           ap.c_str(), "home", 2u));
    }
    bool ready_ = false;
    std::string wifi_;

private:
    GPid pid_ = 0;
    GDBusConnection* bus_ = nullptr;
};

// Each delivery as "state ssid", the ssid "-" without an access point; marked when it came
// off the main thread.
void Record(wifi_connection_state_e state, wifi_ap_h ap, void* data) {
    static GThread* main_thread = g_thread_self();
    char* essid = nullptr;
    static_cast<std::vector<std::string>*>(data)->push_back(
        std::to_string(state) + " " +
        (wifi_ap_get_essid(ap, &essid) == WIFI_ERROR_NONE ? essid : "-") +
        (g_thread_self() == main_thread ? "" : " off the main loop"));
    g_free(essid);
}

// "type/security/encryption" of a new connection handle, or "error <code>".
std::string Connection() {
    connection_h handle = nullptr;
    int ret = connection_create(&handle);
    if (ret != CONNECTION_ERROR_NONE)
        return "error " + std::to_string(ret);
    connection_type_e type = CONNECTION_TYPE_DISCONNECTED;
    connection_profile_h profile = nullptr;
    connection_wifi_security_type_e security;
    connection_wifi_encryption_type_e encryption;
    connection_get_type(handle, &type);
    std::string text = std::to_string(type);
    if (connection_get_current_profile(handle, &profile) == CONNECTION_ERROR_NONE &&
        connection_profile_get_wifi_security_type(profile, &security) == CONNECTION_ERROR_NONE &&
        connection_profile_get_wifi_encryption_type(profile, &encryption) == CONNECTION_ERROR_NONE)
        text += "/" + std::to_string(security) + "/" + std::to_string(encryption);
    EXPECT_EQ(CONNECTION_ERROR_NONE, connection_destroy(handle));
    return text;
}

TEST(HostNetwork, WifiStatesReachTheMainLoopAndStopWithTheRegistration) {
    host_test::TempRoot root;
    using Seen = std::vector<std::string>;
    Seen first, second;
    // A bus without NetworkManager yet: Wi-Fi initialises, connections fail.
    host_test::PrivateBus bus;
    ASSERT_FALSE(bus.address().empty());
    ASSERT_EQ(WIFI_ERROR_NONE, wifi_initialize());
    ASSERT_EQ(WIFI_ERROR_NONE, wifi_set_connection_state_changed_cb(Record, &first));
    EXPECT_EQ("error " + std::to_string(CONNECTION_ERROR_OPERATION_FAILED), Connection());
    MockNetworkManager nm;
    ASSERT_TRUE(nm.ready_);
    // Associating, then configuring, then activated: each is one delivery, in order.
    nm.Set(nm.wifi_, kDevice, "State", g_variant_new_uint32(50));
    ASSERT_TRUE(host_test::RunLoopUntil([&] { return first.size() == 1; }));
    nm.Set(nm.wifi_, kDevice, "State", g_variant_new_uint32(70));
    ASSERT_TRUE(host_test::RunLoopUntil([&] { return first.size() == 2; }));
    nm.Join(kPsk | kPairCcmp | kGroupCcmp);
    // The device may turn activated before the access point's facts are read: the layer
    // then reports "connected" once more when they arrive, so the daemon checks again.
    EXPECT_TRUE(host_test::RunLoopUntil([&] { return Connection() == "1/3/3"; }))
        << Connection();  // Wi-Fi, WPA2-PSK, AES
    ASSERT_TRUE(host_test::RunLoopUntil([&] { return first.back() == "3 Home"; }));
    // An Ethernet cable beside the Wi-Fi: still connected, but delivered again so that the
    // network is judged anew.
    const size_t count = first.size();
    nm.Set(kNmPath, kNm, "PrimaryConnectionType", g_variant_new_string("802-3-ethernet"));
    EXPECT_TRUE(
        host_test::RunLoopUntil([&] { return Connection() == "3" && first.size() > count; }));
    nm.Set(kNmPath, kNm, "PrimaryConnectionType", g_variant_new_string("802-11-wireless"));
    EXPECT_TRUE(host_test::RunLoopUntil([&] { return Connection() == "1/3/3"; }));
    Seen expected = {"1 -", "2 -"};
    expected.resize(first.size(), "3 Home");
    EXPECT_EQ(expected, first);
    // Registered anew: the first callback hears nothing more, the second one counts
    // changes from its own start.
    ASSERT_EQ(WIFI_ERROR_NONE, wifi_unset_connection_state_changed_cb());
    ASSERT_EQ(WIFI_ERROR_NONE, wifi_set_connection_state_changed_cb(Record, &second));
    const Seen first_seen = first;
    nm.Mock(kNmPath, "SetDeviceDisconnected", g_variant_new("(s)", nm.wifi_.c_str()));
    ASSERT_TRUE(host_test::RunLoopUntil([&] { return second.size() == 1; }));
    // A Wi-Fi primary connection without its device is none.
    EXPECT_TRUE(host_test::RunLoopUntil([&] { return Connection() == "0"; })) << Connection();
    nm.Set(nm.wifi_, kDevice, "State", g_variant_new_uint32(100));
    ASSERT_TRUE(host_test::RunLoopUntil([&] { return second.size() == 2; }));
    EXPECT_EQ(second[0].substr(0, 2), "0 ");
    EXPECT_EQ(second[1].substr(0, 2), "3 ");
    EXPECT_EQ(first_seen, first);
    // After deinitialising, connections still read NetworkManager on their own.
    EXPECT_EQ(WIFI_ERROR_NONE, wifi_deinitialize());
    EXPECT_EQ("1/3/3", Connection());
}

}  // namespace
