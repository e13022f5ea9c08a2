// The access-request decision against the fake platform: which requests are stored, which
// are refused by a standing denial, which launch the prompt, and the lines operators read.
#include <gtest/gtest.h>

#include <string>

#include "CPXMCore.h"
#include "dlog.h"
#include "fake_platform.h"
#include "unit_support.h"

namespace {

const char* const kBt = "AA:BB:CC:DD:EE:01";
const char* const kWifi = "AA:BB:CC:DD:EE:02";
const char* const kP2p = "AA:BB:CC:DD:EE:03";

pxm_core_device_s Device(int status, const char* bt = kBt, const char* wifi = kWifi,
                         const char* p2p = kP2p) {
    return unit::Device("Phone", bt, wifi, p2p, status);
}

using unit::CoreLogged;

class AccessDecisionTest : public ::testing::Test {
protected:
    void SetUp() override { Fresh(); }
    void TearDown() override { core->DB_WaitForSaves(); }

    // Clean platform and registry: access notification 1, no wizard, no Wi-Fi, TV fully on.
    void Fresh() {
        core->DB_WaitForSaves();
        fake::Reset();
        core->mDeviceList.clear();
        core->mReverseDeviceList.clear();
        core->m_nAccessNoti = 1;
        core->m_bPnPStatus = false;
        core->m_bSecurity = false;
        core->m_nReqOpt = 0;
        core->m_bNoDataChanged = false;
        core->m_nUxPid = 0;
        fake::SetConnection(3, 0, 0);
        fake::SetPowerState(0);
        fake::SetVoiceActive(false);
        fake::SetFeatureFlag(PXM_TESSEL_FEATURE_KEY, false);
    }

    std::vector<pxm_core_device_s>& List(dev_save_type save) {
        return save == PXM_SAVE_NORMAL ? core->mDeviceList : core->mReverseDeviceList;
    }
    void Store(int status, int updated = 0, dev_save_type save = PXM_SAVE_NORMAL) {
        pxm_core_device_s d = Device(status);
        d.updated = updated;
        d.accessTime = 1234;
        List(save).push_back(d);
    }
    int Request(pxm_core_device_s d, dev_save_type save = PXM_SAVE_NORMAL) {
        return core->CMD_RequestAccess(&d, save);
    }
    size_t Launches() { return fake::CallCount("aul_launch_app"); }

