// Settings keys, Wi-Fi security and standby as the registry sees them.
#include <gtest/gtest.h>

#include <string>

#include "CPXMCore.h"
#include "dlog.h"
#include "fake_platform.h"

namespace {

CPXMCore* StartedRegistry(const char* wizardMode) {
    fake::SeedDefaultSettings();
    fake::SetStr(VCONFKEY_WIZARD_MODE, wizardMode);
    CPXMCore* core = CPXMCore::GetInstance();
    core->Init();
    return core;
}

TEST(Monitors, AtStartUpOnlyThePlugAndPlayWizardCountsInAnyCase) {
    CPXMCore* core = StartedRegistry("pnp_Setup");
    EXPECT_TRUE(core->m_bPnPStatus);
    fake::SetStr(VCONFKEY_WIZARD_MODE, "NETWORK_SETUP");
    fake::SetInt(VCONFKEY_PXM_ACCESS_NOTI, 2);
    fake::SetInt(VCONFKEY_PXM_REQ_OPT, 1);
    core->UTIL_LoadVconf();
    EXPECT_FALSE(core->m_bPnPStatus);
    EXPECT_EQ(2, core->m_nAccessNoti.load());
    EXPECT_EQ(1, core->m_nReqOpt.load());

    core->m_bPnPStatus = true;
    fake::Unset(VCONFKEY_WIZARD_MODE);
    core->UTIL_LoadVconf();
    EXPECT_FALSE(core->m_bPnPStatus);
    EXPECT_TRUE(fake::HasLog("vconf_get_str Failed for memory/wizard/wizard_mode", DLOG_ERROR));
}

TEST(Monitors, SettingsChangesReachTheRegistry) {
    CPXMCore* core = StartedRegistry("NETWORK_SETUP");
    EXPECT_FALSE(core->m_bPnPStatus);
    for (auto [mode, setup] : {std::pair{"NETWORK_SETUP", true},
                               {"network_setup", false},
                               {"SSO_ALONE_SETUP", true},
                               {"", false},
                               {"PNP_SETUP", true},
                               {"PNP_SETUP2", false}}) {
        fake::ChangeStr(VCONFKEY_WIZARD_MODE, mode);
        EXPECT_EQ(setup, core->m_bPnPStatus.load()) << "'" << mode << "'";
    }
    fake::ChangeInt(VCONFKEY_PXM_ACCESS_NOTI, 2);
    fake::ChangeInt(VCONFKEY_PXM_REQ_OPT, 5);
    EXPECT_EQ(2, core->m_nAccessNoti.load());
    EXPECT_EQ(5, core->m_nReqOpt.load());
    EXPECT_TRUE(fake::HasLog("Access Notification : [2]", DLOG_INFO, "PXM_CORE"));
    EXPECT_TRUE(fake::HasLog("Request Option : [5]", DLOG_INFO, "PXM_CORE"));

    vconf_notify_key_changed("memory/other/key", CPXMCore::INTERNAL_VconfCallBack, core);
    fake::ChangeInt("memory/other/key", 9);
    EXPECT_TRUE(fake::HasLog("Invalid vconfkey[memory/other/key]", DLOG_ERROR));
    EXPECT_EQ(2, core->m_nAccessNoti.load());
    EXPECT_EQ(5, core->m_nReqOpt.load());
}

TEST(Monitors, OnlyPskWifiWithAesCountsAsSecure) {
    CPXMCore* core = CPXMCore::GetInstance();
    const struct {
        int type, security, encryption;
        bool secure;
        const char* log;
    } cases[] = {
        {1, 3, 3, true, "Wifi Security is OK [3][3]"},
        {1, 2, 4, true, "Wifi Security is OK [2][4]"},
        {1, 3, 2, false, "Wifi Security level is NOT OK TYPE[3] ENCRYPTION[2]"},
        {1, 0, 0, false, "Wifi Security level is NOT OK TYPE[0] ENCRYPTION[0]"},
        {3, 3, 3, false, "WIFI is not connected[3]"},
    };
    for (const auto& c : cases) {
        core->m_bSecurity = !c.secure;
        fake::SetConnection(c.type, c.security, c.encryption);
        core->UTIL_LoadSecurity();
        EXPECT_EQ(c.secure, core->m_bSecurity.load()) << c.log;
        EXPECT_TRUE(fake::HasLog(c.log)) << c.log;
    }
    EXPECT_EQ(4u, fake::CallCount("connection_get_current_profile"));

    // Every failure leaves the connection insecure and still releases the handle.
    fake::SetConnection(1, 3, 3);
    for (auto [failing, log] :
         {std::pair{"connection_get_type", "Failed to get Connection Type [-1]"},
          {"connection_get_current_profile", "Failed to get Connection Profile [-1]"},
          {"connection_profile_get_wifi_security_type", "Failed to get Wifi Security Type [-1]"},
          {"connection_profile_get_wifi_encryption_type",
           "Failed to get Wifi Encryption Type [-1]"},
          {"connection_create", "Connection creation failed.[-1]"}}) {
        core->m_bSecurity = true;
        fake::ClearJournal();
        fake::QueueResult(failing, -1);
        core->UTIL_LoadSecurity();
        EXPECT_FALSE(core->m_bSecurity) << failing;
        EXPECT_TRUE(fake::HasLog(log, DLOG_ERROR)) << log;
        EXPECT_EQ(fake::CallCount("connection_create") - fake::CallCount("connection_destroy"),
                  std::string(failing) == "connection_create" ? 1u : 0u)
            << failing;
    }
}

TEST(Monitors, WifiStateChangesRecomputeOrClearSecurity) {
    CPXMCore* core = StartedRegistry("");
    fake::SetConnection(1, 3, 4);
    fake::SetEssid("HomeNet");
    fake::DeliverWifiState(WIFI_CONNECTION_STATE_CONNECTED);
    EXPECT_TRUE(core->m_bSecurity);
    EXPECT_TRUE(fake::HasLog("AP is [HomeNet]", DLOG_INFO));
    EXPECT_TRUE(fake::HasLog("Wifi Connected : Security[1]", DLOG_WARN));
    for (int state : {1, 0, -1}) {
        core->m_bSecurity = true;
        fake::DeliverWifiState(static_cast<wifi_connection_state_e>(state));
        EXPECT_FALSE(core->m_bSecurity) << state;
        EXPECT_TRUE(fake::HasLog("Wifi Diconnected [" + std::to_string(state) + "]"));
    }
}

TEST(Monitors, StandbyClearsTheUpdateCountersOfTheNormalListOnly) {
    CPXMCore* core = StartedRegistry("");
    pxm_core_device_s dev{};
    dev.updated = 3;
    core->mDeviceList.assign(2, dev);
    core->mReverseDeviceList.assign(1, dev);
    EXPECT_EQ(1, fake::DeliverStandby(0x12));
    EXPECT_TRUE(fake::HasLog("InstantOff Callback[0x12]", DLOG_WARN, "PXM_CORE"));
    EXPECT_TRUE(fake::HasLog("Update cleared", DLOG_INFO));
    EXPECT_EQ(0, core->mDeviceList[0].updated + core->mDeviceList[1].updated);
    EXPECT_EQ(3, core->mReverseDeviceList[0].updated);
}

}  // namespace
