// The access request over the bus: the verdict in the reply, the signal after it, the
// pending prompt and its timer, and the reverse list that announces nothing.
#include <gtest/gtest.h>

#include "handler_bus.h"

namespace {

using handler_bus::Client;
using handler_bus::Request;

const char kBt[] = "AA:BB:CC:DD:EE:01";
const char kWifi[] = "AA:BB:CC:DD:EE:02";

Request NoUxRequest() {
    Request r;
    r.bt = kBt;
    r.wifi = kWifi;
    r.no_ux = 1;
    return r;
}

TEST(RequestHandlers, WithoutARegistryTheRequestIsRefused) {
    fake::Reset();
    Client client;
    ASSERT_TRUE(client.Ready());
    EXPECT_EQ("(-1,)",
              client.Call(PXM_DBUS_SET_INTERFACE, "pxm_request_access", NoUxRequest().Variant()));
    EXPECT_EQ("(-1,)", client.Call(PXM_DBUS_SET_INTERFACE, "pxm_request_access_reverse",
                                   NoUxRequest().Variant()));
    EXPECT_EQ(2u, fake::CountLogs("[DBusServer] PXMCore is not running"));
    EXPECT_TRUE(fake::HasLog("pxmDBusServer: pxm_request_access_reverse(", DLOG_ERROR, "PXM_LOG"));
    client.Flush();
    EXPECT_TRUE(client.Signals().empty());
}

TEST(RequestHandlers, AForcedVerdictIsStoredAndAnnouncedAfterTheReplyOnceOnly) {
    fake::Reset();
    Client client;
    ASSERT_TRUE(client.Ready());
    CPXMCore* core = handler_bus::StartRegistry(client.server());

    EXPECT_EQ("(0,)",
              client.Call(PXM_DBUS_SET_INTERFACE, "pxm_request_access", NoUxRequest().Variant()));
    client.Flush();
    core->DB_WaitForSaves();
    ASSERT_EQ(1u, core->mDeviceList.size());
    EXPECT_STREQ(kBt, core->mDeviceList[0].bt_mac);
    auto signals = client.Signals(PXM_SIGNAL_STATUS_CHANGED);
    ASSERT_EQ(1u, signals.size());
    // The empty P2P address goes out as the placeholder.
    EXPECT_EQ("('AA:BB:CC:DD:EE:01', 'AA:BB:CC:DD:EE:02', '0', 0)", signals[0].body);
    EXPECT_LT(client.IndexOf("reply", "pxm_request_access"),
              client.IndexOf("signal", PXM_SIGNAL_STATUS_CHANGED));
    EXPECT_TRUE(fake::HasLog("pxmDBusServer: pxm_request_access(", DLOG_INFO, "PXM_LOG"));
    EXPECT_TRUE(
        fake::HasLog("[DBusServer] NAME[Phone] BT[AA:BB:CC:DD:EE:01] "
                     "WIFI[AA:BB:CC:DD:EE:02] P2P[] ZEL_ID[] MIRRORING_ID[] DEVTYPE[1] "
                     "DEVICON[2] STATUS[0] TVINITMIRRSUPPORT[0] ISNOUX[1] ISUXALWAYS[0]",
                     DLOG_INFO));
    EXPECT_TRUE(fake::HasLog("Device status : [0]", DLOG_INFO, "PXM_LOG"));
    EXPECT_TRUE(
        fake::HasLog("[DBusServer] [NOTI] DEVICE Registered with status[0]", DLOG_WARN, "PXM_LOG"));
    EXPECT_EQ(0u, client.server()->m_nUxTimerId);

    // The same device again changes nothing worth a signal, and the flag is consumed.
    client.ClearEvents();
    EXPECT_EQ("(0,)",
              client.Call(PXM_DBUS_SET_INTERFACE, "pxm_request_access", NoUxRequest().Variant()));
    client.Flush();
    EXPECT_TRUE(client.Signals().empty());
    EXPECT_TRUE(fake::HasLog("[DBusServer] No data changed, no CALLBACK", DLOG_WARN, "PXM_LOG"));
    EXPECT_FALSE(core->m_bNoDataChanged);
    core->DB_WaitForSaves();
    EXPECT_EQ(1u, core->mDeviceList.size());

    // A forced denial of a new device is announced with 1.
    client.ClearEvents();
    Request deny = NoUxRequest();
    deny.bt = "AA:BB:CC:DD:EE:11";
    deny.wifi = "";
    deny.p2p = "AA:BB:CC:DD:EE:13";
    deny.status = 1;
    EXPECT_EQ("(1,)", client.Call(PXM_DBUS_SET_INTERFACE, "pxm_request_access", deny.Variant()));
    client.Flush();
    signals = client.Signals(PXM_SIGNAL_STATUS_CHANGED);
    ASSERT_EQ(1u, signals.size());
    EXPECT_EQ("('AA:BB:CC:DD:EE:11', '0', 'AA:BB:CC:DD:EE:13', 1)", signals[0].body);
    core->DB_WaitForSaves();
}

TEST(RequestHandlers, ANewDeviceIsAskedAboutAndASecondRequestMeanwhileIsRefused) {
    fake::Reset();
    Client client;
    ASSERT_TRUE(client.Ready());
    CPXMCore* core = handler_bus::StartRegistry(client.server());
    PXMDBusServer* server = client.server();

    Request ask;
    ask.name = "Tablet";
    ask.bt = kBt;
    ask.zel_id = "zel-7";
    EXPECT_EQ("(2,)", client.Call(PXM_DBUS_SET_INTERFACE, "pxm_request_access", ask.Variant()));
    client.Flush();
    EXPECT_TRUE(client.Signals().empty());
    EXPECT_TRUE(core->mDeviceList.empty());
    EXPECT_EQ(1u, fake::CallCount("aul_launch_app"));
    EXPECT_TRUE(fake::HasLog("[DBusServer] Undecided", DLOG_INFO, "PXM_LOG"));
    // The request waits as the pending prompt, undecided, guarded by the timer.
    EXPECT_STREQ("Tablet", server->m_UxPendingDevice.devname);
    EXPECT_STREQ(kBt, server->m_UxPendingDevice.bt_mac);
    EXPECT_STREQ("zel-7", server->m_UxPendingDevice.zel_id);
    EXPECT_EQ(2, server->m_UxPendingDevice.devstatus);
    guint timer = server->m_nUxTimerId;
    EXPECT_NE(0u, timer);
    EXPECT_NE(nullptr, g_main_context_find_source_by_id(nullptr, timer));
    EXPECT_TRUE(fake::HasLog("\t\t\t [UXTIMER #" + std::to_string(timer) +
                             "] New TimerCallback Registered"));

    // The prompt is on screen: another device is turned away and the wait is left alone.
    Request other;
    other.name = "Laptop";
    other.bt = "AA:BB:CC:DD:EE:31";
    other.no_ux = 1;
    EXPECT_EQ("(-1,)", client.Call(PXM_DBUS_SET_INTERFACE, "pxm_request_access", other.Variant()));
    EXPECT_EQ("(-1,)",
              client.Call(PXM_DBUS_SET_INTERFACE, "pxm_request_access_reverse", other.Variant()));
    client.Flush();
    EXPECT_TRUE(client.Signals().empty());
    EXPECT_STREQ("Tablet", server->m_UxPendingDevice.devname);
    EXPECT_EQ(timer, server->m_nUxTimerId);
    EXPECT_TRUE(core->mDeviceList.empty());
    EXPECT_TRUE(core->mReverseDeviceList.empty());
    EXPECT_EQ(1u, fake::CallCount("aul_launch_app"));
    EXPECT_TRUE(fake::HasLog("UX already Displaying"));
}

TEST(RequestHandlers, AFailedPromptLaunchIsAnUnexpectedStatusWithNothingKept) {
    fake::Reset();
    Client client;
    ASSERT_TRUE(client.Ready());
    CPXMCore* core = handler_bus::StartRegistry(client.server());
    fake::SetResult("aul_launch_app", -1);

    Request ask;
    ask.bt = kBt;
    EXPECT_EQ("(-1,)", client.Call(PXM_DBUS_SET_INTERFACE, "pxm_request_access", ask.Variant()));
    client.Flush();
    EXPECT_TRUE(fake::HasLog("[DBusServer] Unexpected Status[-1]", DLOG_ERROR, "PXM_LOG"));
    EXPECT_TRUE(client.Signals().empty());
    EXPECT_EQ(0u, client.server()->m_nUxTimerId);
    EXPECT_EQ(0, client.server()->m_UxPendingDevice.bt_mac[0]);
    EXPECT_TRUE(core->mDeviceList.empty());
}

TEST(RequestHandlers, TheReverseListIsDecidedButNeitherAnnouncedNorWaitedFor) {
    fake::Reset();
    Client client;
    ASSERT_TRUE(client.Ready());
    CPXMCore* core = handler_bus::StartRegistry(client.server());

    EXPECT_EQ("(0,)", client.Call(PXM_DBUS_SET_INTERFACE, "pxm_request_access_reverse",
                                  NoUxRequest().Variant()));
    core->DB_WaitForSaves();
    ASSERT_EQ(1u, core->mReverseDeviceList.size());
    EXPECT_TRUE(core->mDeviceList.empty());

    // Undecided on the reverse list: the prompt is launched, but nothing waits for it.
    Request ask;
    ask.bt = "AA:BB:CC:DD:EE:41";
    EXPECT_EQ("(2,)",
              client.Call(PXM_DBUS_SET_INTERFACE, "pxm_request_access_reverse", ask.Variant()));
    client.Flush();
    EXPECT_TRUE(client.Signals().empty());
    EXPECT_EQ(0u, client.server()->m_nUxTimerId);
    EXPECT_EQ(0, client.server()->m_UxPendingDevice.devstatus);
    EXPECT_EQ(0, client.server()->m_UxPendingDevice.bt_mac[0]);
    EXPECT_FALSE(fake::HasLog("[DBusServer] Undecided"));
    EXPECT_FALSE(fake::HasLog("[DBusServer] [NOTI]"));
    EXPECT_TRUE(fake::HasLog("pxmDBusServer: pxm_request_access_reverse(", DLOG_INFO, "PXM_LOG"));
    EXPECT_TRUE(fake::HasLog("Device status : [2]"));
    core->DB_WaitForSaves();
}

}  // namespace
