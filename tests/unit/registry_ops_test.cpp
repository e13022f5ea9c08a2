// Copies, removals and counter clearing on the two lists, and the lock discipline every
// registry operation keeps.
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
    snprintf(d.mirroring_Id, sizeof d.mirroring_Id, "mir-%s", name);
    d.devtype = 2;
    d.devicon = 4;
    d.tvInitMirroringSupport = 1;
    d.isUXAlways = 1;
    d.accessTime = 1700000000123ULL;
    d.updated = 3;
    d.keyType = 1;
    d.dy_type = 5;
    return d;
}

// Every field but dy_type, as text.
std::string Text(const pxm_core_device_s& d) {
    char out[512];
    snprintf(out, sizeof out, "%s|%s|%s|%s|%s|%s|%d|%d|%d|%d|%d|%d|%llu|%d|%d", d.devname, d.bt_mac,
             d.wifi_mac, d.p2p_mac, d.zel_id, d.mirroring_Id, d.devtype, d.devicon, d.devstatus,
             d.tvInitMirroringSupport, d.isNoUX, d.isUXAlways,
             static_cast<unsigned long long>(d.accessTime), d.updated, d.keyType);
    return out;
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

TEST_F(RegistryOps, GetAllDevicesCopiesEveryRecordButDyType) {
    int count = -1;
    pxm_core_device_s* list = nullptr;
    ASSERT_TRUE(core->CMD_GetAllDevices(&count, &list, PXM_SAVE_NORMAL));
    ASSERT_EQ(3, count);
    for (int i = 0; i < count; i++) {
        EXPECT_EQ(0, list[i].dy_type);
        EXPECT_EQ(Text(core->mDeviceList[i]), Text(list[i]));
    }
    free(list);

    core->mReverseDeviceList.clear();
    pxm_core_device_s sentinel{};
    list = &sentinel;
    ASSERT_TRUE(core->CMD_GetAllDevices(&count, &list, PXM_SAVE_REVERSE));
    EXPECT_EQ(0, count);
    EXPECT_EQ(&sentinel, list);
}

TEST_F(RegistryOps, RemoveDeviceByEachAddressReportsItsAddressesAndTakesItOutOfTheTables) {
    pxm_core_device_s out;
    memset(&out, 'Q', sizeof out);
    auto remove = [&](const char* mac, int ind, dev_save_type save = PXM_SAVE_NORMAL) {
        return core->INTERNAL_RemoveDevice(mac, static_cast<pxm_tech_ind_e>(ind), &out, save);
    };
    ASSERT_TRUE(remove("11:00:00:00:00:02", 2));
    EXPECT_STREQ("AA:00:00:00:00:02", out.bt_mac);
    EXPECT_STREQ("11:00:00:00:00:02", out.wifi_mac);
    EXPECT_EQ('Q', out.p2p_mac[0]);  // invalid address: not written
    EXPECT_EQ('Q', out.devname[0]);
    EXPECT_EQ(1, out.keyType);
    EXPECT_EQ(std::vector<std::string>{"11:00:00:00:00:02"},
              unit::FirstArgs("wowl_del_waker_device"));
    EXPECT_EQ("X Z", unit::Names(core->mDeviceList));

    EXPECT_TRUE(remove("22:00:00:00:00:03", 3));
    EXPECT_FALSE(remove("AA:00:00:00:00:01", 4));
    EXPECT_TRUE(fake::HasLog("Failed to remove : Not found [AA:00:00:00:00:01]", DLOG_ERROR));
    EXPECT_TRUE(remove("aa:00:00:00:00:01", 1));
    EXPECT_FALSE(remove("AA:00:00:00:00:01", 1));

    // The reverse list has no wake-up tables.
    fake::ClearJournal();
    EXPECT_TRUE(remove("AA:00:00:00:00:09", 1, PXM_SAVE_REVERSE));
    EXPECT_TRUE(core->mReverseDeviceList.empty());
    EXPECT_EQ(0u, fake::CallCount("bt_headless_open_db"));

    // The last save finds both lists empty and clears the stored list.
    core->DB_WaitForSaves();
    EXPECT_GE(fake::CallCount("ss_clear_storage"), 1u);
}

TEST_F(RegistryOps, RemoveAllClearsTablesOnlyForTheNormalList) {
    EXPECT_FALSE(core->CMD_RemoveAllDevices(PXM_SAVE_REVERSE));
    EXPECT_TRUE(core->mReverseDeviceList.empty());
    EXPECT_EQ(0u, fake::CallCount("bt_headless_open_db"));
    EXPECT_EQ(3u, core->mDeviceList.size());

    EXPECT_TRUE(core->CMD_RemoveAllDevices(PXM_SAVE_NORMAL));
    EXPECT_TRUE(core->mDeviceList.empty());
    EXPECT_EQ(1u, fake::CallCount("bt_bluetooth_delete_all_headless_mobile_in_DB"));
    EXPECT_EQ(1u, fake::CallCount("wowl_clear_waker_table"));

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
    EXPECT_EQ("", leaked) << "operations that kept mPXMLock";
}

}  // namespace
