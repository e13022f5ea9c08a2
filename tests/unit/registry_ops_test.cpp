// Lookups, copies, removals and counter clearing on the two lists, and the lock discipline
// every registry operation keeps.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "CPXMCore.h"
#include "dlog.h"
#include "fake_platform.h"
#include "unit_support.h"

namespace {

pxm_core_device_s Dev(const char* name, const char* bt, const char* wifi, const char* p2p) {
    pxm_core_device_s d = unit::Device(name, bt, wifi, p2p);
    snprintf(d.zel_id, sizeof d.zel_id, "zel-%s", name);
    d.devtype = 2;
    d.accessTime = 1700000000123ULL;
    d.updated = 3;
    d.keyType = 1;
    d.dy_type = 5;
    return d;
}

// Field by field: padding bytes are not part of a record.
bool SameRecord(const pxm_core_device_s& a, const pxm_core_device_s& b) {
    auto same = [](const auto& x, const auto& y) { return memcmp(x, y, sizeof x) == 0; };
    return same(a.devname, b.devname) && same(a.bt_mac, b.bt_mac) && same(a.wifi_mac, b.wifi_mac) &&
           same(a.p2p_mac, b.p2p_mac) && same(a.zel_id, b.zel_id) &&
           same(a.mirroring_Id, b.mirroring_Id) && a.devtype == b.devtype &&
           a.devicon == b.devicon && a.devstatus == b.devstatus &&
           a.tvInitMirroringSupport == b.tvInitMirroringSupport && a.isNoUX == b.isNoUX &&
           a.isUXAlways == b.isUXAlways && a.accessTime == b.accessTime && a.updated == b.updated &&
           a.keyType == b.keyType && a.dy_type == b.dy_type;
}

class RegistryOps : public ::testing::Test {
protected:
    void SetUp() override {
        core->DB_WaitForSaves();
        core->mDeviceList = {Dev("X", "AA:00:00:00:00:01", "11:00:00:00:00:01", ""),
                             Dev("Y", "AA:00:00:00:00:02", "11:00:00:00:00:02", ""),
                             Dev("Z", "", "", "22:00:00:00:00:03")};
        core->mReverseDeviceList = {Dev("R", "AA:00:00:00:00:09", "11:00:00:00:00:09", "")};
        fake::Reset();
    }
    void TearDown() override { core->DB_WaitForSaves(); }
    CPXMCore* core = CPXMCore::GetInstance();
};

TEST_F(RegistryOps, GetDeviceFindsByEachAddressIgnoringCase) {
    pxm_core_device_s out;
    const char* macs[] = {"aa:00:00:00:00:02", "11:00:00:00:00:01", "22:00:00:00:00:03"};
    const size_t found[] = {1, 0, 2};
    for (int ind = 1; ind <= 3; ind++) {
        memset(&out, 0x5A, sizeof out);
        EXPECT_TRUE(core->CMD_GetDevice(macs[ind - 1], static_cast<pxm_tech_ind_e>(ind), &out,
                                        PXM_SAVE_NORMAL));
        EXPECT_TRUE(SameRecord(out, core->mDeviceList[found[ind - 1]])) << ind;
    }
    // No match clears the out-record; the address is only in the normal list.
    memset(&out, 0x5A, sizeof out);
    EXPECT_FALSE(
        core->CMD_GetDevice(macs[0], static_cast<pxm_tech_ind_e>(4), &out, PXM_SAVE_NORMAL));
    EXPECT_TRUE(SameRecord(out, pxm_core_device_s{}));
    EXPECT_FALSE(core->CMD_GetDevice(macs[0], PXM_TECH_BT, &out, PXM_SAVE_REVERSE));

    core->mReverseDeviceList.clear();
    memset(&out, 0x5A, sizeof out);
    EXPECT_FALSE(core->CMD_GetDevice("AA:00:00:00:00:09", PXM_TECH_BT, &out, PXM_SAVE_REVERSE));
    EXPECT_TRUE(fake::HasLog("Input Count is null", DLOG_ERROR));
    EXPECT_EQ(out.devtype, 0x5A5A5A5A);  // untouched
}

TEST_F(RegistryOps, GetAllDevicesCopiesEveryRecordButDyType) {
    int count = -1;
    pxm_core_device_s* list = nullptr;
    ASSERT_TRUE(core->CMD_GetAllDevices(&count, &list, PXM_SAVE_NORMAL));
    ASSERT_EQ(count, 3);
    for (int i = 0; i < count; i++) {
        EXPECT_EQ(list[i].dy_type, 0);
        pxm_core_device_s expected = core->mDeviceList[i];
        expected.dy_type = 0;
        EXPECT_TRUE(SameRecord(list[i], expected)) << i;
    }
    free(list);

    core->mReverseDeviceList.clear();
    pxm_core_device_s sentinel{};
    list = &sentinel;
    ASSERT_TRUE(core->CMD_GetAllDevices(&count, &list, PXM_SAVE_REVERSE));
    EXPECT_EQ(count, 0);
    EXPECT_EQ(list, &sentinel);
    EXPECT_TRUE(fake::HasLog("List is empty", DLOG_WARN));
}

TEST_F(RegistryOps, RemoveDeviceByEachAddressReportsItsAddressesAndTakesItOutOfTheTables) {
    pxm_core_device_s out;
    memset(&out, 'Q', sizeof out);
    auto remove = [&](const char* mac, int ind, dev_save_type save = PXM_SAVE_NORMAL) {
        return core->INTERNAL_RemoveDevice(mac, static_cast<pxm_tech_ind_e>(ind), &out, save);
    };
    ASSERT_TRUE(remove("11:00:00:00:00:02", 2));
    EXPECT_STREQ(out.bt_mac, "AA:00:00:00:00:02");
    EXPECT_STREQ(out.wifi_mac, "11:00:00:00:00:02");
    EXPECT_EQ(out.p2p_mac[0], 'Q');  // invalid address: not written
    EXPECT_EQ(out.devname[0], 'Q');
    EXPECT_EQ(out.keyType, 1);
    EXPECT_EQ(fake::Calls("wowl_del_waker_device").at(0).args[0], "11:00:00:00:00:02");
    ASSERT_EQ(core->mDeviceList.size(), 2u);
    EXPECT_STREQ(core->mDeviceList[1].devname, "Z");

    EXPECT_TRUE(remove("22:00:00:00:00:03", 3));
    EXPECT_FALSE(remove("AA:00:00:00:00:01", 4));
    EXPECT_TRUE(fake::HasLog("Failed to remove : Not found [AA:00:00:00:00:01]", DLOG_ERROR));
    EXPECT_TRUE(remove("aa:00:00:00:00:01", 1));
    EXPECT_FALSE(remove("AA:00:00:00:00:01", 1));
    EXPECT_TRUE(fake::HasLog("Currrently no data to remove", DLOG_WARN));

    // The reverse list has no wake-up tables.
    fake::ClearJournal();
    EXPECT_TRUE(remove("AA:00:00:00:00:09", 1, PXM_SAVE_REVERSE));
    EXPECT_TRUE(core->mReverseDeviceList.empty());
    EXPECT_EQ(fake::CallCount("bt_headless_open_db"), 0u);

    // The last save finds both lists empty and clears the stored list.
    core->DB_WaitForSaves();
    EXPECT_GE(fake::CallCount("ss_clear_storage"), 1u);
}

TEST_F(RegistryOps, RemoveAllClearsTablesOnlyForTheNormalList) {
    EXPECT_FALSE(core->CMD_RemoveAllDevices(PXM_SAVE_REVERSE));
    EXPECT_TRUE(core->mReverseDeviceList.empty());
    EXPECT_TRUE(fake::HasLog("EXTERNAL DB clear error", DLOG_INFO));
    EXPECT_EQ(fake::CallCount("bt_headless_open_db"), 0u);
    EXPECT_EQ(core->mDeviceList.size(), 3u);

    EXPECT_TRUE(core->CMD_RemoveAllDevices(PXM_SAVE_NORMAL));
    EXPECT_TRUE(core->mDeviceList.empty());
    EXPECT_TRUE(fake::HasLog("EXTERNAL DB cleared successfully", DLOG_INFO));
    EXPECT_EQ(fake::CallCount("bt_bluetooth_delete_all_headless_mobile_in_DB"), 1u);
    EXPECT_EQ(fake::CallCount("wowl_clear_waker_table"), 1u);

    // Tables that cannot be opened make the result false; the list is emptied anyway.
    core->DB_WaitForSaves();
    core->mDeviceList.push_back(Dev("W", "AA:00:00:00:00:04", "", ""));
    fake::SetResult("bt_headless_open_db", -1);
    EXPECT_FALSE(core->CMD_RemoveAllDevices(PXM_SAVE_NORMAL));
    EXPECT_TRUE(core->mDeviceList.empty());
}

TEST_F(RegistryOps, OperationsReleaseTheListLockAndNeverWaitForTheFileLock) {
    std::promise<void> held;
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    std::thread holder([&] {
        core->mFileLock.Lock();
        held.set_value();
        released.wait();
        core->mFileLock.Unlock();
    });
    held.get_future().wait();

    pxm_core_device_s d = Dev("N", "AA:00:00:00:00:05", "11:00:00:00:00:05", "");
    pxm_core_device_s out{};
    int count = 0;
    pxm_core_device_s* list = nullptr;
    const std::vector<std::pair<const char*, std::function<void()>>> steps = {
        {"add", [&] { core->INTERNAL_AddDevice(&d, PXM_SAVE_NORMAL); }},
        {"merge", [&] { core->INTERNAL_AddDevice(&d, PXM_SAVE_NORMAL); }},
        {"get", [&] { core->CMD_GetDevice(d.bt_mac, PXM_TECH_BT, &out, PXM_SAVE_NORMAL); }},
        {"get-miss", [&] { core->CMD_GetDevice("x", PXM_TECH_BT, &out, PXM_SAVE_NORMAL); }},
        {"get-all", [&] { core->CMD_GetAllDevices(&count, &list, PXM_SAVE_NORMAL); }},
        {"remove",
         [&] { core->INTERNAL_RemoveDevice(d.bt_mac, PXM_TECH_BT, &out, PXM_SAVE_NORMAL); }},
        {"remove-miss",
         [&] { core->INTERNAL_RemoveDevice("x", PXM_TECH_BT, &out, PXM_SAVE_NORMAL); }},
        {"clear-update", [&] { core->UTIL_ClearUpdate(); }},
        {"remove-all", [&] { core->CMD_RemoveAllDevices(PXM_SAVE_NORMAL); }},
        {"remove-all-reverse", [&] { core->CMD_RemoveAllDevices(PXM_SAVE_REVERSE); }},
    };
    std::string leaked;
    auto ops = std::async(std::launch::async, [&] {
        for (const auto& step : steps) {
            step.second();
            // Unlock succeeds only for the owner: true means the operation kept the lock.
            if (core->mPXMLock.Unlock()) {
                leaked += std::string(step.first) + " ";
            }
        }
    });
    if (ops.wait_for(std::chrono::seconds(10)) != std::future_status::ready) {
        // A blocked operation can be neither joined nor abandoned: report and leave.
        fprintf(stderr, "an operation waited for mFileLock\n");
        std::_Exit(1);
    }
    release.set_value();
    holder.join();
    free(list);
    EXPECT_EQ(leaked, "") << "operations that kept mPXMLock";
}

}  // namespace
