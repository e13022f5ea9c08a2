// The prompt's answer over the bus: what is stored, what is announced, when the reply is
// withheld, and what becomes of the prompt timer.
#include <gtest/gtest.h>

#include "handler_bus.h"

namespace {

using handler_bus::Client;
using handler_bus::Request;

const char kBt[] = "AA:BB:CC:DD:EE:01";

// A device asked about: the prompt was launched and the answer is awaited.
CPXMCore* Asked(Client& client) {
    CPXMCore* core = handler_bus::StartRegistry(client.server());
    Request ask;
    ask.name = "Tablet";
    ask.bt = kBt;
    EXPECT_EQ("(2,)", client.Call(PXM_DBUS_SET_INTERFACE, "pxm_request_access", ask.Variant()));
    EXPECT_GT(core->m_nUxPid, 0);
    EXPECT_NE(0u, client.server()->m_nUxTimerId);
    fake::ClearJournal();
    return core;
}

Request Answer(int status) {
    Request r;
    r.name = "Tablet";
    r.bt = kBt;
    r.zel_id = "zel-5";
    r.status = status;
    r.tv_init = 1;
    return r;
}

TEST(FeedbackHandler, AnAllowIsStoredAnnouncedAndStopsTheTimer) {
    fake::Reset();
    Client client;
    ASSERT_TRUE(client.Ready());
    CPXMCore* core = Asked(client);
    PXMDBusServer* server = client.server();
    guint timer = server->m_nUxTimerId;

    EXPECT_EQ("()", client.Call(PXM_DBUS_UX_INTERFACE, "pxm_feedback_ux", Answer(0).Variant()));
    client.Flush();
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

    auto signals = client.Signals(PXM_SIGNAL_STATUS_CHANGED);
    ASSERT_EQ(1u, signals.size());
    EXPECT_EQ("('AA:BB:CC:DD:EE:01', '0', '0', 0)", signals[0].body);
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

TEST(FeedbackHandler, ADenialIsStoredAndReArmsTheTimerWithNothingPending) {
    fake::Reset();
    Client client;
    ASSERT_TRUE(client.Ready());
    CPXMCore* core = Asked(client);
    PXMDBusServer* server = client.server();
    guint first = server->m_nUxTimerId;

    EXPECT_EQ("()", client.Call(PXM_DBUS_UX_INTERFACE, "pxm_feedback_ux", Answer(1).Variant()));
    client.Flush();
    core->DB_WaitForSaves();
    ASSERT_EQ(1u, core->mDeviceList.size());
    EXPECT_EQ(1, core->mDeviceList[0].devstatus);
    auto signals = client.Signals(PXM_SIGNAL_STATUS_CHANGED);
    ASSERT_EQ(1u, signals.size());
    EXPECT_EQ("('AA:BB:CC:DD:EE:01', '0', '0', 1)", signals[0].body);

    EXPECT_NE(0u, server->m_nUxTimerId);
    EXPECT_NE(first, server->m_nUxTimerId);
    EXPECT_EQ(nullptr, g_main_context_find_source_by_id(nullptr, first));
    EXPECT_NE(nullptr, g_main_context_find_source_by_id(nullptr, server->m_nUxTimerId));
    EXPECT_EQ(0, server->m_UxPendingDevice.devstatus);
    EXPECT_EQ(0, server->m_UxPendingDevice.devname[0]);
}

TEST(FeedbackHandler, UndecidedIsAnnouncedButNotStored) {
    fake::Reset();
    Client client;
    ASSERT_TRUE(client.Ready());
    CPXMCore* core = Asked(client);

    EXPECT_EQ("()", client.Call(PXM_DBUS_UX_INTERFACE, "pxm_feedback_ux", Answer(2).Variant()));
    client.Flush();
    core->DB_WaitForSaves();
    EXPECT_TRUE(core->mDeviceList.empty());
    EXPECT_EQ(0u, fake::CallCount("ss_write"));
    auto signals = client.Signals(PXM_SIGNAL_STATUS_CHANGED);
    ASSERT_EQ(1u, signals.size());
    EXPECT_EQ("('AA:BB:CC:DD:EE:01', '0', '0', 2)", signals[0].body);
    EXPECT_EQ(0u, client.server()->m_nUxTimerId);
    EXPECT_FALSE(fake::HasLog("DEVICE ADDED BY USER SELECTED"));
}

TEST(FeedbackHandler, AnInvalidStatusIsNeitherAnsweredNorAnnouncedNorStored) {
    fake::Reset();
    Client client;
    ASSERT_TRUE(client.Ready());
    CPXMCore* core = Asked(client);
    PXMDBusServer* server = client.server();
    guint timer = server->m_nUxTimerId;

    client.Send(PXM_DBUS_UX_INTERFACE, "pxm_feedback_ux", Answer(3).Variant());
    client.Send(PXM_DBUS_UX_INTERFACE, "pxm_feedback_ux", Answer(-1).Variant());
    // Answered, so both answers before it have been handled.
    EXPECT_EQ("(-1,)",
              client.Call(PXM_DBUS_GET_INTERFACE, "pxm_get_status", g_variant_new("(si)", kBt, 1)));
    client.Flush();
    EXPECT_EQ(-1, client.IndexOf("reply", "pxm_feedback_ux"));
    EXPECT_EQ(-1, client.IndexOf("error", "pxm_feedback_ux"));
    EXPECT_TRUE(client.Signals().empty());
    EXPECT_TRUE(fake::HasLog("INVALID status [3]", DLOG_ERROR, "PXM_LOG"));
    EXPECT_TRUE(fake::HasLog("INVALID status [-1]", DLOG_ERROR, "PXM_LOG"));
    EXPECT_TRUE(core->mDeviceList.empty());
    // The prompt counts as gone; its wait goes on.
    EXPECT_EQ(0, core->m_nUxPid);
    EXPECT_EQ(timer, server->m_nUxTimerId);
    EXPECT_EQ(2, server->m_UxPendingDevice.devstatus);
}

}  // namespace
