// The access request and the prompt's answer over the bus: the verdict in the reply, the
// signal after it, the pending prompt and its timer, the reverse list that announces
// nothing, and what each answer of the prompt stores, announces and does to the timer.
#include <gtest/gtest.h>

#include "dlog.h"
#include "fake_platform.h"
#include "handler_bus.h"

namespace {

using handler_bus::MacInd;
using handler_bus::MacIndValue;
using handler_bus::Request;

const char kBt[] = "AA:BB:CC:DD:EE:01";
const char kWifi[] = "AA:BB:CC:DD:EE:02";
using handler_bus::kGet;
using handler_bus::kSet;

Request Forced(int status = 0) {
    Request r;
    r.bt = kBt;
    r.wifi = kWifi;
    r.status = status;
    r.no_ux = 1;
    return r;
}

class Handlers : public handler_bus::HandlerTest {
protected:
    // A device asked about: the prompt was launched and the answer is awaited.
    void Ask() {
        Start();
        Request ask;
        ask.name = "Tablet";
        ask.bt = kBt;
        EXPECT_EQ("(2,)", client.Call(kSet, "pxm_request_access", ask.Variant()));
        EXPECT_GT(core->m_nUxPid, 0);
        timer = server->m_nUxTimerId;
        EXPECT_NE(0u, timer);
        fake::ClearJournal();
    }
    std::string Feedback(int status) {
        Request r;
        r.name = "Tablet";
        r.bt = kBt;
        r.zel_id = "zel-5";
        r.status = status;
        r.tv_init = 1;
        return client.Call(PXM_DBUS_UX_INTERFACE, "pxm_feedback_ux", r.Variant());
    }
    std::vector<std::string> StatusSignals() { return SignalBodies(); }

