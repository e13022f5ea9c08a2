// The bus server: construction and destruction, the factory-reset check of its start-up,
// and registration of the three interfaces on a bus connection.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "dlog.h"
#include "fake_platform.h"
#include "handler_bus.h"

namespace {

const char kFactoryResetKey[] = "db/registertv/factoryreset";

// The server with its node info parsed and its name request answered (no system bus in
// unit tests, so the answer is a lost name).
PXMDBusServer* StartedServer() {
    PXMDBusServer* server = PXMDBusServer::GetInstance();
    EXPECT_TRUE(unit::RunUntil(
        [] { return fake::HasLog("[DBusServer] lost name ownership! leave sinking ship"); }));
    EXPECT_NE(nullptr, g_atomic_pointer_get(&server->m_pIntrospection));
    return server;
}

TEST(ServerInit, ConstructionWatchesTheBackupKeysThenStartsTheServerThread) {
    fake::Reset();
    PXMDBusServer* server = StartedServer();
    EXPECT_EQ(server, PXMDBusServer::GetInstance());
    EXPECT_EQ(1u, fake::VconfListenerCount("memory/bnr/backupcid"));
    long watched = fake::FindLog("pxmBackupRestore: m_RegisterBnrVconfs(");
    EXPECT_GE(watched, 0);
    EXPECT_GT(fake::FindLog("[DBusServer] Constructor"), watched);
    EXPECT_TRUE(fake::HasLog("[DBusServer] Constructor", DLOG_INFO, "PXM_LOG"));

    EXPECT_EQ(nullptr, server->m_pPXMCore);
    EXPECT_FALSE(fake::HasLog("[DBusServer] Fail to"));
    EXPECT_FALSE(fake::HasLog("[DBusServer] own bus name error."));
}

TEST(ServerInit, DestructorAtExitClosesTheBackupClientAndReleasesItsKeys) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    fake::Reset();
    EXPECT_EXIT(
        {
            PXMDBusServer::GetInstance();
            std::exit(0);
        },
        ::testing::ExitedWithCode(0),
        "\\[DBusServer\\] Destructor.*BnrDeinit\\([0-9]+\\) > END.*"
        "m_UnRegisterBnrVconfs\\([0-9]+\\) > START.*m_UnRegisterBnrVconfs\\([0-9]+\\) > END");
}

TEST(ServerInit, SetFactoryResetFlagWipesBothListsWithoutLoadingAndIsWrittenBack) {
    fake::Reset();
    fake::SeedDefaultSettings();
    fake::SetInt(kFactoryResetKey, 1);
    CPXMCore* core = CPXMCore::GetInstance();
    pxm_core_device_s dev = {};
    snprintf(dev.devname, sizeof(dev.devname), "%s", "Phone");
    snprintf(dev.bt_mac, sizeof(dev.bt_mac), "%s", "AA:BB:CC:DD:EE:01");
    core->mDeviceList.push_back(dev);
    core->mReverseDeviceList.push_back(dev);

    PXMDBusServer* server = PXMDBusServer::GetInstance();
    EXPECT_EQ(1, server->Initialize());
    core->DB_WaitForSaves();

    EXPECT_EQ(core, server->m_pPXMCore);
    EXPECT_EQ(core, server->m_BnrClient.m_pPXMCore);
    EXPECT_TRUE(core->mDeviceList.empty());
    EXPECT_TRUE(core->mReverseDeviceList.empty());
    EXPECT_EQ(0, fake::GetInt(kFactoryResetKey).value_or(-1));
    EXPECT_TRUE(fake::HasLog("DB Cleared for 1", DLOG_WARN, "PXM_LOG"));
    EXPECT_TRUE(fake::HasLog("######## VCONFKEY_FACTORY_RESET_STATUS [1]", DLOG_INFO));
    EXPECT_TRUE(fake::HasLog("Initialized[1]", DLOG_ERROR, "PXM_LOG"));
    EXPECT_EQ(0u, fake::CallCount("ss_read"));
    // Registry start-up ran before the check, and the backup client got the registry after.
    long started = fake::FindLog("[5/5] vconf callback >> Success");
    long cleared = fake::FindLog("DB Cleared for 1");
    long handed = fake::FindLog("pxmBackupRestore: Initialize(");
    EXPECT_GE(started, 0);
    EXPECT_GT(cleared, started);
    EXPECT_GT(handed, cleared);
    EXPECT_GT(fake::FindLog("Initialized[1]"), handed);
}

TEST(ServerInit, ClearFactoryResetFlagLoadsTheStoredList) {
    fake::Reset();
    fake::SeedDefaultSettings();
    EXPECT_EQ(1, PXMDBusServer::GetInstance()->Initialize());
    EXPECT_EQ(1u, fake::CallCount("ss_read"));
    EXPECT_EQ(0u, fake::CallCount("vconf_set_int"));
    EXPECT_FALSE(fake::HasLog("DB Cleared"));
    EXPECT_TRUE(fake::HasLog("######## VCONFKEY_FACTORY_RESET_STATUS [0]"));
}

