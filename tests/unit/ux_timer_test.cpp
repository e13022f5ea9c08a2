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
    GSource* source = g_main_context_find_source_by_id(nullptr, first);
    ASSERT_NE(nullptr, source);
    // Due 35 s after it was added.
    EXPECT_GE(g_source_get_ready_time(source), before + 35 * G_USEC_PER_SEC);
    EXPECT_LE(g_source_get_ready_time(source), after + 35 * G_USEC_PER_SEC);

    server->m_AddUxTimer();
    guint second = server->m_nUxTimerId;
    EXPECT_NE(first, second);
    EXPECT_EQ(nullptr, g_main_context_find_source_by_id(nullptr, first));
    EXPECT_NE(nullptr, g_main_context_find_source_by_id(nullptr, second));
    server->m_CancelUxTimer();
    server->m_CancelUxTimer();
    EXPECT_EQ(0u, server->m_nUxTimerId);
    EXPECT_EQ(nullptr, g_main_context_find_source_by_id(nullptr, second));
    EXPECT_EQ(2u, fake::CountLogs("] TimerCallback Removed"));
}

// An undecided device is reported with its addresses as they are (a 17-character address
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
         "('', '00:00:00:00:00:00', '', 2)", true},
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
        server->m_AddUxTimer();
        guint timer = server->m_nUxTimerId;

        EXPECT_EQ(row.result, PXMDBusServer::m_ExpiredUxTimer(server));

        EXPECT_EQ(*row.signal ? std::vector<std::string>{row.signal} : std::vector<std::string>{},
                  SignalBodies());
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
