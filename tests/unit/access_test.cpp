// Asking the user: the access-request decision (which requests are stored, which are refused
// by a standing denial, which launch the prompt, and the option spent on it), and the prompt
// application (launching it, telling whether it is on screen, closing a stray one and
// noticing its death) against the fake application manager.
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

// One situation, written as words: m=<mode> (access notification, default 1), s=<verdict>
// (a stored record, none by default), u=<count> (its update count), pw=<state> (power),
// ro=<option> (request option), req=<verdict> (the request's, default 0), and the flags
// voice, tessel, tessel-fails, pnp, secure (already known), wpa (a secure Wi-Fi found on
// refresh), noux, always, badwifi (no usable Wi-Fi address), rev (the request is for the
// reverse list), revstore (the record is stored there), nolaunch (both launches fail).
struct Situation {
    std::string words;
    bool Has(const std::string& flag) const {
        return (" " + words + " ").find(" " + flag + " ") != std::string::npos;
    }
    int Num(const std::string& name, int otherwise = 0) const {
        size_t at = (" " + words).find(" " + name + "=");
        return at == std::string::npos ? otherwise : std::stoi(words.substr(at + name.size() + 1));
    }
};

TEST(AccessDecision, EverySituationGivesItsVerdictPromptAndStoredRecord) {
    // added: the request's list holds the request's verdict afterwards, merged or new;
    // otherwise a stored record is left untouched and nothing else is stored.
    const struct {
        const char* situation;
        int result;
        size_t launches;
        int reqoptAfter;
        bool added;
    } rows[] = {
        // Each mode for new, allowed and denied devices; a standing denial changes nothing.
        {"m=0", 2, 1, 0, false},
        {"m=0 s=0", 0, 0, 0, true},
        {"m=0 s=1 ro=3", 1, 0, 3, false},
        {"m=1", 2, 1, 0, false},
        {"m=1 s=0", 0, 0, 0, true},
        {"m=1 s=1", 1, 0, 0, false},
        {"m=5 s=1 ro=3", 1, 0, 3, false},
        {"m=5", -1, 0, 0, false},
        {"m=5 s=0 u=2", -1, 0, 0, false},
        // Mode 2 asks about known devices only while the TV is fully on without voice, or in
        // tessel mode, unless the device was allowed since boot (a failed query is no tessel).
        {"m=2 pw=2 voice", 2, 1, 0, false},
        {"m=2 s=0", 2, 1, 0, false},
        {"m=2 s=0 pw=2", 0, 0, 0, true},
        {"m=2 s=0 voice", 0, 0, 0, true},
        {"m=2 s=0 u=1", 0, 0, 0, true},
        {"m=2 s=1 u=3", 1, 0, 0, false},
        {"m=2 s=0 u=4 tessel", 2, 1, 0, false},
        {"m=2 s=0 u=4 tessel tessel-fails", 0, 0, 0, true},
        // Allowed since boot is a fact of the normal list, whichever list is asked.
        {"m=2 s=0 u=2 rev", 0, 0, 0, true},
        {"m=2 s=0 u=2 rev revstore", 2, 1, 0, false},
        // A prompt the requester insists on is shown in every mode, even over a denial.
        {"m=0 s=1 ro=3 secure always", 2, 1, 0, false},
        {"m=1 s=1 ro=3 secure always", 2, 1, 0, false},
        {"m=2 s=1 ro=3 secure always", 2, 1, 0, false},
        // A new denial of a denied device is stored silently, not refused.
        {"m=1 s=1 ro=3 req=1", 1, 0, 3, true},
        // The wizard and forced requests store silently and leave the option for later...
        {"pnp ro=3", 0, 0, 3, true},
        {"noux ro=3", 0, 0, 3, true},
        // ...unless the requester insists on the prompt.
        {"pnp noux always ro=3", 2, 1, 0, false},
        {"noux always ro=3", 2, 1, 0, false},
        // Mode 0 stores new devices on a secure Wi-Fi of their own, and only without option.
        {"m=0 wpa", 0, 0, 0, true},
        {"m=0 secure ro=3", 2, 1, 0, false},
        {"m=0 secure badwifi", 2, 1, 0, false},
        // An undecided request passes through; a prompt that cannot be launched fails.
        {"s=0 req=2", 2, 0, 0, false},
        {"ro=1 nolaunch", -1, 2, 0, false},
    };
    CPXMCore* core = CPXMCore::GetInstance();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.situation);
        const Situation s{row.situation};
        const int stored = s.Num("s", -1), updated = s.Num("u"), status = s.Num("req");
        const bool rev = s.Has("rev"), always = s.Has("always");
        core->DB_WaitForSaves();
        fake::Reset();
        core->mDeviceList.clear();
        core->mReverseDeviceList.clear();
        core->m_nAccessNoti = s.Num("m", 1);
        core->m_bPnPStatus = s.Has("pnp");
        core->m_bSecurity = s.Has("secure");
        core->m_nReqOpt = s.Num("ro");
        core->m_bNoDataChanged = false;
        core->m_nUxPid = 77;
        const bool wpa = s.Has("wpa");
        fake::SetConnection(wpa ? 1 : 3, wpa ? 3 : 0, wpa ? 3 : 0);
        fake::SetPowerState(s.Num("pw"));
        fake::SetVoiceActive(s.Has("voice"));
        fake::SetFeatureFlag(PXM_TESSEL_FEATURE_KEY, s.Has("tessel"));
        if (s.Has("tessel-fails")) {
            fake::SetResult("system_info_get_custom_bool", -5);
        }
        if (s.Has("nolaunch")) {
            fake::SetResult("aul_launch_app", -1);
        }
        auto& list = s.Has("revstore") ? core->mReverseDeviceList : core->mDeviceList;
        auto& asked = rev ? core->mReverseDeviceList : core->mDeviceList;
        if (stored >= 0) {
            pxm_core_device_s d = unit::Device("Phone", "AA:BB:CC:DD:EE:01", "AA:BB:CC:DD:EE:02",
                                               "AA:BB:CC:DD:EE:03", stored);
            d.updated = updated;
            d.accessTime = 1234;
            list.push_back(d);
        }
        pxm_core_device_s req =
            unit::Device("Phone", "AA:BB:CC:DD:EE:01",
                         s.Has("badwifi") ? "00:00:00:00:00:00" : "AA:BB:CC:DD:EE:02", "", status);
        req.isNoUX = s.Has("noux");
        req.isUXAlways = always;

        EXPECT_EQ(row.result,
                  core->CMD_RequestAccess(&req, rev ? PXM_SAVE_REVERSE : PXM_SAVE_NORMAL));
        EXPECT_TRUE(unit::LockIsFree(core->mPXMLock));
        core->DB_WaitForSaves();

        EXPECT_EQ(row.launches, fake::CallCount("aul_launch_app"));
        EXPECT_EQ(row.launches > 0, fake::HasLog("NOTI HERE", always ? DLOG_ERROR : DLOG_INFO));
        EXPECT_EQ(row.reqoptAfter, core->m_nReqOpt);
        EXPECT_TRUE(!wpa || core->m_bSecurity);
        // A standing denial says that nothing changed, so that nobody is told.
        EXPECT_TRUE(stored != 1 || row.result != 1 || row.added || core->m_bNoDataChanged);
        const size_t storedBefore = stored >= 0 ? 1 : 0;
        if (row.added) {
            ASSERT_EQ(1u, asked.size());
            EXPECT_EQ(status, asked[0].devstatus);
            EXPECT_NE(1234u, asked[0].accessTime);
            EXPECT_EQ((&list == &asked ? updated : 0) + (status == 0 ? 1 : 0), asked[0].updated);
        } else {
            EXPECT_EQ(storedBefore, core->mDeviceList.size() + core->mReverseDeviceList.size());
            if (storedBefore == 1) {
                EXPECT_EQ(stored, list[0].devstatus);
                EXPECT_EQ(1234u, list[0].accessTime);
            }
        }
    }
}