TEST(ServerInit, UnreadableFactoryResetFlagFailsAfterLoadingTheList) {
    fake::Reset();
    fake::SeedDefaultSettings();
    fake::Unset(kFactoryResetKey);
    EXPECT_EQ(0, PXMDBusServer::GetInstance()->Initialize());
    EXPECT_TRUE(
        fake::HasLog("vconf_get_int failed for db/registertv/factoryreset", DLOG_ERROR, "PXM_LOG"));
    EXPECT_TRUE(fake::HasLog("######## VCONFKEY_FACTORY_RESET_STATUS [0]"));
    EXPECT_EQ(1u, fake::CallCount("ss_read"));
    EXPECT_TRUE(fake::HasLog("Initialized[0]", DLOG_ERROR));
    EXPECT_NE(nullptr, PXMDBusServer::GetInstance()->m_BnrClient.m_pPXMCore);
}

TEST(ServerInit, FailedWriteBackOfTheFactoryResetFlagFailsStartUp) {
    fake::Reset();
    fake::SeedDefaultSettings();
    fake::SetInt(kFactoryResetKey, 3);
    fake::SetResult("vconf_set_int", -1);
    EXPECT_EQ(0, PXMDBusServer::GetInstance()->Initialize());
    CPXMCore::GetInstance()->DB_WaitForSaves();
    EXPECT_TRUE(fake::HasLog("DB Cleared for 3", DLOG_WARN));
    EXPECT_TRUE(
        fake::HasLog("failed to set VCONFKEY_FACTORY_RESET_STATUS (0)", DLOG_ERROR, "PXM_LOG"));
    EXPECT_EQ(3, fake::GetInt(kFactoryResetKey).value_or(-1));
    EXPECT_TRUE(fake::HasLog("Initialized[0]"));
    EXPECT_EQ(0u, fake::CallCount("ss_read"));
}

TEST(ServerInit, BusIsAcquiredOnlyWhenAllThreeInterfacesRegisterAndOnlyOnce) {
    fake::Reset();
    PXMDBusServer* server = StartedServer();
    auto* node = static_cast<GDBusNodeInfo*>(g_atomic_pointer_get(&server->m_pIntrospection));
    ASSERT_NE(nullptr, node);

    // Someone else already serves GetInterface there: step 2 fails, the bus is not acquired.
    GDBusConnection* taken = handler_bus::ConnectedPair();
    ASSERT_NE(nullptr, taken);
    ASSERT_NE(0u, g_dbus_connection_register_object(taken, PXM_DBUS_PATH, node->interfaces[1],
                                                    nullptr, nullptr, nullptr, nullptr));
    PXMDBusServer::m_OnBusAcquired(taken, PXM_DBUS_NAME, server);
    EXPECT_TRUE(fake::HasLog("[DBusServer] SetInterface succeed (1/3)", DLOG_INFO));
    EXPECT_TRUE(fake::HasLog("pxmDBusServer: m_OnBusAcquired(", DLOG_ERROR, "PXM_LOG"));
    EXPECT_TRUE(fake::HasLog(
        "[DBusServer] STEP 2 -> GET:register object error, the path /org/nuvak/quillon",
        DLOG_ERROR));
    EXPECT_FALSE(fake::HasLog("UxInterface succeed"));

    GDBusConnection* fresh = handler_bus::ConnectedPair();
    ASSERT_NE(nullptr, fresh);
    PXMDBusServer::m_OnBusAcquired(fresh, PXM_DBUS_NAME, server);
    EXPECT_FALSE(fake::HasLog("Already Acquired so this is ignored."));
    EXPECT_EQ(fresh, server->m_Connection);
    EXPECT_TRUE(fake::HasLog("[DBusServer]  UxInterface succeed (3/3)", DLOG_INFO));
    guint ids[] = {server->m_nSetRegId, server->m_nGetRegId, server->m_nUxRegId};
    EXPECT_TRUE(ids[0] != 0 && ids[1] != 0 && ids[2] != 0);
    EXPECT_TRUE(fake::HasLog("[DBusServer] register_object completed [" + std::to_string(ids[0]) +
                             "][" + std::to_string(ids[1]) + "][" + std::to_string(ids[2]) + "]"));

    GDBusConnection* again = handler_bus::ConnectedPair();
    ASSERT_NE(nullptr, again);
    PXMDBusServer::m_OnBusAcquired(again, PXM_DBUS_NAME, server);
    EXPECT_TRUE(fake::HasLog("Already Acquired so this is ignored.", DLOG_ERROR, "PXM_LOG"));
    EXPECT_EQ(fresh, server->m_Connection);
    EXPECT_EQ(ids[2], server->m_nUxRegId);
    EXPECT_EQ(1u, fake::CountLogs("register_object completed"));
}

}  // namespace
