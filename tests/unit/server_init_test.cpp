// The bus server's start-up: the factory-reset check, and registration of the three
// interfaces on a bus connection.
#include <gtest/gtest.h>

#include <string>

#include "dlog.h"
#include "fake_platform.h"
#include "handler_bus.h"

namespace {

const char kFactoryResetKey[] = "db/registertv/factoryreset";

// A set flag wipes both lists without loading them and is written back as 0; a clear one
// loads the stored list; a flag that cannot be read or written back fails the start-up.
TEST(ServerInit, TheFactoryResetFlagDecidesBetweenWipingAndLoading) {
    const struct {
        int flag;  // -1: unset
        int write_result;
        int initialized;
        bool wiped;
        int flag_after;
    } rows[] = {
        {1, 0, 1, true, 0}, {0, 0, 1, false, 0}, {-1, 0, 0, false, -1}, {3, -1, 0, true, 3}};
    for (const auto& row : rows) {
        SCOPED_TRACE("flag " + std::to_string(row.flag));
        fake::Reset();
        fake::SeedDefaultSettings();
        if (row.flag < 0) {
            fake::Unset(kFactoryResetKey);
        } else {
            fake::SetInt(kFactoryResetKey, row.flag);
        }
        fake::SetResult("vconf_set_int", row.write_result);
        CPXMCore* core = CPXMCore::GetInstance();
        core->DB_WaitForSaves();
        core->mDeviceList = {unit::Device("Phone", "AA:BB:CC:DD:EE:01")};
        core->mReverseDeviceList = core->mDeviceList;
        PXMDBusServer* server = PXMDBusServer::GetInstance();

        EXPECT_EQ(row.initialized, server->Initialize());
        core->DB_WaitForSaves();

        EXPECT_EQ(core, server->m_pPXMCore);
        EXPECT_EQ(core, server->m_BnrClient.m_pPXMCore);
        EXPECT_EQ(row.wiped ? 0u : 1u, fake::CallCount("ss_read"));
        EXPECT_EQ(row.wiped, core->mDeviceList.empty() && core->mReverseDeviceList.empty());
        EXPECT_EQ(row.flag_after, fake::GetInt(kFactoryResetKey).value_or(-1));
        EXPECT_TRUE(fake::HasLog("Initialized[" + std::to_string(row.initialized) + "]", DLOG_ERROR,
                                 "PXM_LOG"));
    }
}

TEST(ServerInit, BusIsAcquiredOnlyWhenAllThreeInterfacesRegisterAndOnlyOnce) {
    fake::Reset();
    PXMDBusServer* server = PXMDBusServer::GetInstance();
    ASSERT_TRUE(unit::RunUntil(
        [] { return fake::HasLog("[DBusServer] lost name ownership! leave sinking ship"); }));
    auto* node = static_cast<GDBusNodeInfo*>(g_atomic_pointer_get(&server->m_pIntrospection));
    ASSERT_NE(nullptr, node);

    // Someone else already serves GetInterface there: step 2 fails, the bus is not acquired.
    GDBusConnection* taken = handler_bus::ConnectedPair();
    ASSERT_NE(0u, g_dbus_connection_register_object(taken, PXM_DBUS_PATH, node->interfaces[1],
                                                    nullptr, nullptr, nullptr, nullptr));
    PXMDBusServer::m_OnBusAcquired(taken, PXM_DBUS_NAME, server);
    EXPECT_TRUE(fake::HasLog(
        "[DBusServer] STEP 2 -> GET:register object error, the path /org/nuvak/quillon",
        DLOG_ERROR));

    GDBusConnection* fresh = handler_bus::ConnectedPair();
    PXMDBusServer::m_OnBusAcquired(fresh, PXM_DBUS_NAME, server);
    EXPECT_EQ(fresh, server->m_Connection);
    guint ids[] = {server->m_nSetRegId, server->m_nGetRegId, server->m_nUxRegId};
    EXPECT_TRUE(ids[0] != 0 && ids[1] != 0 && ids[2] != 0);

    PXMDBusServer::m_OnBusAcquired(handler_bus::ConnectedPair(), PXM_DBUS_NAME, server);
    EXPECT_TRUE(fake::HasLog("Already Acquired so this is ignored.", DLOG_ERROR, "PXM_LOG"));
    EXPECT_EQ(fresh, server->m_Connection);
    EXPECT_EQ(ids[2], server->m_nUxRegId);
    EXPECT_EQ(1u, fake::CountLogs("register_object completed"));
}

}  // namespace
