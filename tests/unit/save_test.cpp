// Saving the lists: what lands in secure storage, the clean-up of the records in memory,
// clearing storage for empty lists, failures, quick successive saves and the lock order.
#include <gtest/gtest.h>
#include <json/json.h>

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "CPXMCore.h"
#include "dlog.h"
#include "fake_platform.h"
#include "unit_support.h"

namespace {

pxm_core_device_s Device(const char* name, const char* bt) {
    return unit::Device(name, bt);
}

// The stored document's "item_data" objects, after checking the version line.
std::vector<Json::Value> StoredItems() {
    std::optional<std::string> item = fake::SecureItem("PXM_DEVICE_LIST");
    if (!item || item->compare(0, 2, "2\n") != 0) {
        ADD_FAILURE() << "no version-2 text stored: " << item.value_or("(none)");
        return {};
    }
    Json::Value root;
    std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    EXPECT_TRUE(reader->parse(item->data() + 2, item->data() + item->size(), &root, nullptr));
    std::vector<Json::Value> items;
    for (const Json::Value& element : root) {
        items.push_back(element["item_data"]);
    }
    return items;
}

class SaveTest : public ::testing::Test {
protected:
    void SetUp() override {
        fake::Reset();
        core = CPXMCore::GetInstance();
        core->mDeviceList.clear();
        core->mReverseDeviceList.clear();
    }
    void TearDown() override { core->DB_WaitForSaves(); }

    // Changes a list the way the registry does while saves may be running.
    void AddUnderLock(const pxm_core_device_s& dev) {
        core->mPXMLock.Lock();
        core->mDeviceList.push_back(dev);
        core->mPXMLock.Unlock();
    }