using Names = std::vector<std::string>;

// The device goes over in eleven keys; a failed launch is retried once, and a second failure
// leaves no pid behind. While our prompt runs another is refused; a prompt this process did
// not start is closed (the match on its name is lenient: a prefix of ours counts); the death
// of ours clears its pid.
TEST(UserPrompt, LaunchOnScreenCheckAndDeathOfThePrompt) {
    CPXMCore* core = CPXMCore::GetInstance();
    fake::Reset();
    pxm_core_device_s d =
        unit::Device("Living room tablet", "AA:BB:CC:DD:EE:01", "aa:bb:cc:dd:ee:02", "0", 2);
    strcpy(d.zel_id, "zel-7");
    strcpy(d.mirroring_Id, "mir-9");
    d.devtype = 1234567;  // cut to 6 characters
    d.devicon = -1234567;
    d.tvInitMirroringSupport = d.isUXAlways = 1;
    fake::QueueResult("aul_launch_app", -4);
    ASSERT_TRUE(core->INTERNAL_AskUser(&d));
    std::string bundle;
    for (const auto& [key, value] : fake::LastLaunchBundle()) {
        bundle += key + "=" + value + ";";
    }
    EXPECT_EQ(
        "DEVICENAME=Living room tablet;BTMAC=AA:BB:CC:DD:EE:01;WIFIMAC=aa:bb:cc:dd:ee:02;"
        "P2PMAC=0;DEVTYPE=123456;DEVICON=-12345;MIRRORINGSUPPORT=1;NOUX=0;UXALWAYS=1;"
        "MIRRORINGID=mir-9;ZELID=zel-7;",
        bundle);
    EXPECT_EQ((Names{PXM_UX_APP_ID, PXM_UX_APP_ID}), unit::FirstArgs("aul_launch_app"));
    EXPECT_EQ(1u, fake::CallCount("bundle_free"));
    const int pid = core->m_nUxPid;
    EXPECT_GT(pid, 0);
    EXPECT_TRUE(core->UTIL_CheckUXDisplay());
    EXPECT_EQ(pid, core->m_nUxPid);
    EXPECT_TRUE(unit::FirstArgs("aul_terminate_pid").empty());

    fake::QueueResult("aul_launch_app", -1);
    fake::QueueResult("aul_launch_app", -3);
    EXPECT_FALSE(core->INTERNAL_AskUser(&d));
    EXPECT_EQ(0, core->m_nUxPid);
    EXPECT_EQ(4u, fake::CallCount("aul_launch_app"));  // two for each prompt
    EXPECT_EQ(2u, fake::CallCount("bundle_free"));
    EXPECT_FALSE(core->UTIL_CheckUXDisplay());

    fake::Reset();
    core->m_nUxPid = -4;  // a launch error left behind is no pid of ours
    fake::AddRunningApp(610, "org.other.player");
    fake::AddRunningApp(620, PXM_UX_APP_ID);
    EXPECT_FALSE(core->UTIL_CheckUXDisplay());
    EXPECT_EQ(Names{"620"}, unit::FirstArgs("aul_terminate_pid"));
    EXPECT_EQ(0, core->m_nUxPid);
    for (const auto& [name, match] : {std::pair<std::string, bool>{PXM_UX_APP_ID, true},
                                      {"org.nuvak", true},
                                      {"org.nuvak.quillon-ux.helper", false},
                                      {"com.other", false}}) {
        SCOPED_TRACE("name \"" + name + "\"");
        fake::ClearJournal();
        std::string pkg = name;
        aul_app_info info{};
        info.pid = 900;
        info.pkg_name = pkg.data();
        EXPECT_EQ(0, CPXMCore::INTERNAL_UxTerminate(&info, nullptr));
        EXPECT_EQ(match ? Names{"900"} : Names{}, unit::FirstArgs("aul_terminate_pid"));
    }

    fake::AddRunningApp(640, PXM_UX_APP_ID);
    core->m_nUxPid = 640;
    EXPECT_EQ(0, CPXMCore::INTERNAL_UxDeadCallBack(610, core));
    EXPECT_EQ(640, core->m_nUxPid);
    EXPECT_EQ(1, CPXMCore::INTERNAL_UxDeadCallBack(640, core));
    EXPECT_EQ(0, core->m_nUxPid);
}

}  // namespace
