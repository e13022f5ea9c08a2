// Process entry: the watchdog ping, the main loop's end and the order of the teardown.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "dlog.h"
#include "fake_platform.h"
#include "quillon_main.h"
#include "unit_support.h"

namespace {

// The teardown's platform calls, as the journal names them.
const std::vector<std::string> kTeardownCalls = {"smart_deadlock_unregister_watchdog_service",
                                                 "vconf_ignore_key_changed",
                                                 "device_power_unsubscribe_standby",
                                                 "wifi_unset_connection_state_changed_cb",
                                                 "wifi_deinitialize",
                                                 "bt_product_deinit"};

gboolean QuitMainLoop(gpointer) {
    g_main_loop_quit(mainloop);
    return G_SOURCE_REMOVE;
}

// The journaled calls from the first teardown call on, restricted to the teardown's.
std::vector<fake::Call> TeardownCalls() {
    std::vector<fake::Call> out;
    bool started = false;
    for (const auto& call : fake::Calls()) {
        started = started || call.fn == "smart_deadlock_unregister_watchdog_service";
        if (!started) {
            continue;
        }
        for (const auto& name : kTeardownCalls) {
            if (call.fn == name) {
                out.push_back(call);
            }
        }
    }
    return out;
}

// Operators and the platform's log tools find the entry point's lines by the prefix
// "main: main(": each text's line must carry it, whichever C++ function logged it.
void ExpectLoggedAsMain(const std::vector<std::string>& texts) {
    const std::vector<fake::LogLine> logs = fake::Logs();
    for (const auto& text : texts) {
        long at = fake::FindLog(text);
        ASSERT_GE(at, 0) << text;
        EXPECT_EQ(0u, logs[static_cast<std::size_t>(at)].text.rfind("main: main(", 0))
            << logs[static_cast<std::size_t>(at)].text;
    }
}

TEST(DaemonMain, MissingFactoryResetKeyEndsTheProcessWith255) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    // Every setting but the factory-reset flag: its read failure is the one fatal start-up
    // condition, and the process must say so before it ends.
    EXPECT_EXIT(
        {
            fake::SeedDefaultSettings();
            fake::Unset("db/registertv/factoryreset");
            RunDaemon();
        },
        testing::ExitedWithCode(255),
        "main: main\\([0-9]+\\) > \\[DAEMON\\] Failed to Initialize PXMDBusServer\\.");
}

TEST(DaemonMain, WatchdogPingFailureIsLoggedAndThePingKeepsRunning) {
    fake::Reset();
    EXPECT_TRUE(watchdog_notify_callback(nullptr));
    EXPECT_EQ(1u, fake::WatchdogPings());
    EXPECT_FALSE(fake::HasLog("smart_deadlock_watchdog_notify failed"));

    fake::SetResult("smart_deadlock_watchdog_notify", -5);
    EXPECT_TRUE(watchdog_notify_callback(nullptr));
    EXPECT_TRUE(watchdog_notify_callback(nullptr));
    EXPECT_EQ(2u, fake::CountLogs("[DAEMON] smart_deadlock_watchdog_notify failed return = -5"));
    EXPECT_TRUE(fake::HasLog("main: watchdog_notify_callback(", DLOG_ERROR, "PXM_LOG"));
    EXPECT_EQ(3u, fake::CallCount("smart_deadlock_watchdog_notify"));
    EXPECT_EQ(1u, fake::WatchdogPings());
}

