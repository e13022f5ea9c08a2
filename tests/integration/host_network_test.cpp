// The host's network room: NetworkManager's flags, states and kinds in the platform's
// words, SSIDs as safe text, and the Wi-Fi state callback following python3-dbusmock's
// NetworkManager on a private bus, delivered on the default main context.
#include <gio/gio.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "host_test_support.h"
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

TEST(HostNetwork, WithoutASystemBusEverythingFailsWithThePlatformsCodes) {
    host_test::TempRoot root;
    setenv("DBUS_SYSTEM_BUS_ADDRESS", ("unix:path=" + root.path() + "/no-bus").c_str(), 1);
    EXPECT_EQ(WIFI_ERROR_OPERATION_FAILED, wifi_initialize());
    EXPECT_EQ(WIFI_ERROR_OPERATION_FAILED, wifi_deinitialize());
    EXPECT_EQ(WIFI_ERROR_INVALID_PARAMETER, wifi_set_connection_state_changed_cb(nullptr, nullptr));
    EXPECT_EQ(WIFI_ERROR_OPERATION_FAILED,
              wifi_set_connection_state_changed_cb([](wifi_connection_state_e, wifi_ap_h, void*) {},
                                                   nullptr));
    char* essid = reinterpret_cast<char*>(1);
    EXPECT_EQ(WIFI_ERROR_INVALID_PARAMETER, wifi_ap_get_essid(nullptr, &essid));
    EXPECT_EQ(nullptr, essid);

    connection_h handle = reinterpret_cast<connection_h>(1);
    EXPECT_EQ(CONNECTION_ERROR_OPERATION_FAILED, connection_create(&handle));
    EXPECT_EQ(nullptr, handle);
    EXPECT_EQ(CONNECTION_ERROR_INVALID_PARAMETER, connection_create(nullptr));
    EXPECT_EQ(CONNECTION_ERROR_INVALID_PARAMETER, connection_destroy(nullptr));
}

void Drop(GVariant* value) {
    if (value != nullptr)
        g_variant_unref(value);
}

