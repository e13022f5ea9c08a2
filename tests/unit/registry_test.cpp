// The registry's lists: adding (merging duplicates, the no-change flag, refused verdicts,
// the wake-up tables per list, eviction from the Bluetooth power-on table), copies,
// removals.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "CPXMCore.h"
#include "dlog.h"
#include "fake_platform.h"
#include "unit_support.h"

namespace {

// A record whose key type the registry completes.
pxm_core_device_s Dev(const char* name, const char* bt, const char* wifi, const char* p2p = "",
                      int status = 0) {
    pxm_core_device_s d = unit::Device(name, bt, wifi, p2p, status);
    d.keyType = -1;
    return d;
}

// A record with every field set.
pxm_core_device_s Full(const char* name, const char* bt, const char* wifi, const char* p2p) {
    pxm_core_device_s d = unit::Device(name, bt, wifi, p2p);
    snprintf(d.zel_id, sizeof d.zel_id, "zel-%s", name);
    snprintf(d.mirroring_Id, sizeof d.mirroring_Id, "mir-%s", name);
    d.devtype = 2;
    d.devicon = 4;
    d.tvInitMirroringSupport = d.isUXAlways = 1;
    d.accessTime = 1700000000123ULL;
    d.updated = 3;
    d.keyType = 1;
    d.dy_type = 5;
    return d;
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

using RegistryOps = RegistryAdd;

TEST_F(RegistryAdd, RequestMatchingTwoRecordsMergesIntoTheFirstAndFoldsTheSecond) {
    pxm_core_device_s a = Dev("Phone A", "AA:00:00:00:00:01", "11:00:00:00:00:01");
    snprintf(a.zel_id, sizeof a.zel_id, "zelA");
    a.devtype = 3;
    pxm_core_device_s b =
        Dev("Phone B", "AA:00:00:00:00:02", "11:00:00:00:00:02", "22:00:00:00:00:02");
    snprintf(b.zel_id, sizeof b.zel_id, "zelB");
    b.devtype = 5;
    ASSERT_TRUE(Add(a));
    ASSERT_TRUE(Add(Dev("Other", "AA:00:00:00:00:03", "")));
    ASSERT_TRUE(Add(b));

    // Bluetooth of A (other case), Wi-Fi of B.
    pxm_core_device_s req = Dev("UNKNOWN", "aa:00:00:00:00:01", "11:00:00:00:00:02");
    snprintf(req.zel_id, sizeof req.zel_id, "NONE");
    ASSERT_TRUE(core->INTERNAL_AddDevice(&req, PXM_SAVE_NORMAL));
    core->DB_WaitForSaves();  // saves rewrite empty fields in place

    EXPECT_EQ("Phone A Other", unit::Names(core->mDeviceList));
    // B's valid addresses and identifiers overwrite A's.
    EXPECT_EQ(
        "Phone A|AA:00:00:00:00:02|11:00:00:00:00:02|22:00:00:00:00:02|zelB|0|5|0|0|0|0|0|"
        "1700000000000|2|0|0",
        unit::Text(core->mDeviceList[0]));
    EXPECT_STREQ("AA:00:00:00:00:02", req.bt_mac);
    EXPECT_FALSE(core->m_bNoDataChanged);
    EXPECT_TRUE(fake::HasLog("[1:Matched][1:Unmatched][0:Unmatched] = << CB >>", DLOG_INFO));
    EXPECT_TRUE(fake::HasLog("Duplicated Device found again - REMOVE This [Phone B]", DLOG_WARN));
    // The tables get the merged record's addresses.
    EXPECT_EQ("11:00:00:00:00:02", fake::Calls("wowl_add_waker_device").back().args[0]);
}

// The reverse list touches the wake-up tables only when it merges; undecided and unknown
// verdicts are refused without a trace.
TEST_F(RegistryAdd, OnlyMergesTouchTheTablesForTheReverseListAndOddVerdictsAreRefused) {
    ASSERT_TRUE(Add(Dev("Allowed", "AA:00:00:00:00:01", "11:00:00:00:00:01")));
    pxm_core_device_s rev = Dev("Reverse", "AA:00:00:00:00:03", "11:00:00:00:00:03");
    ASSERT_TRUE(Add(rev, PXM_SAVE_REVERSE));
    EXPECT_EQ(std::vector<std::string>{"AA:00:00:00:00:01"}, fake::HeadlessTable());
    ASSERT_TRUE(Add(rev, PXM_SAVE_REVERSE));
    EXPECT_EQ(1u, core->mReverseDeviceList.size());
    EXPECT_EQ((std::vector<std::string>{"AA:00:00:00:00:01", "AA:00:00:00:00:03"}),
              fake::HeadlessTable());

    core->DB_WaitForSaves();
    fake::ClearJournal();
    core->m_bNoDataChanged = true;
    EXPECT_FALSE(Add(Dev("Undecided", "AA:00:00:00:00:01", "", "", 2)));
    EXPECT_FALSE(core->m_bNoDataChanged);
    EXPECT_FALSE(Add(Dev("Odd", "AA:00:00:00:00:09", "", "", 5)));
    EXPECT_TRUE(fake::HasLog("Unexpected value - status[5]", DLOG_ERROR));
    EXPECT_EQ("Allowed", unit::Names(core->mDeviceList));
    EXPECT_EQ(0, core->mDeviceList[0].devstatus);
    EXPECT_TRUE(fake::Calls().empty()) << "neither the tables nor a save were touched";
}

// The table is full when a new oldest entry turned up more than five times in list order,
// however many Bluetooth records there are.
TEST_F(RegistryAdd, SeventhBluetoothDeviceEvictsTheOldestOnlyWhenSixOlderOnesWereFound) {
    const struct {
        std::vector<int> ranks;  // the time rank of each of the six stored devices
        int evicted;             // 0: none
    } rows[] = {{{6, 5, 4, 3, 2, 1}, 6}, {{5, 4, 3, 2, 1, 6}, 0}, {{1, 2, 3, 4, 5, 6}, 0}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.evicted);
        core->DB_WaitForSaves();
        core->mDeviceList.clear();
        fake::Reset();
        char bt[18], wifi[18];
        for (int i = 1; i <= 6; i++) {
            snprintf(bt, sizeof bt, "AA:00:00:00:00:%02d", i);
            snprintf(wifi, sizeof wifi, "11:00:00:00:00:%02d", i);
            pxm_core_device_s d = Dev("Stored", bt, wifi);
            d.accessTime = 1700000000000ULL + 1000 * static_cast<uint64_t>(row.ranks[i - 1]);
            d.keyType = 0;
            core->mDeviceList.push_back(d);
        }
        fake::SetRealtime(1700000100, 0);
        ASSERT_TRUE(Add(Dev("Seventh", "AA:00:00:00:00:07", "11:00:00:00:00:07")));
        core->DB_WaitForSaves();

        EXPECT_EQ(row.evicted ? 6u : 7u, core->mDeviceList.size());
        EXPECT_EQ(std::vector<std::string>{"AA:00:00:00:00:07"}, fake::HeadlessTable());
        if (row.evicted) {
            for (const pxm_core_device_s& rec : core->mDeviceList) {
                EXPECT_STRNE("AA:00:00:00:00:06", rec.bt_mac);
            }
            EXPECT_TRUE(
                fake::HasLog("HEADLESSBT is full, oldest data is [AA:00:00:00:00:06:", DLOG_WARN));
            EXPECT_EQ("11:00:00:00:00:06", unit::FirstArgs("wowl_del_waker_device").at(0));
        } else {
            EXPECT_TRUE(fake::HasLog("HEADLESSBT can be added", DLOG_INFO));
            EXPECT_EQ(0u, fake::CallCount("wowl_del_waker_device"));
        }
    }
}

// Copies give every field but dy_type; removals report the removed device's addresses and
// take it out of the tables of the normal list only; remove-all clears the tables only for
// the normal list.
TEST_F(RegistryOps, CopiesRemovalsAndRemoveAll) {
    core->mDeviceList = {Full("X", "AA:00:00:00:00:01", "11:00:00:00:00:01", ""),
                         Full("Y", "AA:00:00:00:00:02", "11:00:00:00:00:02", ""),
                         Full("Z", "", "", "22:00:00:00:00:03")};
    core->mReverseDeviceList = {Full("R", "AA:00:00:00:00:09", "11:00:00:00:00:09", "")};
    int count = -1;
    pxm_core_device_s* list = nullptr;
    ASSERT_TRUE(core->CMD_GetAllDevices(&count, &list, PXM_SAVE_NORMAL));
    ASSERT_EQ(3, count);
    for (int i = 0; i < count; i++) {
        pxm_core_device_s expected = core->mDeviceList[i];
        expected.dy_type = 0;
        EXPECT_EQ(unit::Text(expected), unit::Text(list[i]));
    }
    free(list);

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
    ASSERT_TRUE(core->CMD_GetAllDevices(&count, &list, PXM_SAVE_REVERSE));
    EXPECT_EQ(0, count);

    // The last save finds both lists empty and clears the stored list.
    core->DB_WaitForSaves();
    EXPECT_GE(fake::CallCount("ss_clear_storage"), 1u);

    core->mDeviceList = {Full("X", "AA:00:00:00:00:01", "11:00:00:00:00:01", "")};
    core->mReverseDeviceList = {Full("R", "AA:00:00:00:00:09", "11:00:00:00:00:09", "")};
    fake::ClearJournal();
    EXPECT_FALSE(core->CMD_RemoveAllDevices(PXM_SAVE_REVERSE));
    EXPECT_TRUE(core->mReverseDeviceList.empty());
    EXPECT_EQ(0u, fake::CallCount("bt_headless_open_db"));
    EXPECT_EQ(1u, core->mDeviceList.size());

    EXPECT_TRUE(core->CMD_RemoveAllDevices(PXM_SAVE_NORMAL));
    EXPECT_TRUE(core->mDeviceList.empty());
    EXPECT_EQ(1u, fake::CallCount("bt_bluetooth_delete_all_headless_mobile_in_DB"));
    EXPECT_EQ(1u, fake::CallCount("wowl_clear_waker_table"));
}

}  // namespace
