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

// The wizard counts in any case at start-up and only as written afterwards; the other keys
// reach the registry as they change, and a key it does not know changes nothing.
TEST(Monitors, SettingsAndTheirChangesReachTheRegistry) {
    CPXMCore* core = StartedRegistry("pnp_Setup");
    EXPECT_TRUE(core->m_bPnPStatus);
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
    vconf_notify_key_changed("memory/other/key", CPXMCore::INTERNAL_VconfCallBack, core);
    fake::ChangeInt("memory/other/key", 9);
    EXPECT_EQ(2, core->m_nAccessNoti.load());
    EXPECT_EQ(5, core->m_nReqOpt.load());
    fake::Unset(VCONFKEY_WIZARD_MODE);
    core->UTIL_LoadVconf();
    EXPECT_FALSE(core->m_bPnPStatus);
}

TEST(Monitors, OnlyPskWifiWithAesCountsAsSecureAndDisconnectingClearsIt) {
    CPXMCore* core = StartedRegistry("");
    const struct {
        int type, security, encryption;
        const char* failing;
        bool secure;
    } cases[] = {
        {1, 3, 3, "", true},
        {1, 2, 4, "", true},
        {1, 3, 2, "", false},
        {1, 0, 0, "", false},
        {3, 3, 3, "", false},
        {1, 3, 3, "connection_get_type", false},
        {1, 3, 3, "connection_get_current_profile", false},
        {1, 3, 3, "connection_profile_get_wifi_security_type", false},
        {1, 3, 3, "connection_profile_get_wifi_encryption_type", false},
        {1, 3, 3, "connection_create", false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.type) + std::to_string(c.security) +
                     std::to_string(c.encryption) + c.failing);
        core->m_bSecurity = !c.secure;
        fake::ClearJournal();
        fake::SetConnection(c.type, c.security, c.encryption);
        if (*c.failing != '\0') {
            fake::QueueResult(c.failing, -1);
        }
        core->UTIL_LoadSecurity();
        EXPECT_EQ(c.secure, core->m_bSecurity.load());
        // The handle is released whatever failed after it was made.
        EXPECT_EQ(std::string(c.failing) == "connection_create" ? 1u : 0u,
                  fake::CallCount("connection_create") - fake::CallCount("connection_destroy"));
    }

    fake::SetConnection(1, 3, 4);
    fake::DeliverWifiState(WIFI_CONNECTION_STATE_CONNECTED);
    EXPECT_TRUE(core->m_bSecurity);
    for (int state : {1, 0, -1}) {
        core->m_bSecurity = true;
        fake::DeliverWifiState(static_cast<wifi_connection_state_e>(state));
        EXPECT_FALSE(core->m_bSecurity) << state;
    }
}

TEST(Monitors, StandbyClearsTheUpdateCountersOfTheNormalListOnly) {
    CPXMCore* core = StartedRegistry("");
    pxm_core_device_s dev{};
    dev.updated = 3;
    core->mDeviceList.assign(2, dev);
    core->mReverseDeviceList.assign(1, dev);
    EXPECT_EQ(1, fake::DeliverStandby(0x12));
    EXPECT_EQ(0, core->mDeviceList[0].updated + core->mDeviceList[1].updated);
    EXPECT_EQ(3, core->mReverseDeviceList[0].updated);
}

}  // namespace
