// Adding devices: merging duplicates, the no-change flag, refused verdicts, the wake-up
// tables per list, and eviction from the Bluetooth power-on table.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "CPXMCore.h"
#include "dlog.h"
#include "fake_platform.h"
#include "unit_support.h"

namespace {

// A record whose key type the registry completes.
pxm_core_device_s Dev(const char* name, const char* bt, const char* wifi, const char* p2p,
                      int status) {
    pxm_core_device_s d = unit::Device(name, bt, wifi, p2p, status);
    d.keyType = -1;
    return d;
}

std::string Mac(const char* prefix, int i) {
    char text[18];
    snprintf(text, sizeof text, "%s:%02d", prefix, i);
    return text;
}

bool Contains(const std::vector<std::string>& table, const std::string& mac) {
    return std::find(table.begin(), table.end(), mac) != table.end();
}

class RegistryAdd : public ::testing::Test {
protected:
    void SetUp() override {
        core->DB_WaitForSaves();
        core->mDeviceList.clear();
        core->mReverseDeviceList.clear();
        fake::Reset();
        fake::SetRealtime(1700000000, 0);
    }
    void TearDown() override { core->DB_WaitForSaves(); }
    bool Add(pxm_core_device_s d, dev_save_type save = PXM_SAVE_NORMAL) {
        return core->INTERNAL_AddDevice(&d, save);
    }
    CPXMCore* core = CPXMCore::GetInstance();
};

TEST_F(RegistryAdd, RequestMatchingTwoRecordsMergesIntoTheFirstAndFoldsTheSecond) {
    pxm_core_device_s a = Dev("Phone A", "AA:00:00:00:00:01", "11:00:00:00:00:01", "", 0);
    snprintf(a.zel_id, sizeof a.zel_id, "zelA");
    a.devtype = 3;
    pxm_core_device_s b =
        Dev("Phone B", "AA:00:00:00:00:02", "11:00:00:00:00:02", "22:00:00:00:00:02", 0);
    snprintf(b.zel_id, sizeof b.zel_id, "zelB");
    b.devtype = 5;
    ASSERT_TRUE(Add(a));
    ASSERT_TRUE(Add(Dev("Other", "AA:00:00:00:00:03", "", "", 0)));
    ASSERT_TRUE(Add(b));

    // Bluetooth of A (other case), Wi-Fi of B.
    pxm_core_device_s req = Dev("UNKNOWN", "aa:00:00:00:00:01", "11:00:00:00:00:02", "", 0);
    snprintf(req.zel_id, sizeof req.zel_id, "NONE");
    ASSERT_TRUE(core->INTERNAL_AddDevice(&req, PXM_SAVE_NORMAL));
    core->DB_WaitForSaves();  // saves rewrite empty fields in place

    ASSERT_EQ(core->mDeviceList.size(), 2u);
    const pxm_core_device_s& merged = core->mDeviceList[0];
    EXPECT_STREQ(merged.devname, "Phone A");
    // B's valid addresses and identifiers overwrite A's.
    EXPECT_STREQ(merged.bt_mac, "AA:00:00:00:00:02");
    EXPECT_STREQ(merged.wifi_mac, "11:00:00:00:00:02");
    EXPECT_STREQ(merged.p2p_mac, "22:00:00:00:00:02");
    EXPECT_STREQ(merged.zel_id, "zelB");
    EXPECT_EQ(merged.devtype, 5);
    EXPECT_EQ(merged.updated, 2);
    EXPECT_STREQ(core->mDeviceList[1].devname, "Other");
    EXPECT_STREQ(req.bt_mac, "AA:00:00:00:00:02");
    EXPECT_FALSE(core->m_bNoDataChanged);
    EXPECT_TRUE(fake::HasLog("[1:Matched][1:Unmatched][0:Unmatched] = << CB >>", DLOG_INFO));
    EXPECT_TRUE(fake::HasLog("Duplicated Device found again - REMOVE This [Phone B]", DLOG_WARN));
    // The tables get the merged record's addresses.
    EXPECT_EQ(fake::Calls("wowl_add_waker_device").back().args[0], "11:00:00:00:00:02");
}

TEST_F(RegistryAdd, SameDeviceTwiceKeepsOneRecordAndReportsNoChange) {
    pxm_core_device_s first = Dev("Living room", "AA:00:00:00:00:01", "11:00:00:00:00:01", "", 0);
    snprintf(first.zel_id, sizeof first.zel_id, "Z1");
    first.devtype = 7;
    first.tvInitMirroringSupport = 1;
    first.dy_type = 9;
    ASSERT_TRUE(Add(first));
    EXPECT_FALSE(core->m_bNoDataChanged);

    pxm_core_device_s again = Dev("UNKNOWN", "AA:00:00:00:00:01", "11:00:00:00:00:01", "", 0);
    again.devicon = 2;
    again.isNoUX = 1;
    again.dy_type = 4;
    ASSERT_TRUE(core->INTERNAL_AddDevice(&again, PXM_SAVE_NORMAL));
    EXPECT_TRUE(core->m_bNoDataChanged);
    EXPECT_TRUE(fake::HasLog("[1:Matched][1:Matched][0:Unmatched] = << NO CB >>"));
    // The save may have rewritten the emptied identifier as "0" before the copy was taken.
    EXPECT_TRUE(std::string(again.zel_id) == "" || std::string(again.zel_id) == "0")
        << again.zel_id;

    core->DB_WaitForSaves();
    ASSERT_EQ(core->mDeviceList.size(), 1u);
    const pxm_core_device_s& rec = core->mDeviceList[0];
    EXPECT_EQ(rec.updated, 2);
    EXPECT_STREQ(rec.devname, "Living room");
    EXPECT_EQ(rec.devtype, 7);
    EXPECT_EQ(rec.devicon, 2);
    EXPECT_EQ(rec.isNoUX, 1);
    EXPECT_EQ(rec.tvInitMirroringSupport, 1);
    EXPECT_EQ(rec.dy_type, 9);
    // The caller gets the merged record back, but keeps its own dy_type.
    EXPECT_EQ(again.updated, 2);
    EXPECT_STREQ(again.devname, "Living room");
    EXPECT_EQ(again.keyType, rec.keyType);
    EXPECT_EQ(again.dy_type, 4);

    // Each add hands the list to storage.
    EXPECT_EQ(fake::CountLogs("Thread Creation [0]"), 2u);
    auto stored = fake::SecureItem(PXM_STORAGE_ITEM);
    ASSERT_TRUE(stored.has_value());
    EXPECT_NE(stored->find("AA:00:00:00:00:01"), std::string::npos);
}

TEST_F(RegistryAdd, MergeHandsBackTheRecordAsItIsAfterReleasingTheListLock) {
    // Another thread changes the stored record as soon as the merge has gone on to the
    // wake-up tables. A copy taken before the merge lets the list lock go never shows the
    // change; one taken after shows it whenever the other thread got the lock first, which
    // takes one or a few tries.
    bool changeHandedBack = false;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!changeHandedBack && std::chrono::steady_clock::now() < deadline) {
        core->DB_WaitForSaves();
        fake::ClearJournal();
        pxm_core_device_s stored = Dev("Phone", "AA:00:00:00:00:01", "11:00:00:00:00:01", "", 0);
        stored.keyType = 0;
        core->mDeviceList = {stored};
        pxm_core_device_s req = Dev("Phone", "AA:00:00:00:00:01", "11:00:00:00:00:01", "", 0);
        std::atomic<bool> done{false};
        std::thread merge([&] {
            EXPECT_TRUE(core->INTERNAL_AddDevice(&req, PXM_SAVE_NORMAL));
            done = true;
        });
        while (!done && fake::CallCount("bt_headless_open_db") == 0) {
        }
        core->mPXMLock.Lock();
        core->mDeviceList[0].devicon = 77;
        core->mPXMLock.Unlock();
        merge.join();
        changeHandedBack = req.devicon == 77;
    }
    EXPECT_TRUE(changeHandedBack) << "the merged record was copied before the lock was released";
}

