// The host's system services: power, feature flags and voice from settings keys, standby
// events from the standby key (this or another process) and from logind's PrepareForSleep,
// and systemd's watchdog.
#include <gio/gio.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <memory>
#include <string>
#include <vector>

#include "aov.h"
#include "device_power.h"
#include "host_test_support.h"
#include "settings/settings_writer.h"
#include "smart_deadlock.h"
#include "system_info.h"
#include "vconf.h"

using host_test::RunLoopUntil;
using host_test::Tool;

namespace {

constexpr const char* kTessel = "com.corvane/featureconf/tessel_support";
constexpr const char* kTesselKey =
    "memory/quillon-host/feature/com.corvane/featureconf/tessel_support";
constexpr const char* kPowerStateKey = "memory/quillon-host/power_state";
constexpr const char* kVoiceKey = "memory/quillon-host/aov_active";
constexpr const char* kStandbyKey = "memory/quillon-host/standby";

struct Events {
    std::vector<int> types;
    std::vector<bool> on_main_thread;
};

GThread* main_thread = nullptr;

int RecordStandby(int type, void* data) {
    auto* events = static_cast<Events*>(data);
    events->types.push_back(type);
    events->on_main_thread.push_back(g_thread_self() == main_thread);
    return 1;
}

// A second function, so two subscriptions differ.
int RecordStandbyToo(int type, void* data) {
    return RecordStandby(type, data);
}

class HostPower : public ::testing::Test {
protected:
    void SetUp() override { main_thread = g_thread_self(); }
    void TearDown() override {
        device_power_unsubscribe_standby(RecordStandby);
        device_power_unsubscribe_standby(RecordStandbyToo);
    }

    // A private bus standing in for the system bus with logind on it.
    std::string StartBus() {
        bus_ = std::make_unique<host_test::PrivateBus>(root_);
        return bus_->address();
    }