    guint timer = 0;
};

TEST_F(Handlers, WithoutARegistryEveryMethodAnswersItsFailureCodeOrNothing) {
    EXPECT_EQ("(-1,)", client.Call(kSet, "pxm_request_access", Forced().Variant()));
    EXPECT_EQ("(-1,)", client.Call(kSet, "pxm_request_access_reverse", Forced().Variant()));
    EXPECT_EQ(2u, fake::CountLogs("[DBusServer] PXMCore is not running"));
    EXPECT_TRUE(fake::HasLog("pxmDBusServer: pxm_request_access_reverse(", DLOG_ERROR, "PXM_LOG"));
    EXPECT_EQ("(0,)", client.Call(kSet, "pxm_set_status", MacIndValue(kBt, 1, 1)));
    EXPECT_TRUE(fake::HasLog("[DBusServer] pxm_set_status called.Return value [0] "));
    EXPECT_EQ("(0,)",
              client.Call(kSet, "pxm_set_tv_init_mirroring_status", MacIndValue(kBt, 1, 1)));
    EXPECT_EQ("(0,)", client.Call(kSet, "pxm_set_device_extended_param_string",
                                  g_variant_new("(sisi)", kBt, 1, "New", 1)));

    // The queries are left unanswered.
    client.Send(kGet, "pxm_get_list", nullptr);
    client.Send(kGet, "pxm_get_device", MacInd(kBt, 1));
    client.Send(kGet, "pxm_get_list_reverse", nullptr);
    // Answered, so the three before it have been handled.
    EXPECT_EQ("(-1,)", client.Call(kGet, "pxm_get_status", MacInd(kBt, 1)));
    client.Flush();
    for (const char* method : {"pxm_get_list", "pxm_get_device", "pxm_get_list_reverse"}) {
        EXPECT_EQ(-1, client.IndexOf("reply", method)) << method;
        EXPECT_EQ(-1, client.IndexOf("error", method)) << method;
    }
    EXPECT_TRUE(fake::HasLog("[DBusServer] pxm_get_device called. MAC [AA:BB:CC:DD:EE:01](1)"));
    EXPECT_TRUE(client.Signals().empty());
}

TEST_F(Handlers, AForcedVerdictIsStoredLoggedAndAnnouncedOnceOnly) {
    Start();
    EXPECT_EQ("(0,)", client.Call(kSet, "pxm_request_access", Forced().Variant()));
    // The empty P2P address goes out as the placeholder.
    EXPECT_EQ(std::vector<std::string>{"('AA:BB:CC:DD:EE:01', 'AA:BB:CC:DD:EE:02', '0', 0)"},
              StatusSignals());
    core->DB_WaitForSaves();
    ASSERT_EQ(1u, core->mDeviceList.size());
    EXPECT_STREQ(kBt, core->mDeviceList[0].bt_mac);
    EXPECT_TRUE(fake::HasLog("pxmDBusServer: pxm_request_access(", DLOG_INFO, "PXM_LOG"));
    EXPECT_TRUE(
        fake::HasLog("[DBusServer] NAME[Phone] BT[AA:BB:CC:DD:EE:01] "
                     "WIFI[AA:BB:CC:DD:EE:02] P2P[] ZEL_ID[] MIRRORING_ID[] DEVTYPE[1] "
                     "DEVICON[2] STATUS[0] TVINITMIRRSUPPORT[0] ISNOUX[1] ISUXALWAYS[0]",
                     DLOG_INFO));
    EXPECT_TRUE(fake::HasLog("Device status : [0]", DLOG_INFO, "PXM_LOG"));
    EXPECT_TRUE(
        fake::HasLog("[DBusServer] [NOTI] DEVICE Registered with status[0]", DLOG_WARN, "PXM_LOG"));
    EXPECT_EQ(0u, server->m_nUxTimerId);

    // The same device again changes nothing worth a signal, and the flag is consumed.
    client.ClearEvents();
    EXPECT_EQ("(0,)", client.Call(kSet, "pxm_request_access", Forced().Variant()));
    EXPECT_TRUE(StatusSignals().empty());
    EXPECT_TRUE(fake::HasLog("[DBusServer] No data changed, no CALLBACK", DLOG_WARN, "PXM_LOG"));
    EXPECT_FALSE(core->m_bNoDataChanged);
    core->DB_WaitForSaves();
    EXPECT_EQ(1u, core->mDeviceList.size());
}

TEST_F(Handlers, ANewDeviceIsAskedAboutAndASecondRequestMeanwhileIsRefused) {
    Start();
    Request ask;
    ask.name = "Tablet";
    ask.bt = kBt;
    ask.zel_id = "zel-7";
    EXPECT_EQ("(2,)", client.Call(kSet, "pxm_request_access", ask.Variant()));
    EXPECT_TRUE(StatusSignals().empty());
    EXPECT_TRUE(core->mDeviceList.empty());
    EXPECT_EQ(1u, fake::CallCount("aul_launch_app"));
    EXPECT_TRUE(fake::HasLog("[DBusServer] Undecided", DLOG_INFO, "PXM_LOG"));
    // The request waits as the pending prompt, undecided, guarded by the timer.
    EXPECT_STREQ("Tablet", server->m_UxPendingDevice.devname);
    EXPECT_STREQ(kBt, server->m_UxPendingDevice.bt_mac);
    EXPECT_STREQ("zel-7", server->m_UxPendingDevice.zel_id);
    EXPECT_EQ(2, server->m_UxPendingDevice.devstatus);
    guint armed = server->m_nUxTimerId;
    EXPECT_NE(nullptr, g_main_context_find_source_by_id(nullptr, armed));
    EXPECT_TRUE(fake::HasLog("\t\t\t [UXTIMER #" + std::to_string(armed) +
                             "] New TimerCallback Registered"));

    // The prompt is on screen: another device is turned away and the wait is left alone.
    Request other;
    other.name = "Laptop";
    other.bt = "AA:BB:CC:DD:EE:31";
    other.no_ux = 1;
    EXPECT_EQ("(-1,)", client.Call(kSet, "pxm_request_access", other.Variant()));
    EXPECT_EQ("(-1,)", client.Call(kSet, "pxm_request_access_reverse", other.Variant()));
    EXPECT_TRUE(StatusSignals().empty());
    EXPECT_STREQ("Tablet", server->m_UxPendingDevice.devname);
    EXPECT_EQ(armed, server->m_nUxTimerId);
    EXPECT_TRUE(core->mDeviceList.empty());
    EXPECT_TRUE(core->mReverseDeviceList.empty());
    EXPECT_EQ(1u, fake::CallCount("aul_launch_app"));
    EXPECT_TRUE(fake::HasLog("UX already Displaying"));
}

TEST_F(Handlers, AFailedPromptLaunchIsAnUnexpectedStatusWithNothingKept) {
    Start();
    fake::SetResult("aul_launch_app", -1);
    Request ask;
    ask.bt = kBt;
    EXPECT_EQ("(-1,)", client.Call(kSet, "pxm_request_access", ask.Variant()));
    EXPECT_TRUE(fake::HasLog("[DBusServer] Unexpected Status[-1]", DLOG_ERROR, "PXM_LOG"));
    EXPECT_TRUE(StatusSignals().empty());
    EXPECT_EQ(0u, server->m_nUxTimerId);
    EXPECT_EQ(0, server->m_UxPendingDevice.bt_mac[0]);
    EXPECT_TRUE(core->mDeviceList.empty());
}

TEST_F(Handlers, TheReverseListIsDecidedButNeitherAnnouncedNorWaitedFor) {
    Start();
    EXPECT_EQ("(0,)", client.Call(kSet, "pxm_request_access_reverse", Forced().Variant()));
    core->DB_WaitForSaves();
    ASSERT_EQ(1u, core->mReverseDeviceList.size());
    EXPECT_TRUE(core->mDeviceList.empty());

    // Undecided on the reverse list: the prompt is launched, but nothing waits for it.
    Request ask;
    ask.bt = "AA:BB:CC:DD:EE:41";
    EXPECT_EQ("(2,)", client.Call(kSet, "pxm_request_access_reverse", ask.Variant()));
    EXPECT_TRUE(StatusSignals().empty());
    EXPECT_EQ(0u, server->m_nUxTimerId);
    EXPECT_EQ(0, server->m_UxPendingDevice.devstatus);
    EXPECT_EQ(0, server->m_UxPendingDevice.bt_mac[0]);
    EXPECT_FALSE(fake::HasLog("[DBusServer] Undecided"));
    EXPECT_FALSE(fake::HasLog("[DBusServer] [NOTI]"));
    EXPECT_TRUE(fake::HasLog("pxmDBusServer: pxm_request_access_reverse(", DLOG_INFO, "PXM_LOG"));
    EXPECT_TRUE(fake::HasLog("Device status : [2]"));
}

TEST_F(Handlers, AnAllowIsStoredAnnouncedAndStopsTheTimer) {
    Ask();
    EXPECT_EQ("()", Feedback(0));
    EXPECT_EQ(std::vector<std::string>{"('AA:BB:CC:DD:EE:01', '0', '0', 0)"}, StatusSignals());
    core->DB_WaitForSaves();
    ASSERT_EQ(1u, core->mDeviceList.size());
    EXPECT_STREQ("Tablet", core->mDeviceList[0].devname);
    EXPECT_STREQ("zel-5", core->mDeviceList[0].zel_id);
    EXPECT_EQ(0, core->mDeviceList[0].devstatus);
    EXPECT_EQ(0, core->m_nUxPid);
    EXPECT_EQ(0u, server->m_nUxTimerId);
    EXPECT_EQ(nullptr, g_main_context_find_source_by_id(nullptr, timer));
    EXPECT_EQ(0, server->m_UxPendingDevice.devstatus);
    EXPECT_EQ(0, server->m_UxPendingDevice.bt_mac[0]);
    // Allowed devices may wake the TV.
    EXPECT_EQ(std::vector<std::string>{kBt}, fake::HeadlessTable());
    EXPECT_TRUE(
        fake::HasLog("[DBusServer] [NOTI] DEVICE ADDED BY USER SELECTED", DLOG_WARN, "PXM_LOG"));
    EXPECT_TRUE(fake::HasLog(
        "[DBusServer] pxm_feedback_ux called. DeviceName[Tablet] BT[AA:BB:CC:DD:EE:01] WIFI[] "
        "P2P[] ZelID[zel-5] MirroringId[] Type[1] Icon[2] Status[0] tvInitMirroringSupport[1] "
        "isNoUX[0] isUXAlways[0]",
        DLOG_INFO, "PXM_LOG"));
    EXPECT_TRUE(
        fake::HasLog("\t\t\t [UXTIMER #" + std::to_string(timer) + "] TimerCallback Removed"));
}

TEST_F(Handlers, ADenialIsStoredAndReArmsTheTimerWithNothingPending) {
    Ask();
    EXPECT_EQ("()", Feedback(1));
    EXPECT_EQ(std::vector<std::string>{"('AA:BB:CC:DD:EE:01', '0', '0', 1)"}, StatusSignals());
    core->DB_WaitForSaves();
    ASSERT_EQ(1u, core->mDeviceList.size());
    EXPECT_EQ(1, core->mDeviceList[0].devstatus);
    EXPECT_NE(0u, server->m_nUxTimerId);
    EXPECT_NE(timer, server->m_nUxTimerId);
    EXPECT_EQ(nullptr, g_main_context_find_source_by_id(nullptr, timer));
    EXPECT_NE(nullptr, g_main_context_find_source_by_id(nullptr, server->m_nUxTimerId));
    EXPECT_EQ(0, server->m_UxPendingDevice.devstatus);
    EXPECT_EQ(0, server->m_UxPendingDevice.devname[0]);
}

TEST_F(Handlers, UndecidedIsAnnouncedButNotStored) {
    Ask();
    EXPECT_EQ("()", Feedback(2));
    EXPECT_EQ(std::vector<std::string>{"('AA:BB:CC:DD:EE:01', '0', '0', 2)"}, StatusSignals());
    core->DB_WaitForSaves();
    EXPECT_TRUE(core->mDeviceList.empty());
    EXPECT_EQ(0u, fake::CallCount("ss_write"));
    EXPECT_EQ(0u, server->m_nUxTimerId);
    EXPECT_FALSE(fake::HasLog("DEVICE ADDED BY USER SELECTED"));
}

TEST_F(Handlers, AnInvalidAnswerIsNeitherAnsweredNorAnnouncedNorStored) {
    Ask();
    for (int status : {3, -1}) {
        Request r;
        r.bt = kBt;
        r.status = status;
        client.Send(PXM_DBUS_UX_INTERFACE, "pxm_feedback_ux", r.Variant());
    }
    // Answered, so both answers before it have been handled.
    EXPECT_EQ("(-1,)", client.Call(kGet, "pxm_get_status", MacInd(kBt, 1)));
    EXPECT_TRUE(StatusSignals().empty());
    EXPECT_EQ(-1, client.IndexOf("reply", "pxm_feedback_ux"));
    EXPECT_EQ(-1, client.IndexOf("error", "pxm_feedback_ux"));
    EXPECT_TRUE(fake::HasLog("INVALID status [3]", DLOG_ERROR, "PXM_LOG"));
    EXPECT_TRUE(fake::HasLog("INVALID status [-1]", DLOG_ERROR, "PXM_LOG"));
    EXPECT_TRUE(core->mDeviceList.empty());
    // The prompt counts as gone; its wait goes on.
    EXPECT_EQ(0, core->m_nUxPid);
    EXPECT_EQ(timer, server->m_nUxTimerId);
    EXPECT_EQ(2, server->m_UxPendingDevice.devstatus);
}

}  // namespace