TEST(DaemonMain, RunsTheLoopThenTearsDownInReverseOrderOfRegistration) {
    fake::Reset();
    fake::SeedDefaultSettings();
    g_idle_add(QuitMainLoop, nullptr);
    EXPECT_EQ(0, RunDaemon());
    EXPECT_EQ(nullptr, mainloop);

    auto registrations = fake::Calls("smart_deadlock_register_watchdog_service");
    ASSERT_EQ(1u, registrations.size());
    EXPECT_EQ(std::vector<std::string>{"60"}, registrations[0].args);

    auto calls = TeardownCalls();
    std::vector<std::string> names;
    for (const auto& call : calls) {
        names.push_back(call.fn);
    }
    EXPECT_EQ((std::vector<std::string>{
                  "smart_deadlock_unregister_watchdog_service", "vconf_ignore_key_changed",
                  "vconf_ignore_key_changed", "vconf_ignore_key_changed",
                  "device_power_unsubscribe_standby", "wifi_unset_connection_state_changed_cb",
                  "wifi_deinitialize", "bt_product_deinit"}),
              names);
    if (names.size() == 8) {
        EXPECT_EQ("memory/wizard/wizard_mode", calls[1].args.at(0));
        EXPECT_EQ("memory/quillon/reqopt", calls[2].args.at(0));
        EXPECT_EQ("db/menu/network/devicemanager/accessnoti", calls[3].args.at(0));
    }
    // The backup keys stay watched until the server's destructor runs at exit.
    EXPECT_EQ(1u, fake::VconfListenerCount("memory/bnr/backupcid"));

    EXPECT_TRUE(unit::LogsInOrder(
        {"Initialized[1]", "[DAEMON] Initialize PXMDBusServer.", "[DAEMON] Start Quillon",
         "[DAEMON] Quillon service is running", "[DAEMON] Quillon service is inactive",
         "standby callback unsubscribed successfully",
         "WifiConnectionState callback unsubscribed successfully",
         "WiFi deinitialized successfully", "bt deinit successfully", "[DBusServer][Finalize]["}));
    ExpectLoggedAsMain(
        {"[DAEMON] Initialize PXMDBusServer.", "[DAEMON] Start Quillon",
         "[DAEMON] Quillon service is running", "[DAEMON] Quillon service is inactive",
         "standby callback unsubscribed successfully",
         "WifiConnectionState callback unsubscribed successfully",
         "WiFi deinitialized successfully", "bt deinit successfully", "[DBusServer][Finalize]["});
    EXPECT_FALSE(fake::HasLog("[DAEMON] Failed to Initialize PXMDBusServer."));
}

TEST(DaemonMain, TeardownFailuresAreLoggedAndEveryStepStillRuns) {
    fake::Reset();
    fake::SeedDefaultSettings();
    fake::SetResult("device_power_unsubscribe_standby", -1);
    fake::SetResult("wifi_unset_connection_state_changed_cb", -2);
    fake::SetResult("wifi_deinitialize", -3);
    fake::SetResult("bt_product_deinit", -4);
    g_idle_add(QuitMainLoop, nullptr);
    EXPECT_EQ(0, RunDaemon());

    EXPECT_TRUE(unit::LogsInOrder(
        {"[DAEMON] Quillon service is inactive",
         "Failed to deregister device_power_unsubscribe_standby callback [-1]",
         "Failed to deregister wifi_unset_connection_state_changed_cb callback [-2]",
         "Failed to Deinitialize WiFi[-3]", "bt init failed -4", "[DBusServer][Finalize]["}));
    ExpectLoggedAsMain({"Failed to deregister device_power_unsubscribe_standby callback [-1]",
                        "Failed to deregister wifi_unset_connection_state_changed_cb callback [-2]",
                        "Failed to Deinitialize WiFi[-3]", "bt init failed -4"});
    EXPECT_TRUE(fake::HasLog("Failed to Deinitialize WiFi[-3]", DLOG_ERROR, "PXM_LOG"));
    EXPECT_TRUE(fake::HasLog("bt init failed -4", DLOG_ERROR, "PXM_LOG"));
    EXPECT_FALSE(fake::HasLog("bt deinit successfully"));
    EXPECT_FALSE(fake::HasLog("WiFi deinitialized successfully"));
    EXPECT_EQ(8u, TeardownCalls().size());
}

}  // namespace
