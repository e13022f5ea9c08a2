// The registry's start-up: every platform service in order, and failures that are logged,
// undone at once and do not stop the rest.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CPXMCore.h"
#include "dlog.h"
#include "fake_platform.h"

namespace {

using Names = std::vector<std::string>;

TEST(RegistryInit, StartsEveryServiceInOrderAndFailuresAreUndoneAndPassedOver) {
    const Names only = {"bt_product_init",
                        "wifi_initialize",
                        "wifi_set_connection_state_changed_cb",
                        "wifi_unset_connection_state_changed_cb",
                        "device_power_subscribe_standby",
                        "device_power_unsubscribe_standby",
                        "connection_create",
                        "aul_listen_app_dead_signal"};
    fake::SeedDefaultSettings();
    CPXMCore* core = CPXMCore::GetInstance();
    core->m_nUxPid = 77;
    core->m_bNoDataChanged = true;
    core->Init();
    EXPECT_EQ((Names{"bt_product_init", "wifi_initialize", "wifi_set_connection_state_changed_cb",
                     "device_power_subscribe_standby", "connection_create",
                     "aul_listen_app_dead_signal"}),
              fake::CallNames(only));
    EXPECT_EQ((Names{VCONFKEY_PXM_ACCESS_NOTI, VCONFKEY_PXM_REQ_OPT, VCONFKEY_WIZARD_MODE}), [] {
        Names keys;
        for (const auto& call : fake::Calls("vconf_notify_key_changed")) {
            keys.push_back(call.args.at(0));
        }
        return keys;
    }());
    EXPECT_TRUE(fake::HasWifiCallback() && fake::HasStandbyCallback() &&
                fake::HasAppDeadListener());
    EXPECT_EQ(0, core->m_nUxPid.load());
    EXPECT_FALSE(core->m_bNoDataChanged);

    fake::Reset();
    fake::SeedDefaultSettings();
    fake::SetResult("bt_product_init", -1);
    fake::SetResult("wifi_set_connection_state_changed_cb", -22);
    fake::SetResult("device_power_subscribe_standby", -1);
    core->Init();
    for (const char* line :
         {"bt init failed -1", "[2/5] WiFi init >> Success",
          "Failed to register wifi_set_connection_state_changed_cb callback [-22]",
          "Failed to register device_power_subscribe_poweroff callback [-1]",
          "[5/5] vconf callback >> Success"}) {
        EXPECT_TRUE(fake::HasLog(line, -1, "PXM_CORE")) << line;
    }
    EXPECT_EQ((Names{"bt_product_init", "wifi_initialize", "wifi_set_connection_state_changed_cb",
                     "wifi_unset_connection_state_changed_cb", "device_power_subscribe_standby",
                     "device_power_unsubscribe_standby", "connection_create",
                     "aul_listen_app_dead_signal"}),
              fake::CallNames(only));
}

}  // namespace