TEST_F(RegistryAdd, UndecidedAndUnknownVerdictsAreRefused) {
    ASSERT_TRUE(Add(Dev("Kept", "AA:00:00:00:00:01", "", "", 1)));
    core->DB_WaitForSaves();
    fake::ClearJournal();
    fake::ClearLogs();
    core->m_bNoDataChanged = true;

    EXPECT_FALSE(Add(Dev("Undecided", "AA:00:00:00:00:01", "", "", 2)));
    EXPECT_FALSE(core->m_bNoDataChanged);
    EXPECT_TRUE(fake::HasLog(
        "This cannot be saved this time. Waiting user's selection... status[2]", DLOG_WARN));
    EXPECT_FALSE(Add(Dev("Odd", "AA:00:00:00:00:09", "", "", 5)));
    EXPECT_TRUE(fake::HasLog("Unexpected value - status[5]", DLOG_ERROR));

    ASSERT_EQ(core->mDeviceList.size(), 1u);
    EXPECT_EQ(core->mDeviceList[0].devstatus, 1);
    EXPECT_EQ(fake::CallCount("bt_headless_open_db"), 0u);
    EXPECT_EQ(fake::CountLogs("Thread Creation"), 0u);
}

TEST_F(RegistryAdd, WakeUpTablesFollowTheVerdictAndOnlyMergesTouchThemForTheReverseList) {
    ASSERT_TRUE(Add(Dev("Allowed", "AA:00:00:00:00:01", "11:00:00:00:00:01", "", 0)));
    EXPECT_TRUE(Contains(fake::HeadlessTable(), "AA:00:00:00:00:01"));
    EXPECT_TRUE(Contains(fake::WakerTable(), "11:00:00:00:00:01"));

    ASSERT_TRUE(Add(Dev("Denied", "AA:00:00:00:00:02", "11:00:00:00:00:02", "", 1)));
    ASSERT_EQ(fake::CallCount("wowl_del_waker_device"), 1u);
    EXPECT_EQ(fake::Calls("wowl_del_waker_device")[0].args[0], "11:00:00:00:00:02");
    EXPECT_FALSE(Contains(fake::WakerTable(), "11:00:00:00:00:02"));

    fake::ClearJournal();
    pxm_core_device_s rev = Dev("Reverse", "AA:00:00:00:00:03", "11:00:00:00:00:03", "", 0);
    ASSERT_TRUE(Add(rev, PXM_SAVE_REVERSE));
    EXPECT_EQ(fake::CallCount("bt_headless_open_db"), 0u);
    ASSERT_TRUE(Add(rev, PXM_SAVE_REVERSE));
    EXPECT_EQ(core->mReverseDeviceList.size(), 1u);
    EXPECT_TRUE(Contains(fake::HeadlessTable(), "AA:00:00:00:00:03"));
    EXPECT_EQ(core->mDeviceList.size(), 2u);
}