    CPXMCore* core = CPXMCore::GetInstance();
};

// Every access-notification mode for new, known, allowed-since-boot and denied devices.
TEST_F(AccessDecisionTest, DecisionTable) {
    struct Case {
        int mode;
        int stored;  // -1: not in the list
        int updated;
        int power;
        bool voice;
        int result;
        bool prompt;
    };
    const Case cases[] = {
        {0, -1, 0, 0, false, 2, true},   {0, 0, 0, 0, false, 0, false},
        {0, 1, 0, 0, false, 1, false},   {1, -1, 0, 0, false, 2, true},
        {1, 0, 0, 0, false, 0, false},   {1, 1, 0, 0, false, 1, false},
        {2, -1, 0, 2, true, 2, true},    {2, 0, 0, 0, false, 2, true},
        {2, 0, 0, 2, false, 0, false},   {2, 0, 0, 0, true, 0, false},
        {2, 0, 1, 0, false, 0, false},   {2, 1, 3, 0, false, 1, false},
        {5, -1, 0, 0, false, -1, false}, {5, 0, 2, 0, false, -1, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE("mode " + std::to_string(c.mode) + " stored " + std::to_string(c.stored) +
                     " updated " + std::to_string(c.updated) + " power " + std::to_string(c.power) +
                     " voice " + std::to_string(c.voice));
        Fresh();
        core->m_nAccessNoti = c.mode;
        fake::SetPowerState(c.power);
        fake::SetVoiceActive(c.voice);
        if (c.stored >= 0) {
            Store(c.stored, c.updated);
        }
        EXPECT_EQ(Request(Device(0)), c.result);
        EXPECT_EQ(Launches(), c.prompt ? 1u : 0u);
        EXPECT_TRUE(unit::LockIsFree(core->mPXMLock));
        core->DB_WaitForSaves();

        const size_t expectRecords = (c.stored >= 0 || c.result == 0) ? 1 : 0;
        ASSERT_EQ(core->mDeviceList.size(), expectRecords);
        if (c.result == 0) {
            EXPECT_EQ(core->mDeviceList[0].devstatus, 0);
            EXPECT_EQ(core->mDeviceList[0].updated, c.updated + 1);
        } else if (c.stored >= 0) {
            EXPECT_EQ(core->mDeviceList[0].devstatus, c.stored);  // untouched
            EXPECT_EQ(core->mDeviceList[0].accessTime, 1234u);
        }
        if (c.mode == 5 && c.stored != 1) {
            EXPECT_TRUE(
                CoreLogged("CMD_RequestAccess", "Unavailable AccessNoti value [5]", DLOG_ERROR));
        }
        if (c.stored != 1) {
            EXPECT_TRUE(CoreLogged(
                "CMD_RequestAccess",
                "REQUESTACCESS - AccessNoti[" + std::to_string(c.mode) + "] REQOPT[0]", DLOG_INFO));
        }
        EXPECT_EQ(CoreLogged("CMD_RequestAccess", "NOTI HERE", DLOG_INFO), c.prompt);
    }
}

TEST_F(AccessDecisionTest, StandingDenialShortCircuitsEverything) {
    core->m_nAccessNoti = 5;  // would fail with -1 if the denial did not stand first
    core->m_nReqOpt = 3;
    Store(1);
    // Only the Bluetooth address, in lower case, identifies the device.
    pxm_core_device_s req = Device(0, "aa:bb:cc:dd:ee:01", "", "00:00:00:00:00:00");
    EXPECT_EQ(Request(req), 1);
    EXPECT_TRUE(core->m_bNoDataChanged);
    EXPECT_EQ(core->m_nReqOpt, 3);
    EXPECT_EQ(Launches(), 0u);
    ASSERT_EQ(core->mDeviceList.size(), 1u);
    EXPECT_EQ(core->mDeviceList[0].accessTime, 1234u);
    EXPECT_TRUE(CoreLogged("UTIL_CheckStatus", "Save type = [0]", DLOG_INFO));
    EXPECT_TRUE(CoreLogged("UTIL_CheckStatus", "devKeyType[0]", DLOG_INFO));
    EXPECT_TRUE(
        CoreLogged("CMD_RequestAccess", "Failed to set device : Already Denied", DLOG_WARN));
    EXPECT_TRUE(CoreLogged("CMD_RequestAccess", "No data changed(REJECT), no CALLBACK", DLOG_WARN));
    EXPECT_FALSE(fake::HasLog("REQUESTACCESS"));

    // A prompt the requester insists on is shown in every mode, with its line at ERROR.
    for (int mode : {0, 1, 2}) {
        SCOPED_TRACE("mode " + std::to_string(mode));
        Fresh();
        core->m_nAccessNoti = mode;
        core->m_nReqOpt = 3;
        core->m_bSecurity = true;
        Store(1);
        pxm_core_device_s always = Device(0);
        always.isUXAlways = 1;
        EXPECT_EQ(Request(always), 2);
        EXPECT_EQ(Launches(), 1u);
        EXPECT_EQ(core->m_nReqOpt, 0);
        EXPECT_EQ(core->mDeviceList[0].devstatus, 1);
        EXPECT_TRUE(CoreLogged("CMD_RequestAccess", "NOTI HERE", DLOG_ERROR));
        EXPECT_TRUE(CoreLogged("CMD_RequestAccess", "This is not a WIFI session the AP REQOPT[3]",
                               DLOG_WARN));
    }

    // A new denial of a denied device is stored silently, not refused.
    Fresh();
    core->m_nReqOpt = 3;
    Store(1);
    EXPECT_EQ(Request(Device(1)), 1);
    EXPECT_EQ(core->m_nReqOpt, 3);
    EXPECT_EQ(Launches(), 0u);
    EXPECT_TRUE(
        CoreLogged("CMD_RequestAccess", "DENIED data... no PXM UX and just add", DLOG_WARN));
    EXPECT_FALSE(fake::HasLog("Already Denied"));
    core->DB_WaitForSaves();
    EXPECT_NE(core->mDeviceList[0].accessTime, 1234u);  // merged again
}

TEST_F(AccessDecisionTest, WizardAndForcedRequestsSkipThePrompt) {
    core->m_bPnPStatus = true;
    core->m_nReqOpt = 3;
    EXPECT_EQ(Request(Device(0)), 0);
    EXPECT_EQ(Launches(), 0u);
    EXPECT_EQ(core->m_nReqOpt, 3);
    core->DB_WaitForSaves();
    ASSERT_EQ(core->mDeviceList.size(), 1u);
    EXPECT_EQ(core->mDeviceList[0].devstatus, 0);
    EXPECT_TRUE(CoreLogged("CMD_RequestAccess", "PnP Wizard is running... no PXM UX", DLOG_WARN));
    EXPECT_FALSE(fake::HasLog("REQUESTACCESS"));

    Fresh();
    core->m_nReqOpt = 3;
    pxm_core_device_s forced = Device(0);
    forced.isNoUX = 1;
    EXPECT_EQ(Request(forced), 0);
    EXPECT_EQ(Launches(), 0u);
    EXPECT_EQ(core->m_nReqOpt, 3);
    EXPECT_TRUE(
        CoreLogged("CMD_RequestAccess", "App forced.... no PXM UX and just add", DLOG_WARN));
    core->DB_WaitForSaves();
    EXPECT_EQ(core->mDeviceList.size(), 1u);

    // isUXAlways wins over both the wizard and isNoUX.
    for (bool wizard : {true, false}) {
        Fresh();
        core->m_bPnPStatus = wizard;
        core->m_nReqOpt = 3;
        pxm_core_device_s both = Device(0);
        both.isNoUX = 1;
        both.isUXAlways = 1;
        EXPECT_EQ(Request(both), 2);
        EXPECT_EQ(Launches(), 1u);
        EXPECT_EQ(core->m_nReqOpt, 0);
        EXPECT_TRUE(core->mDeviceList.empty());
        EXPECT_TRUE(CoreLogged("CMD_RequestAccess", "NOTI HERE", DLOG_ERROR));
    }
}

TEST_F(AccessDecisionTest, SecureNetworkModeStoresNewDevicesOnlyOnSecureWifi) {
    core->m_nAccessNoti = 0;
    fake::SetConnection(1, 3, 3);  // WPA2-PSK with AES: the refresh finds it secure
    EXPECT_EQ(Request(Device(0)), 0);
    EXPECT_TRUE(core->m_bSecurity);
    EXPECT_EQ(Launches(), 0u);
    EXPECT_TRUE(CoreLogged("CMD_RequestAccess", "m_bSecurity [1]", DLOG_INFO));
    EXPECT_TRUE(CoreLogged("CMD_RequestAccess", "Security condition accepted. No noti", DLOG_INFO));

    // Not over this TV's access point: asked, and the option is spent.
    Fresh();
    core->m_nAccessNoti = 0;
    core->m_bSecurity = true;
    core->m_nReqOpt = 3;
    EXPECT_EQ(Request(Device(0)), 2);
    EXPECT_EQ(Launches(), 1u);
    EXPECT_EQ(core->m_nReqOpt, 0);
    EXPECT_TRUE(
        CoreLogged("CMD_RequestAccess", "This is not a WIFI session the AP REQOPT[3]", DLOG_WARN));
    EXPECT_TRUE(core->mDeviceList.empty());

    // Without a valid Wi-Fi address the secure network does not vouch for the device.
    Fresh();
    core->m_nAccessNoti = 0;
    core->m_bSecurity = true;
    EXPECT_EQ(Request(Device(0, kBt, "00:00:00:00:00:00")), 2);
    EXPECT_EQ(Launches(), 1u);
}

TEST_F(AccessDecisionTest, TesselModeAndTheAllowedSinceBootList) {
    core->m_nAccessNoti = 2;
    fake::SetFeatureFlag(PXM_TESSEL_FEATURE_KEY, true);
    Store(0, 4);
    EXPECT_EQ(Request(Device(0)), 2);
    EXPECT_EQ(Launches(), 1u);
    EXPECT_TRUE(CoreLogged("is_tessel_mode", "is_tessel status:[1]", DLOG_INFO));
    ASSERT_EQ(fake::Calls("system_info_get_custom_bool").size(), 1u);
    EXPECT_EQ(fake::Calls("system_info_get_custom_bool")[0].args[0], PXM_TESSEL_FEATURE_KEY);

    // A failed query counts as a false flag, whatever the flag would have said.
    Fresh();
    core->m_nAccessNoti = 2;
    fake::SetFeatureFlag(PXM_TESSEL_FEATURE_KEY, true);
    fake::SetResult("system_info_get_custom_bool", -5);
    Store(0, 4);
    EXPECT_EQ(Request(Device(0)), 0);
    EXPECT_EQ(Launches(), 0u);
    EXPECT_TRUE(CoreLogged("is_tessel_mode", "system_info_get_value_bool() fail", DLOG_ERROR));
    EXPECT_TRUE(CoreLogged("is_tessel_mode", "is_tessel status:[0]", DLOG_INFO));
    EXPECT_TRUE(CoreLogged("CMD_RequestAccess",
                           "This device is already allowed [4]times after booting. No UX",
                           DLOG_INFO));

    // A reverse-list request passes on the normal list's record...
    Fresh();
    core->m_nAccessNoti = 2;
    Store(0, 2, PXM_SAVE_NORMAL);
    EXPECT_EQ(Request(Device(0), PXM_SAVE_REVERSE), 0);
    EXPECT_EQ(Launches(), 0u);
    core->DB_WaitForSaves();
    EXPECT_EQ(core->mReverseDeviceList.size(), 1u);
    EXPECT_TRUE(CoreLogged("UTIL_CheckStatus", "Save type = [1]", DLOG_INFO));

    // ...and a count kept only in the reverse list does not let it pass.
    Fresh();
    core->m_nAccessNoti = 2;
    Store(0, 2, PXM_SAVE_REVERSE);
    EXPECT_EQ(Request(Device(0), PXM_SAVE_REVERSE), 2);
    EXPECT_EQ(Launches(), 1u);
    EXPECT_TRUE(CoreLogged("CMD_RequestAccess",
                           "Device status [0] TV state [0] Is AOV activated [0]", DLOG_INFO));
}

TEST_F(AccessDecisionTest, UndecidedRequestPassesThroughAndFailedLaunchGivesMinusOne) {
    Store(0);
    EXPECT_EQ(Request(Device(2)), 2);
    EXPECT_EQ(Launches(), 0u);
    EXPECT_EQ(core->mDeviceList[0].devstatus, 0);
    EXPECT_EQ(core->mDeviceList[0].accessTime, 1234u);

    Fresh();
    core->m_nReqOpt = 1;
    core->m_nUxPid = 77;
    fake::QueueResult("aul_launch_app", -1);
    fake::QueueResult("aul_launch_app", -1);
    EXPECT_EQ(Request(Device(0)), -1);
    EXPECT_EQ(Launches(), 2u);
    EXPECT_EQ(core->m_nUxPid, 0);
    EXPECT_EQ(core->m_nReqOpt, 0);
    EXPECT_TRUE(core->mDeviceList.empty());
}

}  // namespace
