// The stored device lists: loading the current and the three old formats at start-up; saving,
// with the clean-up of the records in memory, clearing, failures and lock order.
#include <gtest/gtest.h>
#include <json/json.h>

#include <chrono>
#include <cstring>
#include <functional>
#include <future>
#include <string>
#include <vector>

#include "CPXMCore.h"
#include "dlog.h"
#include "fake_platform.h"
#include "unit_support.h"

namespace {

// One record of the old line formats; keyType "" leaves the key line out (unversioned
// records), zel "" the zel line (version 0).
std::string Record(const std::string& name, const std::string& bt, const std::string& wifi = "0",
                   const std::string& keyType = "0", const std::string& zel = "",
                   const std::string& time = "1600000000000") {
    std::string text = "<PXM>\n<devname>" + name + "\n<bt_mac>" + bt + "\n<wifi_mac>" + wifi +
                       "\n<p2p_mac>0\n<devtype>1\n<icon>2\n<status>0\n<mirroring_support>1\n"
                       "<no_ux>0\n<ux_always>1\n<time>" +
                       time + "\n";
    if (!keyType.empty()) {
        text += "<key_type>" + keyType + "\n";
    }
    if (!zel.empty()) {
        text += "<zel_id>" + zel + "\n";
    }
    return text + "</PXM>\n";
}

// Addresses, ids, key type and time of each record.
std::string Fields(const std::vector<pxm_core_device_s>& list) {
    std::vector<std::string> out;
    for (const pxm_core_device_s& d : list) {
        out.push_back(std::string(d.bt_mac) + "|" + d.wifi_mac + "|" + d.zel_id + "|" +
                      d.mirroring_Id + "|" + std::to_string(d.keyType) + "|" +
                      std::to_string(d.accessTime));
    }
    return unit::Join(out);
}

// The stored devices' names, after checking the version line.
std::string Stored() {
    std::string item = fake::SecureItem("PXM_DEVICE_LIST").value_or("(none)");
    EXPECT_EQ(0u, item.rfind("2\n", 0)) << "no version-2 text stored: " << item;
    std::vector<std::string> names;
    for (const Json::Value& element : unit::ParseJson(item.substr(2))) {
        names.push_back(element["item_data"]["devname"].asString());
    }
    return unit::Join(names);
}

class Storage : public ::testing::Test {
protected:
    void SetUp() override {
        core->DB_WaitForSaves();
        fake::Reset();
        core->mDeviceList.clear();
        core->mReverseDeviceList.clear();
    }
    void TearDown() override { core->DB_WaitForSaves(); }
    // Loads `text` over lists that hold a stale record each; nullptr: nothing stored.
    int Load(const char* text) {
        core->DB_WaitForSaves();
        core->mDeviceList = {unit::Device("Stale", "")};
        core->mReverseDeviceList = {unit::Device("Stale", "")};
        if (text != nullptr) {
            fake::SetSecureItem("PXM_DEVICE_LIST", text);
        } else {
            fake::Reset();
        }
        return core->DB_OpenFile();
    }
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

TEST_F(Storage, EachStoredFormLoadsItsRecordsUpToTheFirstItCannotRead) {
    std::string truncated = Record("Third", "AA:BB:CC:DD:EE:03");
    truncated.resize(truncated.find("</PXM>"));  // every field matched, the closing tag not
    std::string badIcon = Record("Icon", "AA:BB:CC:DD:EE:01");
    badIcon.replace(badIcon.find("<icon>2"), 7, "<icon>x");
    const std::string phone =
        "{\"item_data\":{\"devname\":\"Phone\",\"accessTime\":1700000000123,\"dy_type\":0}}";
    const std::string json = "[" + phone +
                             ",{\"item_data\":{\"devname\":\"Laptop\",\"dy_type\":1}},"
                             "{\"item_data\":{\"devname\":\"NullDy\",\"dy_type\":null}},"
                             "{\"item_data\":{\"devname\":\"Tablet\"}}]";
    const struct {
        std::string text;  // "-": nothing stored
        int result;
        std::string normal, reverse;  // "Stale": the lists as they were
        std::string fields = "";      // of the normal list, when given
    } rows[] = {
        {"2\n" + json, 0, "Phone NullDy Tablet", "Laptop"},
        // The current form stops at the first element it cannot read, keeping those before.
        {"2\n[" + phone + ",7," + phone + "]", 0, "Phone", ""},
        {"2\n[" + phone + ",{\"item_data\":{\"devtype\":\"1\"}}]", 0, "Phone", ""},
        {"2\n" + phone, 0, "", ""},
        // Missing members are filled, long texts cut to their field.
        {"2\n[{\"item_data\":{\"devname\":\"" + std::string(200, 'n') +
             "\",\"bt_mac\":\"AA:BB:CC:DD:EE:FF:00\",\"zel_id\":\"" + std::string(40, 'z') +
             "\",\"wifi_mac\":null,\"accessTime\":18446744073709551615}}]",
         0, std::string(127, 'n'), "",
         "AA:BB:CC:DD:EE:FF|0|" + std::string(31, 'z') + "|0|0|18446744073709551615"},
        {"2\n" + std::string(5000, '['), 0, "", ""},  // the parser throws: it must not escape
        {"-", -1, "Stale", "Stale"},
        {"", -1, "Stale", "Stale"},
        {"2\n[]", 0, "", ""},
        {"2\n[{\"item_data\":", 0, "", ""},
        {"2", 0, "", ""},
        {"3\n" + Record("Phone", "AA:BB:CC:DD:EE:01", "0", ""), 0, "", ""},
        {"0", 0, "", ""},
        {"1\n", 0, "", ""},
        // Version 0: the key type as stored, no zel id (read as the placeholder), no mirroring
        // id, and any time.
        {"0\n" + Record("A", "AA:BB:CC:DD:EE:01", "aa:bb:cc:dd:ee:0f", "1") +
             Record("B", "0", "0", "0", "", "18446744073709551615") + truncated,
         2, "A B", "",
         "AA:BB:CC:DD:EE:01|aa:bb:cc:dd:ee:0f|0||1|1600000000000 0|0|0||0|18446744073709551615"},
        {"0\n" + Record("A", "AA:BB:CC:DD:EE:01") + Record("", "AA:BB:CC:DD:EE:02") +
             Record("C", "AA:BB:CC:DD:EE:03"),
         1, "A", ""},
        // An address of 18 characters fits the template and is cut to the field; longer
        // addresses and names do not fit their conversion.
        {"0\n" + Record("Eighteen", "AA:BB:CC:DD:EE:FFX"), 1, "Eighteen", ""},
        {"0\n" + Record("Nineteen", "AA:BB:CC:DD:EE:FFXY"), 0, "", ""},
        {"0\n" + Record(std::string(127, 'n'), "1") + Record(std::string(128, 'n'), "2"), 1,
         std::string(127, 'n'), ""},
        {"0\n" + badIcon, 0, "", ""},
        // Version 1: the whole zel word is read; only what fits the field is kept.
        {"1\n" + Record("P", "1", "0", "0", "abc") +
             Record("L", "2", "0", "0", std::string(40, 'q')) + Record("A", "3", "0", "0", "x"),
         3, "P L A", "",
         "1|0|abc||0|1600000000000 2|0|" + std::string(31, 'q') +
             "||0|1600000000000 3|0|x||0|1600000000000"},
        // Unversioned: the key type from the addresses, and a time that no 32-bit value could
        // be is capped.
        {Record("W", "0", "AA:BB:CC:DD:EE:02", "", "", "4294967295") +
             Record("B", "AA:BB:CC:DD:EE:01", "0", "", "", "5000000000") +
             Record("L", "AA:BB:CC:DD:EE:03", "0", "", "", "99999999999999999999"),
         3, "W B L", "",
         "0|AA:BB:CC:DD:EE:02|0||1|4294967295 AA:BB:CC:DD:EE:01|0|0||0|4294967295 "
         "AA:BB:CC:DD:EE:03|0|0||0|4294967295"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text.substr(0, 40));
        EXPECT_EQ(row.result, Load(row.text == "-" ? nullptr : row.text.c_str()));
        EXPECT_EQ(row.normal + " / " + row.reverse,
                  unit::Names(core->mDeviceList) + " / " + unit::Names(core->mReverseDeviceList));
        if (!row.fields.empty()) {
            EXPECT_EQ(row.fields, Fields(core->mDeviceList));
        }
    }
    // A failed read is an early return too, and gives the file lock back: a save still runs.
    fake::SetResult("ss_read", -4);
    EXPECT_EQ(-1, Load(("2\n" + json).c_str()));
    fake::ClearResult("ss_read");
    Save();
    EXPECT_EQ(1u, fake::CallCount("ss_write"));
}

// A save cuts names and texts at a line break and fills empty fields with the placeholder, in
// memory too; what it stores reads back field for field, each record into the list its dy_type
// names (a reverse record whose dy_type is 0 cannot be told apart once written).
TEST_F(Storage, SaveCleansRecordsInPlaceAndWhatItStoresReadsBackIntoBothLists) {
    pxm_core_device_s room = unit::Device("Living\nRoom", "AA:BB:CC:DD:EE:01");
    std::strcpy(room.p2p_mac, "12:34\r\nXY");
    room.devtype = 3;
    room.devicon = 7;
    room.tvInitMirroringSupport = room.isNoUX = 1;
    room.accessTime = 1700000000123ULL;  // beyond 32 bits
    room.keyType = 2;
    pxm_core_device_s tab = unit::Device("Tab\r\nlet", "", "", "", 2);
    std::strcpy(tab.zel_id, "zel\nrest");
    std::strcpy(tab.mirroring_Id, "mir-7");
    tab.isUXAlways = 1;
    tab.dy_type = 4;
    // Empty fields with a stale byte after the NUL: an address placeholder writes only its
    // "0", an identifier placeholder its terminating NUL too.
    room.zel_id[1] = 'Y';
    tab.wifi_mac[1] = 'X';
    core->mDeviceList = {room};
    core->mReverseDeviceList = {tab, unit::Device("Unmarked", "AA:BB:CC:DD:EE:03")};

    Save();

    const std::vector<pxm_core_device_s> normal = core->mDeviceList;
    const std::vector<pxm_core_device_s> reverse = core->mReverseDeviceList;
    EXPECT_EQ("Living|AA:BB:CC:DD:EE:01|0|12:34|0|0|3|7|0|1|1|0|1700000000123|0|2|0",
              unit::Text(normal[0]));
    EXPECT_EQ("Tab|0|0X|0|zel|mir-7|0|0|2|0|0|1|0|0|0|4", unit::Text(reverse[0]));
    EXPECT_EQ("Living Tab Unmarked", Stored());
    const std::string stored = fake::SecureItem("PXM_DEVICE_LIST").value_or("");
    for (const Json::Value& element : unit::ParseJson(stored.substr(2))) {
        EXPECT_EQ("item_data", unit::Join(element.getMemberNames()));
        EXPECT_EQ(
            "accessTime bt_mac devicon devname devstatus devtype dy_type isNoUX isUXAlways "
            "keyType mirroring_Id p2p_mac tvInitMirroringSupport wifi_mac zel_id",
            unit::Join(element["item_data"].getMemberNames()));
    }

    EXPECT_EQ(0, Load(stored.c_str()));
    EXPECT_EQ(unit::Texts({normal[0], reverse[1]}), unit::Texts(core->mDeviceList));
    EXPECT_EQ(unit::Texts({reverse[0]}), unit::Texts(core->mReverseDeviceList));
}

// Empty lists clear the storage instead; a failed write or clear is logged, not retried,
// and the next save writes what it lost.
TEST_F(Storage, EmptyListsClearStorageAndFailuresAreMadeGoodByTheNextSave) {
    const std::string previous = "2\n[{\"item_data\":{\"devname\":\"Old\"}}]";
    fake::SetSecureItem("PXM_DEVICE_LIST", previous);
    Save();
    EXPECT_FALSE(fake::SecureItem("PXM_DEVICE_LIST").has_value());
    EXPECT_EQ(0u, fake::CallCount("ss_write"));
    EXPECT_EQ(std::vector<std::string>{"(null)"}, unit::FirstArgs("ss_clear_storage"));
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

// Holding the file lock as the loader would: a save waits for it before it takes the list lock,
// and no operation of the registry waits for it or keeps the list lock, so the list stays usable.
TEST_F(Storage, SavesWaitForTheFileLockAndEveryOperationGoesOnMeanwhile) {
    AddUnderLock("Before");
    core->mFileLock.Lock();
    core->DB_Save();
    ASSERT_TRUE(fake::WaitForCalls("ss_init_credential", 1));
    pxm_core_device_s d = unit::Device("During", "AA:BB:CC:DD:EE:05", "11:00:00:00:00:05");
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
        {"remove-all-reverse", [&] { core->CMD_RemoveAllDevices(PXM_SAVE_REVERSE); }},
        {"add-again", [&] { core->INTERNAL_AddDevice(&d, PXM_SAVE_NORMAL); }},
    };
    auto ops = std::async(std::launch::async, [&] {
        std::string leaked;
        for (const auto& step : steps) {
            step.second();
            // Unlock succeeds only for the owner: true means the operation kept the lock.
            if (core->mPXMLock.Unlock()) {
                leaked += std::string(step.first) + " ";
            }
        }
        return leaked;
    });
    if (ops.wait_for(std::chrono::seconds(10)) != std::future_status::ready) {
        // A blocked operation can be neither joined nor abandoned: report and leave.
        fprintf(stderr, "an operation waited for a lock the save holds\n");
        std::_Exit(1);
    }
    EXPECT_EQ(0u, fake::CallCount("ss_write"));
    core->mFileLock.Unlock();
    core->DB_WaitForSaves();
    free(list);
    EXPECT_EQ("", ops.get()) << "operations that kept mPXMLock";
    EXPECT_EQ("Before During", Stored());
}

}  // namespace