// Six allowed Bluetooth devices stored with the given time ranks, then a seventh added later.
void AddSeventhAfterSix(CPXMCore* core, const std::vector<int>& ranks) {
    core->mDeviceList.clear();
    fake::Reset();
    for (int i = 1; i <= 6; i++) {
        pxm_core_device_s d = Dev("Stored", Mac("AA:00:00:00:00", i).c_str(),
                                  Mac("11:00:00:00:00", i).c_str(), "", 0);
        d.accessTime = 1700000000000ULL + 1000 * static_cast<uint64_t>(ranks[i - 1]);
        d.keyType = 0;
        core->mDeviceList.push_back(d);
    }
    fake::SetRealtime(1700000100, 0);
    pxm_core_device_s seventh = Dev("Seventh", "AA:00:00:00:00:07", "11:00:00:00:00:07", "", 0);
    ASSERT_TRUE(core->INTERNAL_AddDevice(&seventh, PXM_SAVE_NORMAL));
    core->DB_WaitForSaves();
}

// The table is full when a new oldest entry turned up more than five times in list order,
// however many Bluetooth records there are.
TEST_F(RegistryAdd, SeventhBluetoothDeviceEvictsTheOldestOnlyWhenSixOlderOnesWereFound) {
    AddSeventhAfterSix(core, {6, 5, 4, 3, 2, 1});
    ASSERT_EQ(core->mDeviceList.size(), 6u);
    for (const pxm_core_device_s& rec : core->mDeviceList) {
        EXPECT_STRNE(rec.bt_mac, "AA:00:00:00:00:06");
    }
    EXPECT_TRUE(fake::HasLog("Headless Data Found [6][AA:00:00:00:00:06:1700000001000]"));
    EXPECT_TRUE(fake::HasLog("UTIL_CheckBTFull(", DLOG_WARN));
    EXPECT_TRUE(fake::HasLog("HEADLESSBT is full, oldest data is [AA:00:00:00:00:06:", DLOG_WARN));
    EXPECT_EQ(fake::Calls("wowl_del_waker_device").at(0).args[0], "11:00:00:00:00:06");
    EXPECT_TRUE(Contains(fake::HeadlessTable(), "AA:00:00:00:00:07"));

    const struct {
        std::vector<int> ranks;
        const char* lastFound;
    } kept[] = {{{5, 4, 3, 2, 1, 6}, "Headless Data Found [5]"},
                {{1, 2, 3, 4, 5, 6}, "Headless Data Found [1]"}};
    for (const auto& row : kept) {
        AddSeventhAfterSix(core, row.ranks);
        EXPECT_EQ(core->mDeviceList.size(), 7u) << row.lastFound;
        EXPECT_TRUE(fake::HasLog(row.lastFound)) << row.lastFound;
        EXPECT_FALSE(fake::HasLog("HEADLESSBT is full")) << row.lastFound;
        EXPECT_TRUE(fake::HasLog("HEADLESSBT can be added", DLOG_INFO));
        EXPECT_EQ(fake::CallCount("wowl_del_waker_device"), 0u);
    }
}

}  // namespace
