// The bus server: construction and destruction, the factory-reset check of its start-up,
// registration of the three interfaces on a bus connection, and dispatch.
#include <gio/gio.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <cstdlib>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "CPXMCore.h"
#include "PXMDBusServer.h"
#include "dlog.h"
#include "fake_platform.h"

namespace {

const char kFactoryResetKey[] = "db/registertv/factoryreset";

gboolean SetFlag(gpointer flag) {
    *static_cast<bool*>(flag) = true;
    return G_SOURCE_REMOVE;
}

// Dispatches the default main context until done() holds; false after timeout_ms.
bool RunUntil(const std::function<bool()>& done, guint timeout_ms = 5000) {
    bool timed_out = false;
    guint timer = g_timeout_add(timeout_ms, SetFlag, &timed_out);
    while (!done() && !timed_out) {
        g_main_context_iteration(nullptr, TRUE);
    }
    if (!timed_out) {
        g_source_remove(timer);
    }
    return done();
}

// The server with its node info parsed and its name request answered (no system bus in
// unit tests, so the answer is a lost name).
PXMDBusServer* StartedServer() {
    PXMDBusServer* server = PXMDBusServer::GetInstance();
    EXPECT_TRUE(RunUntil(
        [] { return fake::HasLog("[DBusServer] lost name ownership! leave sinking ship"); }));
    EXPECT_NE(nullptr, g_atomic_pointer_get(&server->m_pIntrospection));
    return server;
}

void OnConnectionReady(GObject*, GAsyncResult* result, gpointer out) {
    *static_cast<GDBusConnection**>(out) = g_dbus_connection_new_finish(result, nullptr);
}

// The daemon's end of a private D-Bus connection over a socket pair; the other end is
// kept alive with it. Neither is released: the server keeps its connection for good.
GDBusConnection* PeerConnection() {
    int fds[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0) {
        return nullptr;
    }
    GDBusConnection* ends[2] = {nullptr, nullptr};
    gchar* guid = g_dbus_generate_guid();
    for (int i = 0; i < 2; ++i) {
        GSocket* socket = g_socket_new_from_fd(fds[i], nullptr);
        GSocketConnection* stream = g_socket_connection_factory_create_connection(socket);
        auto flags = i == 0 ? static_cast<GDBusConnectionFlags>(
                                  G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_SERVER |
                                  G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_ALLOW_ANONYMOUS)
                            : G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT;
        g_dbus_connection_new(G_IO_STREAM(stream), i == 0 ? guid : nullptr, flags, nullptr, nullptr,
                              OnConnectionReady, &ends[i]);
        g_object_unref(stream);
        g_object_unref(socket);
    }
    g_free(guid);
    EXPECT_TRUE(RunUntil([&ends] { return ends[0] != nullptr && ends[1] != nullptr; }));
    return ends[0];
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

    EXPECT_EQ(&PXMDBusServer::m_HandleMethodCall, server->m_InterfaceVtable.method_call);
    EXPECT_EQ(nullptr, server->m_InterfaceVtable.get_property);
    EXPECT_EQ(nullptr, server->m_InterfaceVtable.set_property);
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
    GDBusConnection* taken = PeerConnection();
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

    GDBusConnection* fresh = PeerConnection();
    ASSERT_NE(nullptr, fresh);
    PXMDBusServer::m_OnBusAcquired(fresh, PXM_DBUS_NAME, server);
    EXPECT_FALSE(fake::HasLog("Already Acquired so this is ignored."));
    EXPECT_EQ(fresh, server->m_Connection);
    EXPECT_TRUE(fake::HasLog("[DBusServer]  UxInterface succeed (3/3)", DLOG_INFO));
    guint ids[] = {server->m_nSetRegId, server->m_nGetRegId, server->m_nUxRegId};
    EXPECT_TRUE(ids[0] != 0 && ids[1] != 0 && ids[2] != 0);
    EXPECT_TRUE(fake::HasLog("[DBusServer] register_object completed [" + std::to_string(ids[0]) +
                             "][" + std::to_string(ids[1]) + "][" + std::to_string(ids[2]) + "]"));

    GDBusConnection* again = PeerConnection();
    ASSERT_NE(nullptr, again);
    PXMDBusServer::m_OnBusAcquired(again, PXM_DBUS_NAME, server);
    EXPECT_TRUE(fake::HasLog("Already Acquired so this is ignored.", DLOG_ERROR, "PXM_LOG"));
    EXPECT_EQ(fresh, server->m_Connection);
    EXPECT_EQ(ids[2], server->m_nUxRegId);
    EXPECT_EQ(1u, fake::CountLogs("register_object completed"));
}

TEST(ServerInit, DispatchLogsAnUnknownMethodAndANullInstanceWithoutCrashing) {
    fake::Reset();
    PXMDBusServer* server = PXMDBusServer::GetInstance();
    PXMDBusServer::m_HandleMethodCall(nullptr, ":1.5", PXM_DBUS_PATH, PXM_DBUS_GET_INTERFACE,
                                      "pxm_no_such_method", nullptr, nullptr, server);
    EXPECT_TRUE(fake::HasLog("[DBusServer] Unknown method name[pxm_no_such_method]", DLOG_ERROR,
                             "PXM_LOG"));

    PXMDBusServer::m_HandleMethodCall(nullptr, ":1.5", PXM_DBUS_PATH, PXM_DBUS_GET_INTERFACE,
                                      "pxm_get_status", nullptr, nullptr, nullptr);
    EXPECT_TRUE(fake::HasLog("[DBusServer] pInstance is NULL.", DLOG_ERROR, "PXM_LOG"));
    EXPECT_FALSE(fake::HasLog("Unknown method name[pxm_get_status]"));
}

TEST(ServerInit, EveryIntrospectedMethodIsMappedToItsOwnHandler) {
    using S = PXMDBusServer;
    const std::vector<std::pair<std::string, S::Handler>> expected = {
        {"pxm_get_status", &S::pxm_get_status},
        {"pxm_set_status", &S::pxm_set_status},
        {"pxm_get_device", &S::pxm_get_device},
        {"pxm_get_list", &S::pxm_get_list},
        {"pxm_request_access", &S::pxm_request_access},
        {"pxm_remove_device", &S::pxm_remove_device},
        {"pxm_remove_all", &S::pxm_remove_all},
        {"pxm_feedback_ux", &S::pxm_feedback_ux},
        {"pxm_set_tv_init_mirroring_status", &S::pxm_set_tv_init_mirroring_status},
        {"pxm_set_device_extended_param_string", &S::pxm_set_device_extended_param_string},
        {"pxm_request_access_reverse", &S::pxm_request_access_reverse},
        {"pxm_get_device_reverse", &S::pxm_get_device_reverse},
        {"pxm_get_list_reverse", &S::pxm_get_list_reverse},
        {"pxm_remove_device_reverse", &S::pxm_remove_device_reverse},
        {"pxm_remove_all_reverse", &S::pxm_remove_all_reverse},
    };
    EXPECT_EQ(expected.size(), S::fnMapTable.size());
    for (const auto& [name, handler] : expected) {
        auto it = S::fnMapTable.find(name);
        ASSERT_NE(S::fnMapTable.end(), it) << name;
        EXPECT_TRUE(it->second == handler) << name << " is mapped to another handler";
    }

    GError* error = nullptr;
    GDBusNodeInfo* node = g_dbus_node_info_new_for_xml(S::IntrospectionXml(), &error);
    ASSERT_NE(nullptr, node) << (error ? error->message : "");
    // Registration relies on the interfaces' order: Set, Get, Ux.
    const std::vector<std::pair<std::string, std::size_t>> interfaces = {
        {PXM_DBUS_SET_INTERFACE, 9}, {PXM_DBUS_GET_INTERFACE, 5}, {PXM_DBUS_UX_INTERFACE, 1}};
    std::set<std::string> introspected;
    for (std::size_t i = 0; i < interfaces.size(); ++i) {
        GDBusInterfaceInfo* iface = node->interfaces[i];
        ASSERT_NE(nullptr, iface);
        EXPECT_EQ(interfaces[i].first, iface->name);
        std::size_t count = 0;
        for (GDBusMethodInfo** m = iface->methods; m != nullptr && *m != nullptr; ++m, ++count) {
            introspected.insert((*m)->name);
        }
        EXPECT_EQ(interfaces[i].second, count) << iface->name;
    }
    EXPECT_EQ(nullptr, node->interfaces[3]);
    std::set<std::string> mapped;
    for (const auto& entry : S::fnMapTable) {
        mapped.insert(entry.first);
    }
    EXPECT_EQ(mapped, introspected);

    GDBusMethodInfo* feedback =
        g_dbus_interface_info_lookup_method(node->interfaces[2], "pxm_feedback_ux");
    ASSERT_NE(nullptr, feedback);
    EXPECT_TRUE(feedback->out_args == nullptr || feedback->out_args[0] == nullptr);
    g_dbus_node_info_unref(node);
}

}  // namespace