    host_test::TempRoot temp_;
    std::string root_ = temp_.path();
    std::unique_ptr<host_test::PrivateBus> bus_;
};

// "result/flag" of a feature-flag read that starts from `before`.
std::string ReadFlag(const char* name, bool before) {
    bool flag = before;
    int result = system_info_get_custom_bool(name, &flag);
    return std::to_string(result) + "/" + std::to_string(flag);
}

TEST_F(HostPower, StateFlagsAndVoiceFollowTheirKeys) {
    // Nothing set: fully on, no feature, no voice.
    EXPECT_EQ(device_power_get_state(), DEVICE_POWER_STATE_NORMAL);
    EXPECT_EQ("0/0", ReadFlag(kTessel, true));
    EXPECT_FALSE(AOVSystemDataIsAOVActivated());

    ASSERT_EQ(vconf_set_int(kPowerStateKey, DEVICE_POWER_STATE_STANDBY), VCONF_OK);
    EXPECT_EQ(device_power_get_state(), DEVICE_POWER_STATE_STANDBY);
    // Our write must be on disk before another process's write of the same key follows it.
    ASSERT_TRUE(host::settings::Sync());
    Tool({"set-int", kPowerStateKey, "1"});
    EXPECT_EQ(device_power_get_state(), DEVICE_POWER_STATE_SCREEN_OFF);
    ASSERT_EQ(vconf_set_str(kPowerStateKey, "on"), VCONF_OK);
    EXPECT_EQ(device_power_get_state(), DEVICE_POWER_STATE_NORMAL);

    Tool({"set-bool", kTesselKey, "1"});
    EXPECT_EQ("0/1", ReadFlag(kTessel, false));
    // Each flag has its own key.
    EXPECT_EQ("0/0", ReadFlag("com.corvane/featureconf/other", true));
    ASSERT_EQ(vconf_set_int(kTesselKey, 0), VCONF_OK);
    EXPECT_EQ("0/0", ReadFlag(kTessel, true));
    ASSERT_EQ(vconf_set_int(kTesselKey, 7), VCONF_OK);
    EXPECT_EQ("0/1", ReadFlag(kTessel, false));
    // A text is no flag: a read error, the value left alone.
    ASSERT_EQ(vconf_set_str(kTesselKey, "yes"), VCONF_OK);
    EXPECT_EQ(std::to_string(SYSTEM_INFO_ERROR_IO_ERROR) + "/0", ReadFlag(kTessel, false));
    const std::string invalid = std::to_string(SYSTEM_INFO_ERROR_INVALID_PARAMETER) + "/0";
    EXPECT_EQ(invalid, ReadFlag(nullptr, false));
    EXPECT_EQ(invalid, ReadFlag("bad//name", false));
    EXPECT_EQ(system_info_get_custom_bool(kTessel, nullptr), SYSTEM_INFO_ERROR_INVALID_PARAMETER);

    Tool({"set-bool", kVoiceKey, "1"});
    EXPECT_TRUE(AOVSystemDataIsAOVActivated());
    ASSERT_EQ(vconf_set_bool(kVoiceKey, 0), VCONF_OK);
    EXPECT_FALSE(AOVSystemDataIsAOVActivated());
    ASSERT_EQ(vconf_set_int(kVoiceKey, 1), VCONF_OK);
    EXPECT_TRUE(AOVSystemDataIsAOVActivated());
}

TEST_F(HostPower, StandbyKeyWritesReachTheSubscribersOnTheMainLoop) {
    // No system bus here: the key alone must do.
    setenv("DBUS_SYSTEM_BUS_ADDRESS", ("unix:path=" + root_ + "/no-bus").c_str(), 1);
    Events first, second;
    EXPECT_EQ(device_power_subscribe_standby(nullptr, nullptr), DEVICE_ERROR_INVALID_PARAMETER);
    ASSERT_EQ(device_power_subscribe_standby(RecordStandby, &first), DEVICE_ERROR_NONE);
    ASSERT_EQ(device_power_subscribe_standby(RecordStandbyToo, &second), DEVICE_ERROR_NONE);

    // Another process: the tool's default type.
    Tool({"standby"});
    ASSERT_TRUE(RunLoopUntil([&] { return !second.types.empty(); }));
    EXPECT_EQ(first.types, std::vector<int>{DEVICE_POWER_STATE_STANDBY});
    EXPECT_EQ(second.types, std::vector<int>{DEVICE_POWER_STATE_STANDBY});
    EXPECT_EQ(first.on_main_thread, std::vector<bool>{true});

    // Every write is an event, the same value again included; the value is the type.
    Tool({"standby", "5"});
    ASSERT_TRUE(RunLoopUntil([&] { return second.types.size() == 2; }));
    Tool({"standby", "5"});
    ASSERT_TRUE(RunLoopUntil([&] { return second.types.size() == 3; }));
    EXPECT_EQ(first.types, (std::vector<int>{2, 5, 5}));

    // Subscribers run in subscription order, so once the second has run the first would
    // have too had it still been subscribed.
    EXPECT_EQ(device_power_unsubscribe_standby(RecordStandby), DEVICE_ERROR_NONE);
    EXPECT_EQ(device_power_unsubscribe_standby(RecordStandby), DEVICE_ERROR_INVALID_PARAMETER);
    ASSERT_EQ(vconf_set_int(kStandbyKey, 9), VCONF_OK);
    ASSERT_TRUE(RunLoopUntil([&] { return second.types.size() == 4; }));
    EXPECT_EQ(second.types.back(), 9);
    EXPECT_EQ(first.types.size(), 3u);

    // Subscribing the same function again replaces its data instead of adding a call.
    Events replaced;
    ASSERT_EQ(device_power_subscribe_standby(RecordStandbyToo, &replaced), DEVICE_ERROR_NONE);
    ASSERT_EQ(vconf_set_int(kStandbyKey, 3), VCONF_OK);
    ASSERT_TRUE(RunLoopUntil([&] { return !replaced.types.empty(); }));
    EXPECT_EQ(replaced.types, std::vector<int>{3});
    EXPECT_EQ(second.types.size(), 4u);
}

TEST_F(HostPower, LogindGoingToSleepIsAStandby) {
    const std::string address = StartBus();
    ASSERT_FALSE(address.empty());
    Events events;
    ASSERT_EQ(device_power_subscribe_standby(RecordStandby, &events), DEVICE_ERROR_NONE);

    GError* error = nullptr;
    GDBusConnection* system = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
    ASSERT_NE(system, nullptr) << (error ? error->message : "");
    auto connect = [&]() {
        GDBusConnection* connection = g_dbus_connection_new_for_address_sync(
            address.c_str(),
            static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                              G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
            nullptr, nullptr, &error);
        EXPECT_NE(connection, nullptr) << (error ? error->message : "");
        return connection;
    };
    auto round_trip = [&](GDBusConnection* connection) {
        GVariant* reply = g_dbus_connection_call_sync(
            connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
            "GetId", nullptr, nullptr, G_DBUS_CALL_FLAGS_NONE, 10000, nullptr, &error);
        ASSERT_NE(reply, nullptr) << (error ? error->message : "");
        g_variant_unref(reply);
    };
    // The bus handles each connection's messages in order: once it answered the sender and
    // then us, whatever it routed to us is queued on our main context, and draining the
    // context delivers it. This shows that a signal was not delivered without waiting.
    auto settle = [&](GDBusConnection* sender) {
        round_trip(sender);
        round_trip(system);
        while (g_main_context_iteration(nullptr, FALSE)) {
        }
    };
    // Our subscription's match rule is in force after a round trip on its connection.
    round_trip(system);

    // A stand-in for logind on its own connection.
    GDBusConnection* logind = connect();
    ASSERT_NE(logind, nullptr);
    GVariant* owned = g_dbus_connection_call_sync(
        logind, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
        "RequestName", g_variant_new("(su)", "org.freedesktop.login1", 4u), G_VARIANT_TYPE("(u)"),
        G_DBUS_CALL_FLAGS_NONE, 10000, nullptr, &error);
    ASSERT_NE(owned, nullptr) << (error ? error->message : "");
    g_variant_unref(owned);
    auto emit = [&](GDBusConnection* sender, gboolean start) {
        ASSERT_TRUE(g_dbus_connection_emit_signal(
            sender, nullptr, "/org/freedesktop/login1", "org.freedesktop.login1.Manager",
            "PrepareForSleep", g_variant_new("(b)", start), &error))
            << (error ? error->message : "");
    };

    // Waking up is no standby.
    emit(logind, FALSE);
    settle(logind);
    EXPECT_TRUE(events.types.empty());

    emit(logind, TRUE);
    ASSERT_TRUE(RunLoopUntil([&] { return !events.types.empty(); }));
    EXPECT_EQ(events.types, std::vector<int>{DEVICE_POWER_STATE_STANDBY});
    EXPECT_EQ(events.on_main_thread, std::vector<bool>{true});

    // The same signal from a sender that is not logind is no standby either.
    GDBusConnection* impostor = connect();
    ASSERT_NE(impostor, nullptr);
    emit(impostor, TRUE);
    settle(impostor);
    EXPECT_EQ(events.types.size(), 1u);

    // After unsubscribing, logind's next sleep reaches nobody.
    EXPECT_EQ(device_power_unsubscribe_standby(RecordStandby), DEVICE_ERROR_NONE);
    emit(logind, TRUE);
    settle(logind);
    EXPECT_EQ(events.types.size(), 1u);

    g_object_unref(impostor);
    g_object_unref(logind);
    g_object_unref(system);
}

// The ping reaching systemd is checked with the real daemon; here, no socket and a gone one.
TEST(HostWatchdog, PingsOnlyWhenStartedBySystemdAndReportsAGoneSocket) {
    unsetenv("NOTIFY_SOCKET");
    EXPECT_EQ(smart_deadlock_register_watchdog_service(60), 0);
    EXPECT_EQ(smart_deadlock_watchdog_notify(), 0);
    setenv("NOTIFY_SOCKET", "/nonexistent/quillon-notify", 1);
    EXPECT_LT(smart_deadlock_watchdog_notify(), 0);
    unsetenv("NOTIFY_SOCKET");
    EXPECT_EQ(smart_deadlock_unregister_watchdog_service(), 0);
}

}  // namespace
