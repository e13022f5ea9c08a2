// Launching the prompt application, telling whether it is on screen, closing a stray one
// and noticing its death, against the fake application manager.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "CPXMCore.h"
#include "dlog.h"
#include "fake_platform.h"
#include "unit_support.h"

namespace {

using Names = std::vector<std::string>;

bool LoggedAt(const std::string& text, int level) {
    return fake::HasLog("> " + text, level, "PXM_CORE");
}

class UserPromptTest : public ::testing::Test {
protected:
    void SetUp() override {
        fake::Reset();
        core->m_nUxPid = 0;
    }
    CPXMCore* core = CPXMCore::GetInstance();
};

// The device goes over in eleven keys; a failed launch is retried once, and a second
// failure leaves no pid behind.
TEST_F(UserPromptTest, LaunchHandsTheDeviceOverInElevenKeysAndIsRetriedOnce) {
    pxm_core_device_s d =
        unit::Device("Living room tablet", "AA:BB:CC:DD:EE:01", "aa:bb:cc:dd:ee:02", "0", 2);
    strcpy(d.zel_id, "zel-7");
    strcpy(d.mirroring_Id, "mir-9");
    d.devtype = 1234567;  // cut to 6 characters
    d.devicon = -1234567;
    d.tvInitMirroringSupport = 1;
    d.isUXAlways = 1;
    fake::QueueResult("aul_launch_app", -4);
    ASSERT_TRUE(core->INTERNAL_AskUser(&d));
    const std::vector<std::pair<std::string, std::string>> expected = {
        {"DEVICENAME", "Living room tablet"},
        {"BTMAC", "AA:BB:CC:DD:EE:01"},
        {"WIFIMAC", "aa:bb:cc:dd:ee:02"},
        {"P2PMAC", "0"},
        {"DEVTYPE", "123456"},
        {"DEVICON", "-12345"},
        {"MIRRORINGSUPPORT", "1"},
        {"NOUX", "0"},
        {"UXALWAYS", "1"},
        {"MIRRORINGID", "mir-9"},
        {"ZELID", "zel-7"},
    };
    EXPECT_EQ(expected, fake::LastLaunchBundle());
    EXPECT_EQ((Names{PXM_UX_APP_ID, PXM_UX_APP_ID}), unit::FirstArgs("aul_launch_app"));
    EXPECT_EQ(1u, fake::CallCount("bundle_free"));
    EXPECT_GT(core->m_nUxPid, 0);
    EXPECT_TRUE(LoggedAt(
        "Second attempt success. PXM UX Noti called PID[" + std::to_string(core->m_nUxPid) + "]",
        DLOG_WARN));

    fake::Reset();
    core->m_nUxPid = 77;
    fake::QueueResult("aul_launch_app", -1);
    fake::QueueResult("aul_launch_app", -3);
    EXPECT_FALSE(core->INTERNAL_AskUser(&d));
    EXPECT_EQ(2u, fake::CallCount("aul_launch_app"));
    EXPECT_EQ(0, core->m_nUxPid);
    EXPECT_EQ(1u, fake::CallCount("bundle_free"));
}

TEST_F(UserPromptTest, CheckUXDisplayRefusesOnlyWhileOurPromptRunsAndClosesAStrayOne) {
    EXPECT_FALSE(core->UTIL_CheckUXDisplay());
    pxm_core_device_s d{};
    ASSERT_TRUE(core->INTERNAL_AskUser(&d));
    const int pid = core->m_nUxPid;
    EXPECT_TRUE(core->UTIL_CheckUXDisplay());
    EXPECT_EQ(pid, core->m_nUxPid);
    EXPECT_TRUE(LoggedAt("UX already Displaying [ " + std::to_string(pid) + " ]", DLOG_ERROR));
    EXPECT_TRUE(unit::FirstArgs("aul_terminate_pid").empty());

    // A prompt that this process did not start is closed; other apps are left alone.
    fake::Reset();
    core->m_nUxPid = -4;  // a launch error left behind is no pid of ours
    fake::AddRunningApp(610, "org.other.player");
    fake::AddRunningApp(620, PXM_UX_APP_ID);
    EXPECT_FALSE(core->UTIL_CheckUXDisplay());
    EXPECT_EQ(Names{"620"}, unit::FirstArgs("aul_terminate_pid"));
    EXPECT_EQ(0, core->m_nUxPid);

    // The match on the package name is lenient: a prefix of ours, even an empty one, counts.
    const std::pair<std::string, bool> names[] = {
        {PXM_UX_APP_ID, true},
        {"org.nuvak", true},
        {"", true},
        {"org.nuvak.quillon-ux.helper", false},
        {"org.nuvak.quillon-uy", false},
        {"com.other", false},
    };
    for (const auto& [name, match] : names) {
        SCOPED_TRACE("name \"" + name + "\"");
        fake::Reset();
        std::string pkg = name;
        aul_app_info info{};
        info.pid = 900;
        info.pkg_name = pkg.data();
        EXPECT_EQ(0, CPXMCore::INTERNAL_UxTerminate(&info, nullptr));
        EXPECT_EQ(match ? Names{"900"} : Names{}, unit::FirstArgs("aul_terminate_pid"));
    }
}

TEST_F(UserPromptTest, DeathOfOurPromptClearsItsPid) {
    fake::AddRunningApp(640, PXM_UX_APP_ID);
    fake::AddRunningApp(650, "org.other.player");
    core->m_nUxPid = 640;
    EXPECT_EQ(0, CPXMCore::INTERNAL_UxDeadCallBack(650, core));
    EXPECT_EQ(640, core->m_nUxPid);
    EXPECT_EQ(1, CPXMCore::INTERNAL_UxDeadCallBack(640, core));
    EXPECT_EQ(0, core->m_nUxPid);
    EXPECT_TRUE(LoggedAt(std::string("UX Terminated >>> 640 [") + PXM_UX_APP_ID + "]", DLOG_INFO));
}

}  // namespace
