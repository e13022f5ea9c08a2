// Reading and changing a stored device over the bus: its status, its TV-initiated mirroring
// flag, its name and desktop-mode id; the reply codes, the saves, the wake-up tables and the
// signals.
#include <gtest/gtest.h>

#include "dlog.h"
#include "fake_platform.h"
#include "handler_bus.h"

namespace {

using handler_bus::MacInd;
using handler_bus::MacIndValue;
using unit::Device;

const char kBt[] = "AA:BB:CC:DD:EE:01";
const char kWifi[] = "AA:BB:CC:DD:EE:02";
const uint64_t kNowMs = 1700000000000ull;
using handler_bus::kGet;
using handler_bus::kSet;

class StatusHandlers : public handler_bus::HandlerTest {
protected:
    // Alpha and Beta share a Bluetooth address: only Alpha, first in the list, is ever
    // touched. The reverse list holds Back.
    void SetUp() override {
        HandlerTest::SetUp();
        Start();
        core->DB_WaitForSaves();
        pxm_core_device_s alpha = Device("Alpha", kBt, kWifi);
        snprintf(alpha.zel_id, sizeof(alpha.zel_id), "%s", "z1");
        alpha.devtype = 3;
        alpha.devicon = 4;
        alpha.isNoUX = 1;
        alpha.keyType = 1;
        core->mDeviceList = {alpha, Device("Beta", kBt, "AA:BB:CC:DD:EE:22"),
                             Device("Gamma", "00:00:00:00:00:00", "AA:BB:CC:DD:EE:32", "", 1),
                             Device("Delta", "", "", "AA:BB:CC:DD:EE:43", 1)};
        core->mReverseDeviceList = {Device("Back", "AA:BB:CC:DD:EE:71")};
        fake::SetRealtime(kNowMs / 1000, 0);
        fake::ClearJournal();
    }
    // The lock must be free for other threads once every call has been answered.
    void TearDown() override {
        EXPECT_TRUE(unit::LockIsFree(core->mPXMLock));
        HandlerTest::TearDown();
    }
};

TEST_F(StatusHandlers, GetStatusReadsTheFirstMatchAndTouchesOnlyItsAccessTime) {
    EXPECT_EQ("(0,)", client.Call(kGet, "pxm_get_status", MacInd("aa:bb:cc:dd:ee:01", 1)));
    EXPECT_TRUE(fake::HasLog("[DBusServer] pxm_get_status called. Mac: [aa:bb:cc:dd:ee:01](1) ",
                             DLOG_INFO, "PXM_LOG"));
    EXPECT_EQ(kNowMs, core->mDeviceList[0].accessTime);
    EXPECT_EQ(0u, core->mDeviceList[1].accessTime);
    EXPECT_EQ("(1,)", client.Call(kGet, "pxm_get_status", MacInd("AA:BB:CC:DD:EE:32", 2)));

    // Not found: by an unknown address, by the wrong kind of address, or by a bad indicator.
    EXPECT_EQ("(-1,)", client.Call(kGet, "pxm_get_status", MacInd("AA:BB:CC:DD:EE:99", 1)));
    EXPECT_TRUE(fake::HasLog("pxmDBusServer: CMD_GetStatus("));
    EXPECT_TRUE(fake::HasLog("Failed to get status : Not found [AA:BB:CC:DD:EE:99]", DLOG_WARN,
                             "PXM_CORE"));
    EXPECT_EQ("(-1,)", client.Call(kGet, "pxm_get_status", MacInd(kBt, 2)));
    EXPECT_EQ("(-1,)", client.Call(kGet, "pxm_get_status", MacInd(kBt, 4)));
    EXPECT_TRUE(fake::HasLog("Incorrect IND"));

    core->DB_WaitForSaves();
    // A lookup is never saved.
    EXPECT_EQ(0u, fake::CallCount("ss_write"));
}

TEST_F(StatusHandlers, SetStatusRefusesBadValuesAndUnknownDevicesWithoutChanges) {
    EXPECT_EQ("(3,)", client.Call(kSet, "pxm_set_status", MacIndValue(kBt, 1, -1)));
    EXPECT_TRUE(fake::HasLog("Invalid status tried to set [-1]", DLOG_ERROR, "PXM_CORE"));
    EXPECT_TRUE(fake::HasLog("pxmDBusServer: CMD_SetStatus("));
    EXPECT_EQ("(3,)", client.Call(kSet, "pxm_set_status", MacIndValue(kBt, 1, 2)));
    EXPECT_EQ("(4,)", client.Call(kSet, "pxm_set_status", MacIndValue("AA:BB:CC:DD:EE:99", 1, 1)));
    EXPECT_TRUE(fake::HasLog("Failed to set status : Not found [AA:BB:CC:DD:EE:99]", DLOG_ERROR,
                             "PXM_CORE"));
    EXPECT_TRUE(
        fake::HasLog("[DBusServer] pxm_set_status called.Return value [4] ", DLOG_INFO, "PXM_LOG"));
    core->DB_WaitForSaves();
    EXPECT_EQ(0u, fake::CallCount("ss_write"));
    EXPECT_EQ(0, core->mDeviceList[0].devstatus);
    EXPECT_EQ(0u, core->mDeviceList[0].accessTime);
    EXPECT_TRUE(SignalBodies("").empty());

    // The same status again: only the access time moves, and that is saved.
    EXPECT_EQ("(2,)", client.Call(kSet, "pxm_set_status", MacIndValue(kBt, 1, 0)));
    core->DB_WaitForSaves();
    EXPECT_EQ(1u, fake::CallCount("ss_write"));
    EXPECT_EQ(kNowMs, core->mDeviceList[0].accessTime);
    EXPECT_EQ(0u, fake::CallCount("bt_headless_open_db"));
    EXPECT_TRUE(SignalBodies("").empty());
}

TEST_F(StatusHandlers, SetStatusChangesTheFirstMatchFollowsWithTheTablesAndAnnouncesIt) {
    // Allowed: entered in both wake-up tables.
    EXPECT_EQ("(1,)", client.Call(kSet, "pxm_set_status", MacIndValue("AA:BB:CC:DD:EE:32", 2, 0)));
    core->DB_WaitForSaves();
    EXPECT_EQ(0, core->mDeviceList[2].devstatus);
    EXPECT_EQ(std::vector<std::string>{"AA:BB:CC:DD:EE:32"}, fake::WakerTable());
    EXPECT_TRUE(fake::HeadlessTable().empty());

    // Denied: Alpha only (Beta shares the address but comes later), out of the tables.
    fake::ClearJournal();
    client.ClearEvents();
    EXPECT_EQ("(1,)", client.Call(kSet, "pxm_set_status", MacIndValue("aa:bb:cc:dd:ee:01", 1, 1)));
    core->DB_WaitForSaves();
    EXPECT_EQ(1, core->mDeviceList[0].devstatus);
    EXPECT_EQ(0, core->mDeviceList[1].devstatus);
    EXPECT_EQ(kNowMs, core->mDeviceList[0].accessTime);
    EXPECT_EQ(1u, fake::CallCount("ss_write"));
    auto deleted = fake::Calls("bt_bluetooth_delete_headless_mobile_in_DB");
    ASSERT_EQ(1u, deleted.size());
    EXPECT_EQ(kBt, deleted[0].args.at(1));
    auto unwoken = fake::Calls("wowl_del_waker_device");
    ASSERT_EQ(1u, unwoken.size());
    EXPECT_EQ(kWifi, unwoken[0].args.at(0));

    EXPECT_EQ(std::vector<std::string>{"('AA:BB:CC:DD:EE:01', 'AA:BB:CC:DD:EE:02', '0', 1)"},
              SignalBodies());
    // Announced, backed up and logged before the answer goes out.
    EXPECT_LT(client.IndexOf("signal", PXM_SIGNAL_STATUS_CHANGED),
              client.IndexOf("reply", "pxm_set_status"));
    long noti = fake::FindLog("[DBusServer] [NOTI] DEVICE STATUS CHANGED");
    EXPECT_GE(noti, 0);
    EXPECT_GT(fake::FindLog("[DBusServer] pxm_set_status called.Return value [1] "), noti);
    EXPECT_TRUE(
        fake::HasLog("[DBusServer] pxm_set_status called. MAC [aa:bb:cc:dd:ee:01](1) and "
                     "Status: [1] ",
                     DLOG_INFO, "PXM_LOG"));

    // Gamma's Bluetooth address is not usable: it goes out as the placeholder.
    client.ClearEvents();
    EXPECT_EQ("(1,)", client.Call(kSet, "pxm_set_status", MacIndValue("AA:BB:CC:DD:EE:32", 2, 1)));
    EXPECT_EQ(std::vector<std::string>{"('0', 'AA:BB:CC:DD:EE:32', '0', 1)"}, SignalBodies());
    core->DB_WaitForSaves();
    EXPECT_TRUE(fake::WakerTable().empty());
}

TEST_F(StatusHandlers, TvInitMirroringChangesAreSavedAndOnlyRealChangesAnnounced) {
    EXPECT_EQ("(1,)",
              client.Call(kSet, "pxm_set_tv_init_mirroring_status", MacIndValue(kWifi, 2, 5)));
    core->DB_WaitForSaves();
    EXPECT_EQ(5, core->mDeviceList[0].tvInitMirroringSupport);
    EXPECT_EQ(kNowMs, core->mDeviceList[0].accessTime);
    EXPECT_EQ(1u, fake::CallCount("ss_write"));
    EXPECT_EQ(std::vector<std::string>{"('AA:BB:CC:DD:EE:01', 'AA:BB:CC:DD:EE:02', '0', 5)"},
              SignalBodies(PXM_SIGNAL_TV_INIT_MIRRORING_CHANGED));
    EXPECT_TRUE(client.Signals(PXM_SIGNAL_STATUS_CHANGED).empty());
    EXPECT_TRUE(fake::HasLog("[DBusServer] [NOTI] DEVICE TV INIT MIRRORING SUPPORT CHANGED",
                             DLOG_INFO, "PXM_LOG"));
    EXPECT_TRUE(
        fake::HasLog("[DBusServer] pxm_set_tv_init_mirroring_status called.Return value [1] "));
    // The wake-up tables do not care about mirroring.
    EXPECT_EQ(0u, fake::CallCount("bt_headless_open_db"));

    // The same value: saved (the access time moved), answered 0, not announced.
    client.ClearEvents();
    EXPECT_EQ("(0,)",
              client.Call(kSet, "pxm_set_tv_init_mirroring_status", MacIndValue(kWifi, 2, 5)));
    core->DB_WaitForSaves();
    EXPECT_EQ(2u, fake::CallCount("ss_write"));
    EXPECT_TRUE(SignalBodies("").empty());

    EXPECT_EQ("(0,)", client.Call(kSet, "pxm_set_tv_init_mirroring_status",
                                  MacIndValue("AA:BB:CC:DD:EE:99", 2, 1)));
    EXPECT_TRUE(fake::HasLog("pxmDBusServer: CMD_SetTVInitMirroringStatus("));
    EXPECT_TRUE(fake::HasLog("Failed to set status : Not found [AA:BB:CC:DD:EE:99]", DLOG_ERROR,
                             "PXM_CORE"));
    core->DB_WaitForSaves();
    EXPECT_EQ(2u, fake::CallCount("ss_write"));
}

TEST_F(StatusHandlers, ExtendedParametersReplaceTheNameOrTheIdCutToCapacity) {
    const char* method = "pxm_set_device_extended_param_string";

    std::string longName(150, 'N');
    EXPECT_EQ("(1,)",
              client.Call(kSet, method, g_variant_new("(sisi)", kBt, 1, longName.c_str(), 1)));
    core->DB_WaitForSaves();
    EXPECT_EQ(std::string(127, 'N'), core->mDeviceList[0].devname);
    EXPECT_STREQ("Beta", core->mDeviceList[1].devname);
    EXPECT_EQ(kNowMs, core->mDeviceList[0].accessTime);
    EXPECT_TRUE(fake::HasLog("[DBusServer] " + std::string(method) + " called. MAC [" + kBt +
                             "](1) and param: [" + longName + "](1)"));

    std::string longId(40, 'Z');
    EXPECT_EQ("(1,)",
              client.Call(kSet, method, g_variant_new("(sisi)", kWifi, 2, longId.c_str(), 2)));
    core->DB_WaitForSaves();
    EXPECT_EQ(std::string(31, 'Z'), core->mDeviceList[0].zel_id);

    // Another type changes nothing but still counts as found and is saved.
    EXPECT_EQ("(1,)", client.Call(kSet, method, g_variant_new("(sisi)", kBt, 1, "Other", 3)));
    core->DB_WaitForSaves();
    EXPECT_EQ(std::string(127, 'N'), core->mDeviceList[0].devname);
    EXPECT_EQ(std::string(31, 'Z'), core->mDeviceList[0].zel_id);
    EXPECT_EQ(3u, fake::CallCount("ss_write"));

    EXPECT_EQ("(0,)",
              client.Call(kSet, method, g_variant_new("(sisi)", "AA:BB:CC:DD:EE:99", 1, "X", 1)));
    EXPECT_TRUE(fake::HasLog("pxmDBusServer: CMD_SetDeviceExtendedParamString("));
    EXPECT_TRUE(fake::HasLog("[DBusServer] " + std::string(method) + " called.Return value [0] "));
    core->DB_WaitForSaves();
    EXPECT_EQ(3u, fake::CallCount("ss_write"));
    EXPECT_TRUE(SignalBodies("").empty());
}

TEST_F(StatusHandlers, RemovalsAreLoggedAndRemoveAllIsUnheardWhenTheTablesStay) {
    EXPECT_EQ("(1,)", client.Call(kSet, "pxm_remove_device", MacInd("aa:bb:cc:dd:ee:43", 3)));
    EXPECT_TRUE(fake::HasLog("[DBusServer] [NOTI] DEVICE REMOVED", DLOG_WARN, "PXM_LOG"));
    EXPECT_TRUE(fake::HasLog("[DBusServer] pxm_remove_device called. MAC [aa:bb:cc:dd:ee:43](3)"));
    EXPECT_EQ((std::vector<std::string>{"Alpha", "Beta", "Gamma"}), unit::Names(core->mDeviceList));
    EXPECT_EQ(std::vector<std::string>{"('0', '0', 'AA:BB:CC:DD:EE:43', 3)"}, SignalBodies());

    client.ClearEvents();
    EXPECT_EQ("(1,)", client.Call(kSet, "pxm_remove_all"));
    EXPECT_EQ("(1,)", client.Call(kSet, "pxm_remove_all"));
    EXPECT_EQ(std::vector<std::string>(2, "('0', '0', '0', 4)"), SignalBodies());
    core->DB_WaitForSaves();
    EXPECT_TRUE(core->mDeviceList.empty());
    EXPECT_EQ(1u, core->mReverseDeviceList.size());
    EXPECT_EQ(2u, fake::CountLogs("[DBusServer] [NOTI] DEVICE REMOVED ALL"));
    EXPECT_TRUE(fake::HasLog("[DBusServer] pxm_remove_all called.", DLOG_INFO, "PXM_LOG"));

    // The wake-up tables cannot be cleared: the list is emptied but the answer is 0, unheard.
    client.ClearEvents();
    fake::SetResult("bt_headless_open_db", 1);
    EXPECT_EQ("(0,)", client.Call(kSet, "pxm_remove_all"));
    EXPECT_TRUE(SignalBodies().empty());
}

}  // namespace
