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

using Entries = std::vector<std::pair<std::string, std::string>>;

bool LoggedAt(const std::string& text, int level) {
    return fake::HasLog("> " + text, level, "PXM_CORE");
}

std::vector<std::string> TerminatedPids() {
    return unit::FirstArgs("aul_terminate_pid");
}

class UserPromptTest : public ::testing::Test {
protected:
    void SetUp() override {
        fake::Reset();
        core->m_nUxPid = 0;
    }

    CPXMCore* core = CPXMCore::GetInstance();
};

TEST_F(UserPromptTest, LaunchHandsTheDeviceOverInElevenKeys) {
    pxm_core_device_s d{};
    strcpy(d.devname, "Living room tablet");
    strcpy(d.bt_mac, "AA:BB:CC:DD:EE:01");
    strcpy(d.wifi_mac, "aa:bb:cc:dd:ee:02");
    strcpy(d.p2p_mac, "0");
    strcpy(d.zel_id, "zel-7");
    strcpy(d.mirroring_Id, "mir-9");
    d.devtype = 1234567;  // cut to 6 characters
    d.devicon = -1234567;
    d.tvInitMirroringSupport = 1;
    d.isNoUX = 0;
    d.isUXAlways = 1;
    d.devstatus = 2;
    d.dy_type = 5;

    ASSERT_TRUE(core->INTERNAL_AskUser(&d));
    const Entries expected = {
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
    EXPECT_EQ(fake::LastLaunchBundle(), expected);
    ASSERT_EQ(fake::Calls("aul_launch_app").size(), 1u);
    EXPECT_EQ(fake::Calls("aul_launch_app")[0].args.at(0), PXM_UX_APP_ID);
    EXPECT_EQ(fake::CallCount("bundle_free"), 1u);
    EXPECT_GT(core->m_nUxPid, 0);
    EXPECT_TRUE(LoggedAt(
        "First attempt success. PXM UX Noti called PID[" + std::to_string(core->m_nUxPid) + "]",
        DLOG_WARN));
}

TEST_F(UserPromptTest, LaunchIsRetriedExactlyOnce) {
    pxm_core_device_s d{};
    fake::QueueResult("aul_launch_app", -4);
    ASSERT_TRUE(core->INTERNAL_AskUser(&d));
    EXPECT_EQ(fake::CallCount("aul_launch_app"), 2u);
    EXPECT_GT(core->m_nUxPid, 0);
    EXPECT_TRUE(LoggedAt(
        "First attempt to launch failed. PXM UX Noti failed : Error[-4]. Trying Second time",
        DLOG_ERROR));
    EXPECT_TRUE(LoggedAt(
        "Second attempt success. PXM UX Noti called PID[" + std::to_string(core->m_nUxPid) + "]",
        DLOG_WARN));

    fake::Reset();
    core->m_nUxPid = 77;
    fake::QueueResult("aul_launch_app", -1);
    fake::QueueResult("aul_launch_app", -3);
    EXPECT_FALSE(core->INTERNAL_AskUser(&d));
    EXPECT_EQ(fake::CallCount("aul_launch_app"), 2u);
    EXPECT_EQ(core->m_nUxPid, 0);
    EXPECT_EQ(fake::CallCount("bundle_free"), 1u);
    EXPECT_TRUE(
        LoggedAt("Second attempt to launch failed. PXM UX Noti failed PID[-3].", DLOG_ERROR));

    fake::Reset();
    fake::SetResult("bundle_create", -1);
    EXPECT_FALSE(core->INTERNAL_AskUser(&d));
    EXPECT_EQ(fake::CallCount("aul_launch_app"), 0u);
    EXPECT_TRUE(LoggedAt("PXM UX BUNDLE CREATION ERROR", DLOG_ERROR));
}

TEST_F(UserPromptTest, CheckUXDisplayRefusesOnlyWhileOurPromptRuns) {
    // Nothing running: no enumeration, nothing closed.
    EXPECT_FALSE(core->UTIL_CheckUXDisplay());
    EXPECT_EQ(fake::CallCount("aul_app_get_running_app_info"), 0u);

    // Our own prompt.
    pxm_core_device_s d{};
    ASSERT_TRUE(core->INTERNAL_AskUser(&d));
    const int pid = core->m_nUxPid;
    EXPECT_TRUE(core->UTIL_CheckUXDisplay());
    EXPECT_EQ(core->m_nUxPid, pid);
    EXPECT_TRUE(LoggedAt("UX already Displaying [ " + std::to_string(pid) + " ]", DLOG_ERROR));
    EXPECT_TRUE(TerminatedPids().empty());

    // A prompt that this process did not start is closed; other apps are left alone.
    fake::Reset();
    core->m_nUxPid = -4;  // a launch error left behind is no pid of ours
    fake::AddRunningApp(610, "org.other.player");
    fake::AddRunningApp(620, PXM_UX_APP_ID);
    EXPECT_FALSE(core->UTIL_CheckUXDisplay());
    EXPECT_EQ(TerminatedPids(), std::vector<std::string>{"620"});
    EXPECT_TRUE(LoggedAt("Unexpected UX status. Close UX", DLOG_ERROR));
    EXPECT_EQ(core->m_nUxPid, 0);

    fake::Reset();
    fake::AddRunningApp(620, PXM_UX_APP_ID);
    fake::SetResult("aul_app_get_running_app_info", -1);
    EXPECT_FALSE(core->UTIL_CheckUXDisplay());
    EXPECT_TRUE(LoggedAt("Unexpected UX status. Close error", DLOG_ERROR));
}

TEST_F(UserPromptTest, StrayPromptMatchIsLenient) {
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
        EXPECT_EQ(CPXMCore::INTERNAL_UxTerminate(&info, nullptr), 0);
        EXPECT_EQ(TerminatedPids(),
                  match ? std::vector<std::string>{"900"} : std::vector<std::string>{});
        EXPECT_TRUE(LoggedAt("PID[900] PKG[" + name + "]", DLOG_INFO));
        EXPECT_EQ(LoggedAt(std::string("[") + PXM_UX_APP_ID +
                               "] package found and terminated PID = [900]",
                           DLOG_ERROR),
                  match);
    }
}

TEST_F(UserPromptTest, DeathOfOurPromptClearsItsPid) {
    fake::AddRunningApp(640, PXM_UX_APP_ID);
    fake::AddRunningApp(650, "org.other.player");
    core->m_nUxPid = 640;

    EXPECT_EQ(CPXMCore::INTERNAL_UxDeadCallBack(650, core), 0);
    EXPECT_EQ(core->m_nUxPid, 640);
    EXPECT_FALSE(fake::HasLog("UX Terminated"));

    EXPECT_EQ(CPXMCore::INTERNAL_UxDeadCallBack(640, core), 1);
    EXPECT_EQ(core->m_nUxPid, 0);
    EXPECT_TRUE(LoggedAt(std::string("UX Terminated >>> 640 [") + PXM_UX_APP_ID + "]", DLOG_INFO));
    const std::vector<fake::Call> lookups = fake::Calls("aul_app_get_pkgname_bypid");
    ASSERT_EQ(lookups.size(), 2u);
    EXPECT_EQ(lookups[1].args.at(0), "640");
    EXPECT_EQ(lookups[1].args.back(), "256");
}

}  // namespace
