// The 35 s prompt timer: one source at a time on the default context, its cancellation, and
// what its expiry reports for the pending prompt.
#include <gtest/gtest.h>

#include <cstring>

#include "dlog.h"
#include "fake_platform.h"
#include "handler_bus.h"

namespace {

using UxTimer = handler_bus::HandlerTest;

TEST_F(UxTimer, AddReplacesTheRunningTimerAndCancelRemovesItOnce) {
    const gint64 before = g_get_monotonic_time();
    server->m_AddUxTimer();
    const gint64 after = g_get_monotonic_time();
    guint first = server->m_nUxTimerId;
    ASSERT_NE(0u, first);
    GSource* source = g_main_context_find_source_by_id(nullptr, first);
    ASSERT_NE(nullptr, source);
    // Due 35 s after it was added.
    EXPECT_GE(g_source_get_ready_time(source), before + 35 * G_USEC_PER_SEC);
    EXPECT_LE(g_source_get_ready_time(source), after + 35 * G_USEC_PER_SEC);
    EXPECT_TRUE(
        fake::HasLog("\t\t\t [UXTIMER #" + std::to_string(first) + "] New TimerCallback Registered",
                     DLOG_INFO, "PXM_LOG"));

    server->m_AddUxTimer();
    guint second = server->m_nUxTimerId;
    EXPECT_NE(first, second);
    EXPECT_EQ(nullptr, g_main_context_find_source_by_id(nullptr, first));
    EXPECT_NE(nullptr, g_main_context_find_source_by_id(nullptr, second));
    long removed =
        fake::FindLog("\t\t\t [UXTIMER #" + std::to_string(first) + "] TimerCallback Removed");
    EXPECT_GE(removed, 0);
    EXPECT_GT(fake::FindLog("\t\t\t [UXTIMER #" + std::to_string(second) + "] New TimerCallback"),
              removed);

    server->m_CancelUxTimer();
    server->m_CancelUxTimer();
    EXPECT_EQ(0u, server->m_nUxTimerId);
    EXPECT_EQ(nullptr, g_main_context_find_source_by_id(nullptr, second));
    EXPECT_EQ(2u, fake::CountLogs("] TimerCallback Removed"));
    EXPECT_EQ(1u,
              fake::CountLogs("[UXTIMER #" + std::to_string(second) + "] TimerCallback Removed"));
}

TEST_F(UxTimer, ExpiryWithNothingUndecidedClosesThePromptAndClearsTheRecord) {
    Start();
    fake::AddRunningApp(4321, PXM_UX_APP_ID);
    core->m_nUxPid = 4321;
    server->m_UxPendingDevice = unit::Device("Denied", "AA:BB:CC:DD:EE:01", "", "", 1);
    server->m_AddUxTimer();
    guint timer = server->m_nUxTimerId;

    EXPECT_TRUE(PXMDBusServer::m_ExpiredUxTimer(server));
    EXPECT_TRUE(fake::HasLog("\t\t\t [UXTIMER #" + std::to_string(timer) + "] Timer 35s Expired",
                             DLOG_WARN, "PXM_LOG"));
    EXPECT_TRUE(fake::HasLog("35s TimerExpired", DLOG_INFO, "PXM_LOG"));
    EXPECT_EQ(0u, server->m_nUxTimerId);
    EXPECT_EQ(nullptr, g_main_context_find_source_by_id(nullptr, timer));
    EXPECT_EQ(0, core->m_nUxPid);
    // The prompt on screen is closed.
    auto terminated = fake::Calls("aul_terminate_pid");
    ASSERT_EQ(1u, terminated.size());
    EXPECT_EQ("4321", terminated[0].args.at(0));
    EXPECT_TRUE(fake::HasLog("Unexpected UX status. Close UX", DLOG_WARN, "PXM_CORE"));
    EXPECT_TRUE(fake::HasLog("Don't need to send feedback with backupdata : status[1]", DLOG_WARN,
                             "PXM_LOG"));
    pxm_core_device_s zero = {};
    EXPECT_EQ(0, memcmp(&zero, &server->m_UxPendingDevice, sizeof(zero)));
    EXPECT_TRUE(core->mDeviceList.empty());
}

TEST_F(UxTimer, ExpiryWithoutAUsableAddressKeepsTheRecordAndStops) {
    server->m_UxPendingDevice = unit::Device("Nameless", "", "AA:BB:CC:DD:EE", "", 2);
    server->m_AddUxTimer();

    EXPECT_FALSE(PXMDBusServer::m_ExpiredUxTimer(server));
    EXPECT_TRUE(fake::HasLog("Invalid backupdata [][AA:BB:CC:DD:EE][] Feedback is not sent",
                             DLOG_ERROR, "PXM_LOG"));
    EXPECT_EQ(0u, server->m_nUxTimerId);
    EXPECT_STREQ("Nameless", server->m_UxPendingDevice.devname);
    EXPECT_EQ(2, server->m_UxPendingDevice.devstatus);
    EXPECT_TRUE(SignalBodies("").empty());
    EXPECT_FALSE(fake::HasLog("Defensive programming"));
}

TEST_F(UxTimer, ExpiryReportsTheUndecidedDeviceWithItsAddressesAsTheyAre) {
    Start();
    // A 17-character address counts, usable or not; empty ones are not replaced.
    server->m_UxPendingDevice = unit::Device("Waiting", "", "00:00:00:00:00:00", "", 2);
    server->m_AddUxTimer();

    EXPECT_TRUE(PXMDBusServer::m_ExpiredUxTimer(server));
    EXPECT_EQ(std::vector<std::string>{"('', '00:00:00:00:00:00', '', 2)"}, SignalBodies());
    EXPECT_TRUE(fake::HasLog(
        "[DBusServer] Defensive programming :: Unexpected UX termination. Send feedback with "
        "backupdata",
        DLOG_ERROR, "PXM_LOG"));
    EXPECT_TRUE(fake::HasLog("\t\t[Waiting][][00:00:00:00:00:00][] >> [2]", DLOG_ERROR));
    pxm_core_device_s zero = {};
    EXPECT_EQ(0, memcmp(&zero, &server->m_UxPendingDevice, sizeof(zero)));
    // The undecided device is not stored.
    core->DB_WaitForSaves();
    EXPECT_TRUE(core->mDeviceList.empty());
    EXPECT_EQ(0u, fake::CallCount("ss_write"));
}

}  // namespace
