// Settings keys and standby as the registry sees them.
#include <gtest/gtest.h>

#include <string>

#include "CPXMCore.h"
#include "dlog.h"
#include "fake_platform.h"

namespace {

// The wizard counts in any case at start-up and only as written afterwards; the other keys
// reach the registry as they change, and a key it does not know changes nothing.
TEST(Monitors, SettingsChangesAndStandbyReachTheRegistry) {
    fake::SeedDefaultSettings();
    fake::SetStr(VCONFKEY_WIZARD_MODE, "pnp_Setup");
    CPXMCore* core = CPXMCore::GetInstance();
    core->Init();
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

    // Standby clears the update counters of the normal list only.
    pxm_core_device_s dev{};
    dev.updated = 3;
    core->mDeviceList.assign(2, dev);
    core->mReverseDeviceList.assign(1, dev);
    EXPECT_EQ(1, fake::DeliverStandby(0x12));
    EXPECT_EQ(0, core->mDeviceList[0].updated + core->mDeviceList[1].updated);
    EXPECT_EQ(3, core->mReverseDeviceList[0].updated);
}

}  // namespace
