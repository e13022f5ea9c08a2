// Process entry: the one fatal start-up condition, and the watchdog ping that outlives its
// failures.
#include <gtest/gtest.h>

#include "fake_platform.h"
#include "quillon_main.h"

namespace {

// Every setting but the factory-reset flag: its read failure ends the process with 255,
// which says so first.
TEST(DaemonMain, MissingFactoryResetKeyEndsTheProcessWith255) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            fake::SeedDefaultSettings();
            fake::Unset("db/registertv/factoryreset");
            RunDaemon();
        },
        testing::ExitedWithCode(255),
        "main: main\\([0-9]+\\) > \\[DAEMON\\] Failed to Initialize PXMDBusServer\\.");
}

// A failed ping must not stop the next ones: the watchdog would then kill a live daemon.
TEST(DaemonMain, WatchdogPingFailureIsLoggedAndThePingKeepsRunning) {
    fake::Reset();
    fake::SetResult("smart_deadlock_watchdog_notify", -5);
    EXPECT_TRUE(watchdog_notify_callback(nullptr));
    EXPECT_TRUE(fake::HasLog("[DAEMON] smart_deadlock_watchdog_notify failed return = -5"));
    fake::ClearResult("smart_deadlock_watchdog_notify");
    EXPECT_TRUE(watchdog_notify_callback(nullptr));
    EXPECT_EQ(1u, fake::WatchdogPings());
}

}  // namespace
