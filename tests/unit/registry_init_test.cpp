// The registry singleton's construction, start-up order and tolerated start-up failures.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "CPXMCore.h"
#include "dlog.h"
#include "fake_platform.h"

namespace {

using Names = std::vector<std::string>;

// The platform calls of start-up, in the order they were made.
Names StartupCalls() {
    return fake::CallNames(
        {"bt_product_init", "wifi_initialize", "wifi_set_connection_state_changed_cb",
         "wifi_unset_connection_state_changed_cb", "device_power_subscribe_standby",
         "device_power_unsubscribe_standby", "vconf_notify_key_changed", "vconf_get_str",
         "vconf_get_int", "connection_create", "aul_listen_app_dead_signal"});
}

TEST(RegistryInit, OneInstanceWhoseLocksLiveUntilProcessExit) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    // The destructor runs at exit; the fake echoes log lines to stderr.
    EXPECT_EXIT(
        {
            CPXMCore::GetInstance();
            std::exit(0);
        },
        testing::ExitedWithCode(0), "\\[LOCK\\] Destroy mPXMLock & mFileLock");

    CPXMCore* core = CPXMCore::GetInstance();
    EXPECT_EQ(core, CPXMCore::GetInstance());
    EXPECT_EQ(1u, fake::CountLogs("pxmCore: CPXMCore("));
    EXPECT_TRUE(fake::HasLog("[LOCK] Create mPXMLock & mFileLock", DLOG_INFO, "PXM_CORE"));
    // Both locks were created: each has a semaphore to destroy.
    EXPECT_EQ(0, core->mPXMLock.m_Semaphore.Destroy());
    EXPECT_EQ(0, core->mFileLock.m_Semaphore.Destroy());
}

TEST(RegistryInit, StartsEveryServiceInOrderAndRegistersEveryCallback) {
    fake::SeedDefaultSettings();
    CPXMCore* core = CPXMCore::GetInstance();
    core->m_nUxPid = 77;
    core->m_bNoDataChanged = true;
    core->Init();

    EXPECT_EQ((Names{"bt_product_init", "wifi_initialize", "wifi_set_connection_state_changed_cb",
                     "device_power_subscribe_standby", "vconf_notify_key_changed",
                     "vconf_notify_key_changed", "vconf_notify_key_changed", "vconf_get_str",
                     "vconf_get_int", "vconf_get_int", "connection_create",
                     "aul_listen_app_dead_signal"}),
              StartupCalls());
    Names keys;
    for (const auto& call : fake::Calls("vconf_notify_key_changed")) {
        keys.push_back(call.args.at(0));
    }
    EXPECT_EQ((Names{VCONFKEY_PXM_ACCESS_NOTI, VCONFKEY_PXM_REQ_OPT, VCONFKEY_WIZARD_MODE}), keys);
    EXPECT_TRUE(fake::HasWifiCallback() && fake::HasStandbyCallback() &&
                fake::HasAppDeadListener());
    long at = -1;
    for (const char* line :
         {"[1/5] BT init >> Success", "[2/5] WiFi init >> Success",
          "[3/5] WifiConnectionState callback >> Success", "[4/5] Standby callback >> Success",
          "[5/5] vconf callback >> Success", "Access Notification[1] PnPstatus[0] loaded"}) {
        at = fake::FindLog(line, at + 1);
        EXPECT_GE(at, 0) << line << " missing or out of order";
    }
    EXPECT_EQ(0, core->m_nUxPid.load());
    EXPECT_FALSE(core->m_bNoDataChanged);
}

TEST(RegistryInit, FailingPlatformServicesAreLoggedAndStartUpGoesOn) {
    fake::SeedDefaultSettings();
    fake::SetResult("bt_product_init", -1);
    fake::SetResult("wifi_initialize", -1);
    fake::SetResult("wifi_set_connection_state_changed_cb", -22);
    fake::SetResult("device_power_subscribe_standby", -1);
    CPXMCore::GetInstance()->Init();

    for (const char* line :
         {"bt init failed -1", "Failed to Initialize WiFi[-1]",
          "Failed to register wifi_set_connection_state_changed_cb callback [-22]",
          "Failed to register device_power_subscribe_poweroff callback [-1]"}) {
        EXPECT_TRUE(fake::HasLog(line, DLOG_ERROR, "PXM_CORE")) << line;
    }
    EXPECT_FALSE(fake::HasLog("[1/5]") || fake::HasLog("[2/5]") || fake::HasLog("[3/5]") ||
                 fake::HasLog("[4/5]"));
    EXPECT_TRUE(fake::HasLog("[5/5] vconf callback >> Success"));
    // Each failed registration is undone at once, before anything else is started.
    Names names = StartupCalls();
    names.resize(7);
    EXPECT_EQ((Names{"bt_product_init", "wifi_initialize", "wifi_set_connection_state_changed_cb",
                     "wifi_unset_connection_state_changed_cb", "device_power_subscribe_standby",
                     "device_power_unsubscribe_standby", "vconf_notify_key_changed"}),
              names);
    EXPECT_EQ(1u, fake::CallCount("aul_listen_app_dead_signal"));

    // Only Bluetooth failing: the next success line is Wi-Fi's.
    fake::ClearLogs();
    fake::ClearResult("wifi_initialize");
    CPXMCore::GetInstance()->Init();
    long failed = fake::FindLog("bt init failed -1");
    EXPECT_GE(failed, 0);
    EXPECT_EQ(failed + 1, fake::FindLog("[2/5] WiFi init >> Success"));
}

}  // namespace
