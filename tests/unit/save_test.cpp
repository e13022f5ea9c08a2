// Saving the lists: what lands in secure storage, the clean-up of the records in memory,
// clearing storage for empty lists, failures, quick successive saves and the lock order.
#include <gtest/gtest.h>
#include <json/json.h>

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>

#include "CPXMCore.h"
#include "dlog.h"
#include "fake_platform.h"
#include "unit_support.h"

namespace {

// The stored devices' names, after checking the version line.
std::string Stored() {
    std::string item = fake::SecureItem("PXM_DEVICE_LIST").value_or("(none)");
    EXPECT_EQ(0u, item.rfind("2\n", 0)) << "no version-2 text stored: " << item;
    std::string out;
    for (const Json::Value& element : unit::ParseJson(item.substr(2))) {
        out += (out.empty() ? "" : " ") + element["item_data"]["devname"].asString();
    }
    return out;
}

class SaveTest : public ::testing::Test {
protected:
    void SetUp() override {
        fake::Reset();
        core->mDeviceList.clear();
        core->mReverseDeviceList.clear();
    }
    void TearDown() override { core->DB_WaitForSaves(); }
    void Save() {
        core->DB_Save();
        core->DB_WaitForSaves();
    }
    // Changes a list the way the registry does while saves may be running.
    void AddUnderLock(const char* name) {
        core->mPXMLock.Lock();
        core->mDeviceList.push_back(unit::Device(name, "AA:BB:CC:DD:EE:01"));
        core->mPXMLock.Unlock();
    }
    CPXMCore* core = CPXMCore::GetInstance();
};

TEST_F(SaveTest, SaveCleansRecordsInPlaceAndStoresVersionedJson) {
    pxm_core_device_s room = unit::Device("Living\nRoom", "AA:BB:CC:DD:EE:01");
    std::strcpy(room.p2p_mac, "12:34\r\nXY");
    pxm_core_device_s tab = unit::Device("Tab\r\nlet", "");
    std::strcpy(tab.zel_id, "zel\nrest");
    std::strcpy(tab.mirroring_Id, "mir-7");
    tab.dy_type = 1;
    // Empty fields with a stale byte after the NUL: an address placeholder writes only its
    // "0", an identifier placeholder its terminating NUL too.
    room.zel_id[1] = 'Y';
    tab.wifi_mac[1] = 'X';
    core->mDeviceList = {room};
    core->mReverseDeviceList = {tab};

    Save();

    // The records in memory now hold what was written.
    const pxm_core_device_s& a = core->mDeviceList[0];
    const pxm_core_device_s& b = core->mReverseDeviceList[0];
    EXPECT_EQ("Living|0|12:34|0|0", std::string(a.devname) + "|" + a.wifi_mac + "|" + a.p2p_mac +
                                        "|" + a.zel_id + "|" + a.mirroring_Id);
    EXPECT_EQ("Tab|0|0X|zel|mir-7", std::string(b.devname) + "|" + b.bt_mac + "|" + b.wifi_mac +
                                        "|" + b.zel_id + "|" + b.mirroring_Id);
    EXPECT_EQ("Living Tab", Stored());
    Json::Value items = unit::ParseJson(fake::SecureItem("PXM_DEVICE_LIST").value_or("").substr(2));
    EXPECT_EQ("0", items[0]["item_data"]["mirroring_Id"].asString());
    EXPECT_EQ("zel", items[1]["item_data"]["zel_id"].asString());
    EXPECT_EQ("0X", items[1]["item_data"]["wifi_mac"].asString());
    EXPECT_EQ(1, items[1]["item_data"]["dy_type"].asInt());
    EXPECT_EQ(1u, fake::CallCount("ss_write"));
}

// Empty lists clear the storage instead; a failed write or clear is logged, not retried,
// and the next save writes what it lost.
TEST_F(SaveTest, EmptyListsClearStorageAndFailuresAreMadeGoodByTheNextSave) {
    const std::string previous = "2\n[{\"item_data\":{\"devname\":\"Old\"}}]";
    fake::SetSecureItem("PXM_DEVICE_LIST", previous);
    Save();
    EXPECT_FALSE(fake::SecureItem("PXM_DEVICE_LIST").has_value());
    EXPECT_EQ(0u, fake::CallCount("ss_write"));
    ASSERT_EQ(1u, fake::CallCount("ss_clear_storage"));
    EXPECT_EQ("(null)", fake::Calls("ss_clear_storage")[0].args[0]);
    EXPECT_EQ("0", fake::Calls("ss_clear_storage")[0].args[2]);
    fake::SetResult("ss_clear_storage", -3);
    Save();
    EXPECT_TRUE(fake::HasLog("DB clear failed [-3]", DLOG_ERROR, "PXM_CORE"));

    fake::SetSecureItem("PXM_DEVICE_LIST", previous);
    fake::SetResult("ss_write", -3);
    core->mDeviceList = {unit::Device("Phone", "AA:BB:CC:DD:EE:01")};
    Save();
    EXPECT_TRUE(fake::HasLog("Write file failed [-3]", DLOG_ERROR, "PXM_CORE"));
    EXPECT_EQ(1u, fake::CallCount("ss_write"));
    EXPECT_EQ(previous, fake::SecureItem("PXM_DEVICE_LIST"));
    EXPECT_STREQ("AA:BB:CC:DD:EE:01", core->mDeviceList.at(0).bt_mac);
    fake::ClearResult("ss_write");
    Save();
    EXPECT_EQ("Phone", Stored());

    // Quick successive saves all finish, and the last one holds the latest state.
    fake::ClearJournal();
    core->DB_Save();
    AddUnderLock("Second");
    for (int i = 0; i < 5; ++i) {
        core->DB_Save();
    }
    core->DB_WaitForSaves();
    EXPECT_EQ(6u, fake::CallCount("ss_write"));
    EXPECT_EQ("Phone Second", Stored());
}

TEST_F(SaveTest, SaveWaitsForTheFileLockWithoutHoldingTheListLock) {
    AddUnderLock("Before");
    // Holding the file lock as the loader would: the save must wait for it before it takes
    // the list lock, so the list stays free for others meanwhile.
    core->mFileLock.Lock();
    core->DB_Save();
    ASSERT_TRUE(fake::WaitForCalls("ss_init_credential", 1));
    std::mutex m;
    std::condition_variable cv;
    bool changed = false;
    std::thread changer([&] {
        AddUnderLock("During");
        std::lock_guard<std::mutex> lock(m);
        changed = true;
        cv.notify_all();
    });
    bool listLockFree;
    {
        std::unique_lock<std::mutex> lock(m);
        listLockFree = cv.wait_for(lock, std::chrono::seconds(10), [&] { return changed; });
    }
    EXPECT_EQ(0u, fake::CallCount("ss_write"));
    core->mFileLock.Unlock();
    changer.join();
    core->DB_WaitForSaves();
    EXPECT_TRUE(listLockFree) << "the save held the list lock while waiting for the file lock";
    EXPECT_EQ("Before During", Stored());
}

}  // namespace
