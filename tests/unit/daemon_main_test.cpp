// Process entry: the main loop's end and the order of the teardown.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fake_platform.h"
#include "quillon_main.h"
#include "unit_support.h"

namespace {

gboolean QuitMainLoop(gpointer) {
    g_main_loop_quit(mainloop);
    return G_SOURCE_REMOVE;
}

// The loop ends, and every step of the teardown runs in reverse order of registration even
// when the steps before it failed; each line carries the entry point's prefix operators grep.
TEST(DaemonMain, TeardownRunsEveryStepInReverseOrderEvenWhenStepsFail) {
    for (bool failing : {false, true}) {
        SCOPED_TRACE(failing ? "failing" : "succeeding");
        fake::Reset();
        fake::SeedDefaultSettings();
        if (failing) {
            fake::SetResult("device_power_unsubscribe_standby", -1);
            fake::SetResult("wifi_unset_connection_state_changed_cb", -2);
            fake::SetResult("wifi_deinitialize", -3);
            fake::SetResult("bt_product_deinit", -4);
        }
        g_idle_add(QuitMainLoop, nullptr);
        EXPECT_EQ(0, RunDaemon());
        EXPECT_EQ(nullptr, mainloop);
        EXPECT_EQ(std::vector<std::string>{"60"},
                  fake::Calls("smart_deadlock_register_watchdog_service").at(0).args);

        // The teardown's platform calls, the settings keys by name.
        std::vector<std::string> teardown;
        bool started = false;
        for (const auto& call : fake::Calls()) {
            started = started || call.fn == "smart_deadlock_unregister_watchdog_service";
            if (started && (call.fn.find("_un") != std::string::npos ||
                            call.fn.find("deini") != std::string::npos)) {
                teardown.push_back(call.fn);
            } else if (started && call.fn == "vconf_ignore_key_changed") {
                teardown.push_back(call.args.at(0));
            }
        }
        EXPECT_EQ((std::vector<std::string>{
                      "smart_deadlock_unregister_watchdog_service", "memory/wizard/wizard_mode",
                      "memory/quillon/reqopt", "db/menu/network/devicemanager/accessnoti",
                      "device_power_unsubscribe_standby", "wifi_unset_connection_state_changed_cb",
                      "wifi_deinitialize", "bt_product_deinit"}),
                  teardown);
        // The backup keys stay watched until the server's destructor runs at exit (the first
        // run's watch is gone with the reset).
        EXPECT_EQ(failing ? 0u : 1u, fake::VconfListenerCount("memory/bnr/backupcid"));

        const std::vector<std::string> lines =
            failing ? std::vector<std::string>{"Failed to deregister device_power_unsubscribe_standby callback [-1]",
                                               "Failed to deregister wifi_unset_connection_state_changed_cb callback [-2]",
                                               "Failed to Deinitialize WiFi[-3]", "bt init failed -4"}
                    : std::vector<std::string>{"standby callback unsubscribed successfully",
                                               "WifiConnectionState callback unsubscribed successfully",
                                               "WiFi deinitialized successfully", "bt deinit successfully"};
        std::vector<std::string> order = {"[DAEMON] Start Quillon",
                                          "[DAEMON] Quillon service is inactive"};
        order.insert(order.end(), lines.begin(), lines.end());
        order.push_back("[DBusServer][Finalize][");
        EXPECT_TRUE(unit::LogsInOrder(order));
        for (const auto& text : order) {
            long at = fake::FindLog(text);
            ASSERT_GE(at, 0) << text;
            EXPECT_EQ(0u, fake::Logs()[at].text.rfind("main: main(", 0)) << fake::Logs()[at].text;
        }
    }
}

}  // namespace
