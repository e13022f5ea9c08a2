// The access-request decision against the fake platform: which requests are stored, which
// are refused by a standing denial, which launch the prompt, and the option spent on it.
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "CPXMCore.h"
#include "dlog.h"
#include "fake_platform.h"
#include "unit_support.h"

namespace {

// One situation, written as words: m<mode> (access notification, default 1), s<verdict>
// (a stored record, none by default), u<count> (its update count), pw<state> (power),
// ro<option> (request option), req<verdict> (the request's, default 0), and the flags
// voice, tessel, tessel-fails, pnp, secure (already known), wpa (a secure Wi-Fi found on
// refresh), noux, always, badwifi (no usable Wi-Fi address), rev (the request is for the
// reverse list), revstore (the record is stored there), nolaunch (both launches fail).
struct Situation {
    int mode = 1, stored = -1, updated = 0, power = 0, reqopt = 0, status = 0;
    bool voice = false, tessel = false, tesselFails = false, pnp = false, secure = false,
         wpa = false, noux = false, always = false, badwifi = false, rev = false, revstore = false,
         nolaunch = false;

    explicit Situation(const std::string& words) {
        std::istringstream in(words);
        for (std::string w; in >> w;) {
            auto num = [&w](size_t at) { return std::stoi(w.substr(at)); };
            bool* flag = w == "voice"          ? &voice
                         : w == "tessel"       ? &tessel
                         : w == "tessel-fails" ? &tesselFails
                         : w == "pnp"          ? &pnp
                         : w == "secure"       ? &secure
                         : w == "wpa"          ? &wpa
                         : w == "noux"         ? &noux
                         : w == "always"       ? &always
                         : w == "badwifi"      ? &badwifi
                         : w == "rev"          ? &rev
                         : w == "revstore"     ? &revstore
                         : w == "nolaunch"     ? &nolaunch
                                               : nullptr;
            if (flag != nullptr) {
                *flag = true;
            } else if (w.rfind("req", 0) == 0) {
                status = num(3);
            } else if (w.rfind("ro", 0) == 0) {
                reqopt = num(2);
            } else if (w.rfind("pw", 0) == 0) {
                power = num(2);
            } else if (w[0] == 'm' || w[0] == 's' || w[0] == 'u') {
                (w[0] == 'm' ? mode : w[0] == 's' ? stored : updated) = num(1);
            } else {
                ADD_FAILURE() << "unknown word " << w;
            }
        }
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
        {"m0", 2, 1, 0, false},
        {"m0 s0", 0, 0, 0, true},
        {"m0 s1 ro3", 1, 0, 3, false},
        {"m1", 2, 1, 0, false},
        {"m1 s0", 0, 0, 0, true},
        {"m1 s1", 1, 0, 0, false},
        {"m5 s1 ro3", 1, 0, 3, false},
        {"m5", -1, 0, 0, false},
        {"m5 s0 u2", -1, 0, 0, false},
        // Mode 2 asks about known devices only while the TV is fully on without voice, or in
        // tessel mode, unless the device was allowed since boot (a failed query is no tessel).
        {"m2 pw2 voice", 2, 1, 0, false},
        {"m2 s0", 2, 1, 0, false},
        {"m2 s0 pw2", 0, 0, 0, true},
        {"m2 s0 voice", 0, 0, 0, true},
        {"m2 s0 u1", 0, 0, 0, true},
        {"m2 s1 u3", 1, 0, 0, false},
        {"m2 s0 u4 tessel", 2, 1, 0, false},
        {"m2 s0 u4 tessel tessel-fails", 0, 0, 0, true},
        // Allowed since boot is a fact of the normal list, whichever list is asked.
        {"m2 s0 u2 rev", 0, 0, 0, true},
        {"m2 s0 u2 rev revstore", 2, 1, 0, false},
        // A prompt the requester insists on is shown in every mode, even over a denial.
        {"m0 s1 ro3 secure always", 2, 1, 0, false},
        {"m1 s1 ro3 secure always", 2, 1, 0, false},
        {"m2 s1 ro3 secure always", 2, 1, 0, false},
        // A new denial of a denied device is stored silently, not refused.
        {"m1 s1 ro3 req1", 1, 0, 3, true},
        // The wizard and forced requests store silently and leave the option for later...
        {"pnp ro3", 0, 0, 3, true},
        {"noux ro3", 0, 0, 3, true},
        // ...unless the requester insists on the prompt.
        {"pnp noux always ro3", 2, 1, 0, false},
        {"noux always ro3", 2, 1, 0, false},
        // Mode 0 stores new devices on a secure Wi-Fi of their own, and only without option.
        {"m0 wpa", 0, 0, 0, true},
        {"m0 secure ro3", 2, 1, 0, false},
        {"m0 secure badwifi", 2, 1, 0, false},
        // An undecided request passes through; a prompt that cannot be launched fails.
        {"s0 req2", 2, 0, 0, false},
        {"ro1 nolaunch", -1, 2, 0, false},
    };
    CPXMCore* core = CPXMCore::GetInstance();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.situation);
        const Situation s(row.situation);
        core->DB_WaitForSaves();
        fake::Reset();
        core->mDeviceList.clear();
        core->mReverseDeviceList.clear();
        core->m_nAccessNoti = s.mode;
        core->m_bPnPStatus = s.pnp;
        core->m_bSecurity = s.secure;
        core->m_nReqOpt = s.reqopt;
        core->m_bNoDataChanged = false;
        core->m_nUxPid = 77;
        fake::SetConnection(s.wpa ? 1 : 3, s.wpa ? 3 : 0, s.wpa ? 3 : 0);
        fake::SetPowerState(s.power);
        fake::SetVoiceActive(s.voice);
        fake::SetFeatureFlag(PXM_TESSEL_FEATURE_KEY, s.tessel);
        if (s.tesselFails) {
            fake::SetResult("system_info_get_custom_bool", -5);
        }
        if (s.nolaunch) {
            fake::SetResult("aul_launch_app", -1);
        }
        auto& stored = s.revstore ? core->mReverseDeviceList : core->mDeviceList;
        auto& asked = s.rev ? core->mReverseDeviceList : core->mDeviceList;
        if (s.stored >= 0) {
            pxm_core_device_s d = unit::Device("Phone", "AA:BB:CC:DD:EE:01", "AA:BB:CC:DD:EE:02",
                                               "AA:BB:CC:DD:EE:03", s.stored);
            d.updated = s.updated;
            d.accessTime = 1234;
            stored.push_back(d);
        }
        pxm_core_device_s req =
            unit::Device("Phone", "AA:BB:CC:DD:EE:01",
                         s.badwifi ? "00:00:00:00:00:00" : "AA:BB:CC:DD:EE:02", "", s.status);
        req.isNoUX = s.noux;
        req.isUXAlways = s.always;

