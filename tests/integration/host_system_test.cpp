// The host's system services: power, feature flags and voice from settings keys, standby
// events from the standby key (this or another process) and from logind's PrepareForSleep,
// and systemd's watchdog.
#include <gio/gio.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>
#include <vector>

#include "aov.h"
#include "device_power.h"
#include "host_test_support.h"
#include "settings/settings_writer.h"
#include "smart_deadlock.h"
#include "system_info.h"
#include "vconf.h"

using host_test::Tool;
using test_common::RunUntil;

namespace {

constexpr const char* kTessel = "com.corvane/featureconf/tessel_support";
constexpr const char* kTesselKey =
    "memory/quillon-host/feature/com.corvane/featureconf/tessel_support";
constexpr const char* kVoiceKey = "memory/quillon-host/aov_active";
constexpr const char* kStandbyKey = "memory/quillon-host/standby";

// Each standby's type, negated when it was not delivered on the main thread.
using Events = std::vector<int>;
GThread* main_thread = nullptr;

int RecordStandby(int type, void* events) {
    static_cast<Events*>(events)->push_back(g_thread_self() == main_thread ? type : -type);
    return 1;
}

// "result/flag" of a feature-flag read that starts from `before`.
std::string ReadFlag(const char* name, bool before) {
    bool flag = before;
    int result = system_info_get_custom_bool(name, &flag);
    return std::to_string(result) + "/" + std::to_string(flag);
}

class HostPower : public ::testing::Test {
protected:
    void SetUp() override { main_thread = g_thread_self(); }
    void TearDown() override { device_power_unsubscribe_standby(RecordStandby); }
    host_test::TempRoot temp_;
};

TEST_F(HostPower, StateFlagsAndVoiceFollowTheirKeys) {
    // Nothing set: fully on, no feature, no voice.
    EXPECT_EQ(device_power_get_state(), DEVICE_POWER_STATE_NORMAL);
    EXPECT_EQ("0/0", ReadFlag(kTessel, true));
    EXPECT_FALSE(AOVSystemDataIsAOVActivated());
    ASSERT_EQ(vconf_set_int("memory/quillon-host/power_state", 2), VCONF_OK);
    EXPECT_EQ(device_power_get_state(), DEVICE_POWER_STATE_STANDBY);
    // Our write must be on disk before another process's write of the same key follows it.
    ASSERT_TRUE(host::settings::Sync());
    Tool({"set-int", "memory/quillon-host/power_state", "1"});
    EXPECT_EQ(device_power_get_state(), DEVICE_POWER_STATE_SCREEN_OFF);
    ASSERT_EQ(vconf_set_str("memory/quillon-host/power_state", "on"), VCONF_OK);
    EXPECT_EQ(device_power_get_state(), DEVICE_POWER_STATE_NORMAL);
    // A flag is a bool or an int; each flag has its own key; a text is a read error with the
    // value left alone.
    Tool({"set-bool", kTesselKey, "1"});
    EXPECT_EQ("0/1", ReadFlag(kTessel, false));
    EXPECT_EQ("0/0", ReadFlag("com.corvane/featureconf/other", true));
    ASSERT_EQ(vconf_set_int(kTesselKey, 0), VCONF_OK);
    EXPECT_EQ("0/0", ReadFlag(kTessel, true));
    ASSERT_EQ(vconf_set_int(kTesselKey, 7), VCONF_OK);
    EXPECT_EQ("0/1", ReadFlag(kTessel, false));
    ASSERT_EQ(vconf_set_str(kTesselKey, "yes"), VCONF_OK);
    EXPECT_EQ(std::to_string(SYSTEM_INFO_ERROR_IO_ERROR) + "/0", ReadFlag(kTessel, false));
    Tool({"set-bool", kVoiceKey, "1"});
    EXPECT_TRUE(AOVSystemDataIsAOVActivated());
    ASSERT_EQ(vconf_set_int(kVoiceKey, 1), VCONF_OK);
    EXPECT_TRUE(AOVSystemDataIsAOVActivated());
}

TEST_F(HostPower, StandbyComesFromItsKeyAndFromLogindGoingToSleep) {
    // No system bus yet: the key alone must do.
    setenv("DBUS_SYSTEM_BUS_ADDRESS", ("unix:path=" + temp_.path() + "/no-bus").c_str(), 1);
    // Subscribing a function again replaces its data: it is called once per event.
    Events replaced, events;
    ASSERT_EQ(device_power_subscribe_standby(RecordStandby, &replaced), DEVICE_ERROR_NONE);
    ASSERT_EQ(device_power_subscribe_standby(RecordStandby, &events), DEVICE_ERROR_NONE);
    // Another process, with the tool's default type, then this one; every write is an event,
    // the same value again included; the value is the type.
    for (const char* type : {"", "5", "5", "9"}) {
        const size_t count = events.size() + 1;
        if (*type == '9')
            ASSERT_EQ(vconf_set_int(kStandbyKey, 9), VCONF_OK);
        else
            Tool(*type ? std::vector<std::string>{"standby", type}
                       : std::vector<std::string>{"standby"});
        ASSERT_TRUE(RunUntil([&] { return events.size() == count; }));
    }
    EXPECT_EQ(events, (Events{2, 5, 5, 9}));
    EXPECT_TRUE(replaced.empty());
    EXPECT_EQ(device_power_unsubscribe_standby(RecordStandby), DEVICE_ERROR_NONE);
    EXPECT_EQ(device_power_unsubscribe_standby(RecordStandby), DEVICE_ERROR_INVALID_PARAMETER);
    ASSERT_TRUE(host::settings::Sync()) << "our write lands before the root is removed";
    events.clear();
    host_test::PrivateBus bus;
    ASSERT_FALSE(bus.address().empty());
    ASSERT_EQ(device_power_subscribe_standby(RecordStandby, &events), DEVICE_ERROR_NONE);
    GError* error = nullptr;
    g_autoptr(GDBusConnection) system = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
    ASSERT_NE(system, nullptr) << (error ? error->message : "");
    auto call = [&](GDBusConnection* connection, const char* method, GVariant* args) {
        g_autoptr(GVariant) reply = g_dbus_connection_call_sync(
            connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
            method, args, nullptr, G_DBUS_CALL_FLAGS_NONE, 10000, nullptr, &error);
        EXPECT_NE(reply, nullptr) << (error ? error->message : "");
    };
    // Our subscription's match rule is in force after a round trip on its connection.
    call(system, "GetId", nullptr);
    auto connect = [&] {
        return g_dbus_connection_new_for_address_sync(
            bus.address().c_str(),
            static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                              G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
            nullptr, nullptr, &error);
    };
    // A stand-in for logind on its own connection, and one that is not logind.
    g_autoptr(GDBusConnection) logind = connect();
    g_autoptr(GDBusConnection) impostor = connect();
    ASSERT_TRUE(logind != nullptr && impostor != nullptr);
    call(logind, "RequestName", g_variant_new("(su)", "org.freedesktop.login1", 4u));
    // The bus handles each connection's messages in order: once it answered the sender and
    // then us, whatever it routed to us is queued on our main context, and draining the
    // context delivers it. This shows that a signal was not delivered without waiting.
    auto emit = [&](GDBusConnection* sender, gboolean start) {
        ASSERT_TRUE(g_dbus_connection_emit_signal(
            sender, nullptr, "/org/freedesktop/login1", "org.freedesktop.login1.Manager",
            "PrepareForSleep", g_variant_new("(b)", start), &error));
        call(sender, "GetId", nullptr);
        call(system, "GetId", nullptr);
        while (g_main_context_iteration(nullptr, FALSE)) {
        }
    };
    emit(logind, FALSE);  // waking up is no standby
    EXPECT_TRUE(events.empty());
    emit(logind, TRUE);
    ASSERT_TRUE(RunUntil([&] { return !events.empty(); }));
    EXPECT_EQ(events, Events{DEVICE_POWER_STATE_STANDBY});
    emit(impostor, TRUE);
    // After unsubscribing, logind's next sleep reaches nobody.
    EXPECT_EQ(device_power_unsubscribe_standby(RecordStandby), DEVICE_ERROR_NONE);
    emit(logind, TRUE);
    EXPECT_EQ(events.size(), 1u);
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
