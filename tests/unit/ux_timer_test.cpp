// The 35 s prompt timer: one source at a time on the default context, its cancellation, and
// what its expiry reports for the pending prompt.
#include <gtest/gtest.h>

#include <cstring>

#include "handler_bus.h"

namespace {

using handler_bus::Client;

void SetPending(PXMDBusServer* server, const char* name, const char* bt, const char* wifi,
                const char* p2p, int status) {
    server->m_UxPendingDevice = handler_bus::Stored(name, bt, wifi, p2p, status);
}

TEST(UxTimer, AddReplacesTheRunningTimerAndCancelRemovesItOnce) {
    fake::Reset();
    PXMDBusServer* server = PXMDBusServer::GetInstance();

    server->m_AddUxTimer();
    guint first = server->m_nUxTimerId;
    ASSERT_NE(0u, first);
    GSource* source = g_main_context_find_source_by_id(nullptr, first);
    ASSERT_NE(nullptr, source);
    gint64 due_in = g_source_get_ready_time(source) - g_source_get_time(source);
    EXPECT_GT(due_in, 34 * G_USEC_PER_SEC);
    EXPECT_LE(due_in, 35 * G_USEC_PER_SEC);
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

TEST(UxTimer, ExpiryWithNothingUndecidedClosesThePromptAndClearsTheRecord) {
    fake::Reset();
    fake::SeedDefaultSettings();
    PXMDBusServer* server = PXMDBusServer::GetInstance();
    ASSERT_EQ(1, server->Initialize());
    CPXMCore* core = server->m_pPXMCore;
    fake::AddRunningApp(4321, PXM_UX_APP_ID);
    core->m_nUxPid = 4321;
    SetPending(server, "Denied", "AA:BB:CC:DD:EE:01", "", "", 1);
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

TEST(UxTimer, ExpiryWithoutAUsableAddressKeepsTheRecordAndStops) {
    fake::Reset();
    Client client;
    ASSERT_TRUE(client.Ready());
    PXMDBusServer* server = client.server();
    SetPending(server, "Nameless", "", "AA:BB:CC:DD:EE", "", 2);
    server->m_AddUxTimer();

    EXPECT_FALSE(PXMDBusServer::m_ExpiredUxTimer(server));
    EXPECT_TRUE(fake::HasLog("Invalid backupdata [][AA:BB:CC:DD:EE][] Feedback is not sent",
                             DLOG_ERROR, "PXM_LOG"));
    EXPECT_EQ(0u, server->m_nUxTimerId);
    EXPECT_STREQ("Nameless", server->m_UxPendingDevice.devname);
    EXPECT_EQ(2, server->m_UxPendingDevice.devstatus);
    client.Flush();
    EXPECT_TRUE(client.Signals().empty());
    EXPECT_FALSE(fake::HasLog("Defensive programming"));
}

TEST(UxTimer, ExpiryReportsTheUndecidedDeviceWithItsAddressesAsTheyAre) {
    fake::Reset();
    Client client;
    ASSERT_TRUE(client.Ready());
    CPXMCore* core = handler_bus::StartRegistry(client.server());
    PXMDBusServer* server = client.server();
    // A 17-character address counts, usable or not; empty ones are not replaced.
    SetPending(server, "Waiting", "", "00:00:00:00:00:00", "", 2);
    server->m_AddUxTimer();

    EXPECT_TRUE(PXMDBusServer::m_ExpiredUxTimer(server));
    client.Flush();
    auto signals = client.Signals(PXM_SIGNAL_STATUS_CHANGED);
    ASSERT_EQ(1u, signals.size());
    EXPECT_EQ("('', '00:00:00:00:00:00', '', 2)", signals[0].body);
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