        EXPECT_EQ(row.result,
                  core->CMD_RequestAccess(&req, s.rev ? PXM_SAVE_REVERSE : PXM_SAVE_NORMAL));
        EXPECT_TRUE(unit::LockIsFree(core->mPXMLock));
        core->DB_WaitForSaves();

        EXPECT_EQ(row.launches, fake::CallCount("aul_launch_app"));
        EXPECT_EQ(row.launches > 0, fake::HasLog("NOTI HERE", s.always ? DLOG_ERROR : DLOG_INFO));
        EXPECT_EQ(row.reqoptAfter, core->m_nReqOpt);
        if (s.nolaunch) {
            EXPECT_EQ(0, core->m_nUxPid);
        }
        if (s.wpa) {
            EXPECT_TRUE(core->m_bSecurity);
        }
        // A standing denial says that nothing changed, so that nobody is told.
        if (s.stored == 1 && row.result == 1 && !row.added) {
            EXPECT_TRUE(core->m_bNoDataChanged);
        }
        const size_t storedBefore = s.stored >= 0 ? 1 : 0;
        if (row.added) {
            ASSERT_EQ(1u, asked.size());
            EXPECT_EQ(s.status, asked[0].devstatus);
            EXPECT_NE(1234u, asked[0].accessTime);
            EXPECT_EQ((&stored == &asked ? s.updated : 0) + (s.status == 0 ? 1 : 0),
                      asked[0].updated);
        } else {
            EXPECT_EQ(storedBefore, core->mDeviceList.size() + core->mReverseDeviceList.size());
            if (storedBefore == 1) {
                EXPECT_EQ(s.stored, stored[0].devstatus);
                EXPECT_EQ(1234u, stored[0].accessTime);
            }
        }
    }
}

}  // namespace
