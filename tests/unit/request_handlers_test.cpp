// The access request and the prompt's answer over the bus: the pending prompt and its 35 s
// timer, what each answer of the prompt stores, announces and does to the timer, and what the
// timer's expiry reports.
#include <gtest/gtest.h>

#include <cstring>

#include "fake_platform.h"
#include "handler_bus.h"

namespace {

using handler_bus::kGet;
using handler_bus::kSet;
using handler_bus::MacInd;
using handler_bus::Request;

const char kBt[] = "AA:BB:CC:DD:EE:01";

using Handlers = handler_bus::HandlerTest;

// A new device is asked about: it waits as the pending prompt, undecided, guarded by the
// timer, and another request meanwhile is turned away. Then an allow is stored and stops the
// timer; a denial is stored and re-arms it with nothing pending; undecided is announced
// only; an invalid answer is not even answered, and the wait goes on.
TEST_F(Handlers, EachAnswerOfThePromptIsStoredAnnouncedAndTimedAsItsVerdictSays) {
    const struct {
        int status;
        const char* reply;  // "": none
        int stored;         // -1: nothing stored
        const char* timer;  // "stopped", "re-armed" or "kept"
    } rows[] = {{0, "()", 0, "stopped"},
                {1, "()", 1, "re-armed"},
                {2, "()", -1, "stopped"},
                {3, "", -1, "kept"},
                {-1, "", -1, "kept"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.status);
        fake::Reset();
        if (core == nullptr) {
            Start();
        }
        core->DB_WaitForSaves();
        core->mDeviceList.clear();
        core->m_nUxPid = 0;
        client.events.clear();
        Request ask;
        ask.name = "Tablet";
        ask.bt = kBt;
        ask.zel_id = "zel-5";
        ASSERT_EQ("(2,)", client.Call(kSet, "pxm_request_access", ask.Variant()));
        const guint timer = server->m_nUxTimerId;
        EXPECT_NE(nullptr, g_main_context_find_source_by_id(nullptr, timer));
        Request other;
        other.bt = "AA:BB:CC:DD:EE:31";
        other.no_ux = 1;
        EXPECT_EQ("(-1,)", client.Call(kSet, "pxm_request_access", other.Variant()));
        EXPECT_EQ("(-1,)", client.Call(kSet, "pxm_request_access_reverse", other.Variant()));
        EXPECT_EQ(timer, server->m_nUxTimerId);
        EXPECT_EQ(1u, fake::CallCount("aul_launch_app"));
        EXPECT_TRUE(core->mDeviceList.empty() && core->mReverseDeviceList.empty());
        EXPECT_EQ("Tablet|AA:BB:CC:DD:EE:01|||zel-5||1|2|2|0|0|0|0|0|0|0",
                  unit::Text(server->m_UxPendingDevice));

        ask.status = row.status;
        ask.tv_init = 1;
        client.Send(PXM_DBUS_UX_INTERFACE, "pxm_feedback_ux", ask.Variant());
        // Answered, so the answer before it has been handled.
        EXPECT_EQ("(-1,)", client.Call(kGet, "pxm_get_status", MacInd("AA:BB:CC:DD:EE:99", 1)));
        // Nothing is announced before the prompt answers; its verdict is, before the reply to it.
        EXPECT_EQ(
            "reply pxm_request_access (2,)\nreply pxm_request_access (-1,)\n"
            "reply pxm_request_access_reverse (-1,)\n" +
                (*row.reply ? "signal " PXM_SIGNAL_STATUS_CHANGED
                              " ('AA:BB:CC:DD:EE:01', '0', '0', " +
                                  std::to_string(row.status) + ")\nreply pxm_feedback_ux ()\n"
                            : std::string()) +
                "reply pxm_get_status (-1,)\n",
            client.Heard());
        core->DB_WaitForSaves();
        if (row.stored >= 0) {
            ASSERT_EQ(1u, core->mDeviceList.size());
            EXPECT_STREQ("zel-5", core->mDeviceList[0].zel_id);
            EXPECT_EQ(row.stored, core->mDeviceList[0].devstatus);
            // Allowed devices may wake the TV.
            EXPECT_EQ(row.stored == 0, fake::HeadlessTable() == std::vector<std::string>{kBt});
        } else {
            EXPECT_TRUE(core->mDeviceList.empty());
            EXPECT_EQ(0u, fake::CallCount("ss_write"));
        }
        const std::string timerNow = server->m_nUxTimerId == 0       ? "stopped"
                                     : server->m_nUxTimerId == timer ? "kept"
                                                                     : "re-armed";
        EXPECT_EQ(row.timer, timerNow);
        EXPECT_EQ(timerNow != "stopped",
                  g_main_context_find_source_by_id(nullptr, server->m_nUxTimerId) != nullptr);
        // The prompt counts as gone; an invalid answer leaves the device pending.
        EXPECT_EQ(0, core->m_nUxPid);
        EXPECT_EQ(timerNow == "kept" ? 2 : 0, server->m_UxPendingDevice.devstatus);
        EXPECT_EQ(timerNow == "kept", server->m_UxPendingDevice.bt_mac[0] != 0);
        server->m_CancelUxTimer();
        server->m_UxPendingDevice = {};
    }
}

using UxTimer = handler_bus::HandlerTest;

// A timer is due 35 s after it was added and replaces the one running. At expiry an
// undecided device is reported with its addresses as they are (a 17-character address
// counts, usable or not) and not stored; a decided one closes the prompt unreported; one
// without a usable address is kept. The timer is gone in every case.
TEST_F(UxTimer, ExpiryReportsAnUndecidedDeviceAndClosesThePrompt) {
    Start();
    const pxm_core_device_s zero = {};
    const struct {
        pxm_core_device_s pending;
        bool result;
        const char* signal;  // "": none
        bool cleared;
    } rows[] = {
        {unit::Device("Waiting", "", "00:00:00:00:00:00", "", 2), true,
         "signal " PXM_SIGNAL_STATUS_CHANGED " ('', '00:00:00:00:00:00', '', 2)\n", true},
        {unit::Device("Denied", "AA:BB:CC:DD:EE:01", "", "", 1), true, "", true},
        {unit::Device("Nameless", "", "AA:BB:CC:DD:EE", "", 2), false, "", false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.pending.devname);
        fake::Reset();
        client.events.clear();
        fake::AddRunningApp(4321, PXM_UX_APP_ID);
        core->m_nUxPid = 4321;
        server->m_UxPendingDevice = row.pending;
        const gint64 due = g_get_monotonic_time() + 35 * G_USEC_PER_SEC;
        server->m_AddUxTimer();
        const guint replaced = server->m_nUxTimerId;
        server->m_AddUxTimer();
        guint timer = server->m_nUxTimerId;
        EXPECT_EQ(nullptr, g_main_context_find_source_by_id(nullptr, replaced));
        GSource* source = g_main_context_find_source_by_id(nullptr, timer);
        ASSERT_NE(nullptr, source);
        EXPECT_NEAR(due, g_source_get_ready_time(source), G_USEC_PER_SEC / 2);

        EXPECT_EQ(row.result, PXMDBusServer::m_ExpiredUxTimer(server));

        EXPECT_EQ(row.signal, client.Heard());
        EXPECT_EQ(0u, server->m_nUxTimerId);
        EXPECT_EQ(nullptr, g_main_context_find_source_by_id(nullptr, timer));
        EXPECT_EQ(row.cleared, memcmp(&zero, &server->m_UxPendingDevice, sizeof(zero)) == 0);
        if (row.result) {
            // The prompt on screen is closed.
            EXPECT_EQ(0, core->m_nUxPid);
            EXPECT_EQ(std::vector<std::string>{"4321"}, unit::FirstArgs("aul_terminate_pid"));
        }
        core->DB_WaitForSaves();
        EXPECT_TRUE(core->mDeviceList.empty());
        EXPECT_EQ(0u, fake::CallCount("ss_write"));
    }
}

}  // namespace