// python3-dbusmock's NetworkManager on the private bus, with the properties a client reads
// that its template lacks.
class MockNetworkManager {
public:
    explicit MockNetworkManager(const std::string& address) {
        GError* error = nullptr;
        const char* argv[] = {"/usr/bin/python3", "-m",   "dbusmock", "--system", "--template",
                              "networkmanager",   nullptr};
        if (!g_spawn_async(
                nullptr, const_cast<char**>(argv), nullptr,
                static_cast<GSpawnFlags>(G_SPAWN_STDOUT_TO_DEV_NULL | G_SPAWN_STDERR_TO_DEV_NULL),
                nullptr, nullptr, &pid_, &error)) {
            ADD_FAILURE() << error->message;
            g_clear_error(&error);
            return;
        }
        bus_ = g_dbus_connection_new_for_address_sync(
            address.c_str(),
            static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                              G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
            nullptr, nullptr, &error);
        if (bus_ == nullptr) {
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
        AddProperty(kNmPath, kNm, "PrimaryConnection", g_variant_new_object_path("/"));
        AddProperty(kNmPath, kNm, "PrimaryConnectionType", g_variant_new_string(""));
        wifi_ = Text(Mock(kNmPath, "AddWiFiDevice", g_variant_new("(ssi)", "wlan0", "wlan0", 30)));
        AddProperty(wifi_, kWireless, "ActiveAccessPoint", g_variant_new_object_path("/"));
    }
    ~MockNetworkManager() {
        if (bus_ != nullptr)
            g_object_unref(bus_);
        if (pid_ > 0) {
            kill(pid_, SIGTERM);
            waitpid(pid_, nullptr, 0);
        }
    }
    bool ready() const { return ready_; }
    const std::string& wifi() const { return wifi_; }

    GVariant* Mock(const std::string& path, const char* method, GVariant* args) {
        GError* error = nullptr;
        GVariant* reply = g_dbus_connection_call_sync(
            bus_, kNm, path.c_str(), "org.freedesktop.DBus.Mock", method, args, nullptr,
            G_DBUS_CALL_FLAGS_NONE, 10000, nullptr, &error);
        EXPECT_NE(reply, nullptr) << method << ": " << (error ? error->message : "");
        g_clear_error(&error);
        return reply;
    }
    void Set(const std::string& path, const char* interface, const char* name, GVariant* value) {
        Drop(Mock(kNmPath, "SetProperty",
                  g_variant_new("(sssv)", path.c_str(), interface, name, value)));
    }
    // wlan0 on an RSN access point "Home" with these flags, as its primary connection.
    void Join(uint32_t rsn_flags) {
        const std::string ap =
            Text(Mock(kNmPath, "AddAccessPoint",
                      g_variant_new("(ssssuuuyu)", wifi_.c_str(), "home", "Home",
                                    "00:11:22:33:44:55", 2u, 2437u, 54000u, 80, 0x100u)));
        const std::string connection =
            Text(Mock(kNmPath, "AddWiFiConnection",
                      g_variant_new("(ssss)", wifi_.c_str(), "home", "Home", "")));
        Set(ap, kAccessPoint, "RsnFlags", g_variant_new_uint32(rsn_flags));
        Set(ap, kAccessPoint, "WpaFlags", g_variant_new_uint32(0));
        Set(wifi_, kWireless, "ActiveAccessPoint", g_variant_new_object_path(ap.c_str()));
        Set(kNmPath, kNm, "PrimaryConnection",
            g_variant_new_object_path("/org/freedesktop/NetworkManager/ActiveConnection/home"));
        Set(kNmPath, kNm, "PrimaryConnectionType", g_variant_new_string("802-11-wireless"));
        const char* devices[] = {wifi_.c_str()};
        Drop(Mock(kNmPath, "AddActiveConnection",
                  g_variant_new("(@assssu)", g_variant_new_strv(devices, 1), connection.c_str(),
                                ap.c_str(), "home", 2u)));
    }

    static constexpr const char* kNm = "org.freedesktop.NetworkManager";
    static constexpr const char* kNmPath = "/org/freedesktop/NetworkManager";
    static constexpr const char* kWireless = "org.freedesktop.NetworkManager.Device.Wireless";
    static constexpr const char* kDevice = "org.freedesktop.NetworkManager.Device";
    static constexpr const char* kAccessPoint = "org.freedesktop.NetworkManager.AccessPoint";

private:
    static std::string Text(GVariant* reply) {
        if (reply == nullptr)
            return std::string();
        const gchar* text = nullptr;
        g_variant_get(reply, "(&s)", &text);
        std::string copy = text;
        g_variant_unref(reply);
        return copy;
    }
    void AddProperty(const std::string& path, const char* interface, const char* name,
                     GVariant* value) {
        Drop(Mock(path, "AddProperty", g_variant_new("(ssv)", interface, name, value)));
    }

    GPid pid_ = 0;
    GDBusConnection* bus_ = nullptr;
    bool ready_ = false;
    std::string wifi_;
};

struct Deliveries {
    std::vector<wifi_connection_state_e> states;
    std::vector<std::string> ssids;  // "-" when there was no access point
    bool all_on_main_thread = true;
    GThread* main_thread = g_thread_self();
};

void Record(wifi_connection_state_e state, wifi_ap_h ap, void* data) {
    auto* deliveries = static_cast<Deliveries*>(data);
    deliveries->states.push_back(state);
    char* essid = nullptr;
    deliveries->ssids.push_back(wifi_ap_get_essid(ap, &essid) == WIFI_ERROR_NONE ? essid : "-");
    g_free(essid);
    deliveries->all_on_main_thread &= g_thread_self() == deliveries->main_thread;
}

// "type/security/encryption" of a new connection handle, or "error <code>".
std::string Connection() {
    connection_h handle = nullptr;
    int ret = connection_create(&handle);
    if (ret != CONNECTION_ERROR_NONE)
        return "error " + std::to_string(ret);
    connection_type_e type = CONNECTION_TYPE_DISCONNECTED;
    connection_profile_h profile = nullptr;
    connection_wifi_security_type_e security = kOpen;
    connection_wifi_encryption_type_e encryption = kNone;
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
    host_test::PrivateBus bus(root.path());
    ASSERT_FALSE(bus.address().empty());

    // NetworkManager is not there yet: Wi-Fi still initialises, connections fail.
    ASSERT_EQ(WIFI_ERROR_NONE, wifi_initialize());
    Deliveries first;
    ASSERT_EQ(WIFI_ERROR_NONE, wifi_set_connection_state_changed_cb(Record, &first));
    EXPECT_EQ("error " + std::to_string(CONNECTION_ERROR_OPERATION_FAILED), Connection());

    MockNetworkManager nm(bus.address());
    ASSERT_TRUE(nm.ready());
    // Associating, then configuring, then activated: each is one delivery, in order.
    nm.Set(nm.wifi(), MockNetworkManager::kDevice, "State", g_variant_new_uint32(50));
    ASSERT_TRUE(host_test::RunLoopUntil([&] { return first.states.size() == 1; }));
    nm.Set(nm.wifi(), MockNetworkManager::kDevice, "State", g_variant_new_uint32(70));
    ASSERT_TRUE(host_test::RunLoopUntil([&] { return first.states.size() == 2; }));
    nm.Join(kPsk | kPairCcmp | kGroupCcmp);
    // The device may turn activated before the access point's facts are read: the layer
    // then reports "connected" once more when they arrive, so the daemon checks again.
    EXPECT_TRUE(host_test::RunLoopUntil([&] { return Connection() == "1/3/3"; }))
        << Connection();  // Wi-Fi, WPA2-PSK, AES
    ASSERT_GE(first.states.size(), 3u);
    std::vector<wifi_connection_state_e> expected = {WIFI_CONNECTION_STATE_ASSOCIATION,
                                                     WIFI_CONNECTION_STATE_CONFIGURATION};
    expected.resize(first.states.size(), WIFI_CONNECTION_STATE_CONNECTED);
    EXPECT_EQ(expected, first.states);
    EXPECT_EQ("Home", first.ssids.back());
    EXPECT_TRUE(first.all_on_main_thread);
    const size_t first_count = first.states.size();

    // Registered anew: the first callback hears nothing more, the second one counts
    // changes from its own start.
    ASSERT_EQ(WIFI_ERROR_NONE, wifi_unset_connection_state_changed_cb());
    Deliveries second;
    ASSERT_EQ(WIFI_ERROR_NONE, wifi_set_connection_state_changed_cb(Record, &second));
    Drop(nm.Mock(MockNetworkManager::kNmPath, "SetDeviceDisconnected",
                 g_variant_new("(s)", nm.wifi().c_str())));
    ASSERT_TRUE(host_test::RunLoopUntil([&] { return second.states.size() == 1; }));
    // A Wi-Fi primary connection without its device is none.
    EXPECT_TRUE(host_test::RunLoopUntil([&] { return Connection() == "0"; })) << Connection();
    nm.Set(nm.wifi(), MockNetworkManager::kDevice, "State", g_variant_new_uint32(100));
    ASSERT_TRUE(host_test::RunLoopUntil([&] { return second.states.size() == 2; }));
    EXPECT_EQ((std::vector<wifi_connection_state_e>{WIFI_CONNECTION_STATE_DISCONNECTED,
                                                    WIFI_CONNECTION_STATE_CONNECTED}),
              second.states);
    EXPECT_EQ(first_count, first.states.size());

    // After deinitialising, connections still read NetworkManager on their own.
    EXPECT_EQ(WIFI_ERROR_NONE, wifi_deinitialize());
    EXPECT_EQ(WIFI_ERROR_OPERATION_FAILED, wifi_deinitialize());
    EXPECT_EQ(WIFI_ERROR_OPERATION_FAILED, wifi_unset_connection_state_changed_cb());
    EXPECT_EQ("1/3/3", Connection());
}

}  // namespace