    CPXMCore* core = nullptr;
};

TEST_F(SaveTest, SaveCleansRecordsInPlaceAndStoresVersionedJson) {
    pxm_core_device_s room = Device("Living\nRoom", "AA:BB:CC:DD:EE:01");
    std::strcpy(room.p2p_mac, "12:34\r\nXY");
    pxm_core_device_s tab = Device("Tab\r\nlet", "");
    std::strcpy(tab.zel_id, "zel\nrest");
    std::strcpy(tab.mirroring_Id, "mir-7");
    tab.dy_type = 1;
    // Empty fields with a stale byte after the NUL: an address placeholder writes only its
    // "0", an identifier placeholder its terminating NUL too.
    room.zel_id[1] = 'Y';
    tab.wifi_mac[1] = 'X';
    core->mDeviceList = {room};
    core->mReverseDeviceList = {tab};

    core->DB_Save();
    core->DB_WaitForSaves();

    // The records in memory now hold what was written.
    const pxm_core_device_s& a = core->mDeviceList[0];
    const pxm_core_device_s& b = core->mReverseDeviceList[0];
    EXPECT_EQ("Living|0|12:34|0|0", std::string(a.devname) + "|" + a.wifi_mac + "|" + a.p2p_mac +
                                        "|" + a.zel_id + "|" + a.mirroring_Id);
    EXPECT_EQ("Tab|0|0X|zel|mir-7", std::string(b.devname) + "|" + b.bt_mac + "|" + b.wifi_mac +
                                        "|" + b.zel_id + "|" + b.mirroring_Id);
    std::vector<Json::Value> items = StoredItems();
    ASSERT_EQ(2u, items.size());
    EXPECT_EQ("Living", items[0]["devname"].asString());
    EXPECT_EQ("0", items[0]["wifi_mac"].asString());
    EXPECT_EQ("0", items[0]["mirroring_Id"].asString());
    EXPECT_EQ("Tab", items[1]["devname"].asString());
    EXPECT_EQ("zel", items[1]["zel_id"].asString());
    EXPECT_EQ("0X", items[1]["wifi_mac"].asString());
    EXPECT_EQ(1, items[1]["dy_type"].asInt());

    EXPECT_TRUE(fake::HasLog("pxmCore: DB_Save(", DLOG_INFO, "PXM_CORE"));
    EXPECT_TRUE(fake::HasLog("Thread Creation [0]", DLOG_INFO));
    EXPECT_TRUE(fake::HasLog("Save file : List size [1] [1]", DLOG_INFO));
    EXPECT_TRUE(fake::HasLog("Writing in secure storage.", DLOG_INFO));
    EXPECT_TRUE(fake::HasLog("pxmCore: DB_SecureSave(", DLOG_INFO));
    EXPECT_EQ(1u, fake::CountLogs("Setting zel to 0"));
    EXPECT_EQ(1u, fake::CountLogs("Setting mirroring id to 0"));
    EXPECT_TRUE(fake::HasLog("\n*** Saved Records Below ***\n2\n[", DLOG_INFO));

    // Item name and credential are proven end to end: the tool reads what was written.
    EXPECT_EQ(1u, fake::CallCount("ss_write"));
}

TEST_F(SaveTest, EmptyListsClearStorageInsteadOfWriting) {
    fake::SetSecureItem("PXM_DEVICE_LIST", "2\n[{\"item_data\":{\"devname\":\"Old\"}}]");

    core->DB_Save();
    core->DB_WaitForSaves();

    EXPECT_FALSE(fake::SecureItem("PXM_DEVICE_LIST").has_value());
    EXPECT_EQ(0u, fake::CallCount("ss_write"));
    std::vector<fake::Call> clears = fake::Calls("ss_clear_storage");
    ASSERT_EQ(1u, clears.size());
    EXPECT_EQ("(null)", clears[0].args[0]);
    EXPECT_EQ("0", clears[0].args[2]);
    EXPECT_TRUE(fake::HasLog("No data - DB cleared", DLOG_INFO, "PXM_CORE"));

    fake::SetResult("ss_clear_storage", -3);
    core->DB_Save();
    core->DB_WaitForSaves();
    EXPECT_TRUE(fake::HasLog("DB clear failed [-3]", DLOG_ERROR, "PXM_CORE"));
    EXPECT_EQ(1u, fake::CountLogs("No data - DB cleared"));
}

TEST_F(SaveTest, FailedWriteIsLoggedAndChangesNothingElse) {
    const std::string previous = "2\n[{\"item_data\":{\"devname\":\"Old\"}}]";
    fake::SetSecureItem("PXM_DEVICE_LIST", previous);
    fake::SetResult("ss_write", -3);
    core->mDeviceList = {Device("Phone", "AA:BB:CC:DD:EE:01")};

    core->DB_Save();
    core->DB_WaitForSaves();

    EXPECT_TRUE(fake::HasLog("Write file failed [-3]", DLOG_ERROR, "PXM_CORE"));
    EXPECT_EQ(1u, fake::CallCount("ss_write"));  // no retry
    EXPECT_EQ(previous, fake::SecureItem("PXM_DEVICE_LIST"));
    ASSERT_EQ(1u, core->mDeviceList.size());
    EXPECT_STREQ("AA:BB:CC:DD:EE:01", core->mDeviceList[0].bt_mac);

    // The next save writes the change that the failed one lost.
    fake::ClearResult("ss_write");
    core->DB_Save();
    core->DB_WaitForSaves();
    std::vector<Json::Value> items = StoredItems();
    ASSERT_EQ(1u, items.size());
    EXPECT_EQ("Phone", items[0]["devname"].asString());
}

TEST_F(SaveTest, QuickSuccessiveSavesAllFinishAndLeaveTheLatestState) {
    AddUnderLock(Device("First", "AA:BB:CC:DD:EE:01"));
    core->DB_Save();
    AddUnderLock(Device("Second", "AA:BB:CC:DD:EE:02"));
    for (int i = 0; i < 5; ++i) {
        core->DB_Save();
    }
    core->DB_WaitForSaves();

    // Every save started had finished when the wait returned.
    EXPECT_EQ(6u, fake::CallCount("ss_write"));
    std::vector<Json::Value> items = StoredItems();
    ASSERT_EQ(2u, items.size());
    EXPECT_EQ("Second", items[1]["devname"].asString());
}

// A burst of changes must not become a burst of threads: with kMaxQueuedSaves saves
// waiting, the next change waits for one of them to finish.
TEST_F(SaveTest, AChangeWaitsWhileTheMostSavesAllowedAreQueued) {
    core->mDeviceList = {Device("Queued", "AA:BB:CC:DD:EE:01")};
    core->mFileLock.Lock();  // holds every save at its first lock
    for (int i = 0; i < CPXMCore::kMaxQueuedSaves - 1; ++i)
        core->DB_Save();
    core->DB_WaitForSaveRoom();  // one below the bound: returns at once

    core->DB_Save();
    std::mutex m;
    std::condition_variable cv;
    bool admitted = false;
    std::thread change([&] {
        core->DB_WaitForSaveRoom();
        std::lock_guard<std::mutex> lock(m);
        admitted = true;
        cv.notify_all();
    });
    {
        std::unique_lock<std::mutex> lock(m);
        EXPECT_FALSE(cv.wait_for(lock, std::chrono::milliseconds(200), [&] { return admitted; }))
            << "admitted with the queue full";
    }
    EXPECT_EQ(0u, fake::CallCount("ss_write"));
    core->mFileLock.Unlock();
    {
        std::unique_lock<std::mutex> lock(m);
        EXPECT_TRUE(cv.wait_for(lock, std::chrono::seconds(10), [&] { return admitted; }));
    }
    change.join();
    core->DB_WaitForSaves();
    EXPECT_EQ(static_cast<size_t>(CPXMCore::kMaxQueuedSaves), fake::CallCount("ss_write"));
}

TEST_F(SaveTest, SaveWaitsForTheFileLockWithoutHoldingTheListLock) {
    core->mDeviceList = {Device("Before", "AA:BB:CC:DD:EE:01")};

    // Holding the file lock as the loader would: the save must wait for it before it takes
    // the list lock, so the list stays free for others meanwhile.
    core->mFileLock.Lock();
    core->DB_Save();
    ASSERT_TRUE(fake::WaitForCalls("ss_init_credential", 1));
    std::mutex m;
    std::condition_variable cv;
    bool changed = false;
    std::thread changer([&] {
        AddUnderLock(Device("During", "AA:BB:CC:DD:EE:02"));
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
    std::vector<Json::Value> items = StoredItems();
    ASSERT_EQ(2u, items.size());
    EXPECT_EQ("During", items[1]["devname"].asString());
}

}  // namespace
