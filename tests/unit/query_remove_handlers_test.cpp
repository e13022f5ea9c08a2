// Queries and removals over the bus where only the server's side shows it: unanswered
// queries without a registry, the removal logs, and a remove-all that could not clear the
// wake-up tables.
#include <gtest/gtest.h>

#include "handler_bus.h"

namespace {

using handler_bus::Client;
using handler_bus::Stored;

CPXMCore* SeededRegistry(Client& client) {
    CPXMCore* core = handler_bus::StartRegistry(client.server());
    core->DB_WaitForSaves();
    pxm_core_device_s one = Stored("One", "AA:BB:CC:DD:EE:01", "AA:BB:CC:DD:EE:02", "", 0);
    snprintf(one.zel_id, sizeof(one.zel_id), "%s", "zel-1");
    snprintf(one.mirroring_Id, sizeof(one.mirroring_Id), "%s", "mir-1");
    one.devtype = 7;
    one.devicon = 8;
    one.tvInitMirroringSupport = 1;
    one.isUXAlways = 1;
    pxm_core_device_s two = Stored("Two", "", "", "AA:BB:CC:DD:EE:23", 1);
    two.keyType = 2;
    pxm_core_device_s back = Stored("Back", "AA:BB:CC:DD:EE:71", "", "", 0);
    core->mDeviceList = {one, two};
    core->mReverseDeviceList = {back};
    fake::ClearJournal();
    return core;
}

GVariant* MacInd(const char* mac, int ind) {
    return g_variant_new("(si)", mac, ind);
}

TEST(QueryHandlers, WithoutARegistryTheQueriesAreLeftUnanswered) {
    fake::Reset();
    Client client;
    ASSERT_TRUE(client.Ready());
    client.Send(PXM_DBUS_GET_INTERFACE, "pxm_get_list", nullptr);
    client.Send(PXM_DBUS_GET_INTERFACE, "pxm_get_device", MacInd("AA:BB:CC:DD:EE:01", 1));
    client.Send(PXM_DBUS_GET_INTERFACE, "pxm_get_list_reverse", nullptr);
    // Answered, so the three before it have been handled.
    EXPECT_EQ("(-1,)", client.Call(PXM_DBUS_GET_INTERFACE, "pxm_get_status",
                                   MacInd("AA:BB:CC:DD:EE:01", 1)));
    client.Flush();
    EXPECT_EQ(-1, client.IndexOf("reply", "pxm_get_list"));
    EXPECT_EQ(-1, client.IndexOf("error", "pxm_get_list"));
    EXPECT_EQ(-1, client.IndexOf("reply", "pxm_get_device"));
    EXPECT_EQ(-1, client.IndexOf("error", "pxm_get_device"));
    EXPECT_EQ(-1, client.IndexOf("reply", "pxm_get_list_reverse"));
    EXPECT_TRUE(fake::HasLog("[DBusServer] pxm_get_device called. MAC [AA:BB:CC:DD:EE:01](1)"));
}

TEST(RemoveHandlers, RemovingADeviceAnnouncesItsUsableAddressesAfterTheReply) {
    fake::Reset();
    Client client;
    ASSERT_TRUE(client.Ready());
    CPXMCore* core = SeededRegistry(client);

    EXPECT_EQ("(1,)", client.Call(PXM_DBUS_SET_INTERFACE, "pxm_remove_device",
                                  MacInd("aa:bb:cc:dd:ee:23", 3)));
    client.Flush();
    core->DB_WaitForSaves();
    ASSERT_EQ(1u, core->mDeviceList.size());
    EXPECT_STREQ("One", core->mDeviceList[0].devname);
    auto signals = client.Signals(PXM_SIGNAL_STATUS_CHANGED);
    ASSERT_EQ(1u, signals.size());
    EXPECT_EQ("('0', '0', 'AA:BB:CC:DD:EE:23', 3)", signals[0].body);
    EXPECT_LT(client.IndexOf("reply", "pxm_remove_device"),
              client.IndexOf("signal", PXM_SIGNAL_STATUS_CHANGED));
    EXPECT_TRUE(fake::HasLog("[DBusServer] [NOTI] DEVICE REMOVED", DLOG_WARN, "PXM_LOG"));
    EXPECT_TRUE(fake::HasLog("[DBusServer] pxm_remove_device called. MAC [aa:bb:cc:dd:ee:23](3)"));

    // Nothing left to match: 0 and silence.
    client.ClearEvents();
    EXPECT_EQ("(0,)", client.Call(PXM_DBUS_SET_INTERFACE, "pxm_remove_device",
                                  MacInd("AA:BB:CC:DD:EE:23", 3)));
    EXPECT_EQ("(0,)", client.Call(PXM_DBUS_SET_INTERFACE, "pxm_remove_device",
                                  MacInd("AA:BB:CC:DD:EE:01", 4)));
    client.Flush();
    EXPECT_TRUE(client.Signals().empty());
    core->DB_WaitForSaves();
    EXPECT_EQ(1u, core->mDeviceList.size());
}

TEST(RemoveHandlers, RemoveAllAnnouncesPlaceholdersEvenForAnEmptyList) {
    fake::Reset();
    Client client;
    ASSERT_TRUE(client.Ready());
    CPXMCore* core = SeededRegistry(client);

    for (int round = 0; round < 2; ++round) {
        client.ClearEvents();
        EXPECT_EQ("(1,)", client.Call(PXM_DBUS_SET_INTERFACE, "pxm_remove_all"));
        client.Flush();
        auto signals = client.Signals(PXM_SIGNAL_STATUS_CHANGED);
        ASSERT_EQ(1u, signals.size()) << "round " << round;
        EXPECT_EQ("('0', '0', '0', 4)", signals[0].body);
        EXPECT_LT(client.IndexOf("reply", "pxm_remove_all"),
                  client.IndexOf("signal", PXM_SIGNAL_STATUS_CHANGED));
    }
    core->DB_WaitForSaves();
    EXPECT_TRUE(core->mDeviceList.empty());
    EXPECT_EQ(1u, core->mReverseDeviceList.size());
    EXPECT_EQ(2u, fake::CountLogs("[DBusServer] [NOTI] DEVICE REMOVED ALL"));
    EXPECT_TRUE(fake::HasLog("[DBusServer] pxm_remove_all called.", DLOG_INFO, "PXM_LOG"));

    // The wake-up tables cannot be cleared: the list is emptied but the answer is 0, unheard.
    client.ClearEvents();
    fake::SetResult("bt_headless_open_db", 1);
    EXPECT_EQ("(0,)", client.Call(PXM_DBUS_SET_INTERFACE, "pxm_remove_all"));
    client.Flush();
    EXPECT_TRUE(client.Signals().empty());
}

}  // namespace
