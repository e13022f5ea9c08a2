// Loading the lists at start-up: the current JSON text, the three old line formats, and
// stored texts that are missing, empty, truncated or broken.
#include <gtest/gtest.h>

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

std::string Fields(const pxm_core_device_s& d) {
    return std::string(d.bt_mac) + "|" + d.wifi_mac + "|" + d.zel_id + "|" + d.mirroring_Id + "|" +
           std::to_string(d.keyType) + "|" + std::to_string(d.accessTime);
}

class LoadTest : public ::testing::Test {
protected:
    void SetUp() override { fake::Reset(); }
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
    CPXMCore* core = CPXMCore::GetInstance();
};

TEST_F(LoadTest, EachStoredFormLoadsItsRecordsUpToTheFirstItCannotRead) {
    std::string truncated = Record("Third", "AA:BB:CC:DD:EE:03");
    truncated.resize(truncated.find("</PXM>"));  // every field matched, the closing tag not
    std::string badIcon = Record("Icon", "AA:BB:CC:DD:EE:01");
    badIcon.replace(badIcon.find("<icon>2"), 7, "<icon>x");
    const std::string json =
        "[{\"item_data\":{\"devname\":\"Phone\",\"accessTime\":1700000000123,\"dy_type\":0}},"
        "{\"item_data\":{\"devname\":\"Laptop\",\"dy_type\":1}},"
        "{\"item_data\":{\"devname\":\"Tablet\"}}]";
    const struct {
        std::string text;  // "-": nothing stored
        int result;
        std::string normal, reverse;  // "*": the lists as they were
    } rows[] = {
        {"2\n" + json, 0, "Phone Tablet", "Laptop"},
        {"-", -1, "*", "*"},
        {"", -1, "*", "*"},
        {"2\n[]", 0, "", ""},
        {"2\n[{\"item_data\":", 0, "", ""},
        {"2", 0, "", ""},
        {"3\n" + Record("Phone", "AA:BB:CC:DD:EE:01", "0", ""), 0, "", ""},
        {"0", 0, "", ""},
        {"1\n", 0, "", ""},
        {"0\n" + Record("A", "AA:BB:CC:DD:EE:01") + Record("B", "0", "0", "0", "", "1") + truncated,
         2, "A B", ""},
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
        {"1\n" + Record("P", "1", "0", "0", "abc") +
             Record("L", "2", "0", "0", std::string(40, 'q')) + Record("A", "3", "0", "0", "x"),
         3, "P L A", ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text.substr(0, 40));
        EXPECT_EQ(row.result, Load(row.text == "-" ? nullptr : row.text.c_str()));
        EXPECT_EQ(row.normal == "*" ? "Stale" : row.normal, unit::Names(core->mDeviceList));
        EXPECT_EQ(row.reverse == "*" ? "Stale" : row.reverse,
                  unit::Names(core->mReverseDeviceList));
    }
    // A failed read is an early return too, and gives the file lock back: a save still runs.
    fake::SetResult("ss_read", -4);
    EXPECT_EQ(-1, Load(("2\n" + json).c_str()));
    fake::ClearResult("ss_read");
    core->DB_Save();
    core->DB_WaitForSaves();
    EXPECT_EQ(1u, fake::CallCount("ss_write"));
}

TEST_F(LoadTest, OldFormatsConvertTheirFields) {
    // Version 0: the key type as stored, no zel id (read as the placeholder), no mirroring id.
    ASSERT_EQ(2, Load(("0\n" + Record("Phone", "AA:BB:CC:DD:EE:01", "aa:bb:cc:dd:ee:0f", "1") +
                       Record("Max", "0", "0", "0", "", "18446744073709551615"))
                          .c_str()));
    EXPECT_EQ("AA:BB:CC:DD:EE:01|aa:bb:cc:dd:ee:0f|0||1|1600000000000",
              Fields(core->mDeviceList[0]));
    EXPECT_EQ(0, core->mDeviceList[0].dy_type + core->mDeviceList[0].updated);
    EXPECT_EQ(18446744073709551615ULL, core->mDeviceList[1].accessTime);

    // Version 1: the whole zel word is read; only what fits the field is kept.
    ASSERT_EQ(2, Load(("1\n" + Record("Long", "AA:BB:CC:DD:EE:03", "0", "0", std::string(40, 'q')) +
                       Record("After", "AA:BB:CC:DD:EE:04", "0", "0", "x"))
                          .c_str()));
    EXPECT_EQ(std::string(31, 'q'), core->mDeviceList[0].zel_id);
    EXPECT_STREQ("x", core->mDeviceList[1].zel_id);

    // Unversioned: the key type from the addresses, and a time that no 32-bit value could be
    // is capped.
    ASSERT_EQ(3, Load((Record("Wifi", "0", "AA:BB:CC:DD:EE:02", "", "", "4294967295") +
                       Record("Bt", "AA:BB:CC:DD:EE:01", "0", "", "", "5000000000") +
                       Record("Late", "AA:BB:CC:DD:EE:03", "0", "", "", "99999999999999999999"))
                          .c_str()));
    EXPECT_EQ("0|AA:BB:CC:DD:EE:02|0||1|4294967295", Fields(core->mDeviceList[0]));
    EXPECT_EQ("AA:BB:CC:DD:EE:01|0|0||0|4294967295", Fields(core->mDeviceList[1]));
    EXPECT_EQ(4294967295ULL, core->mDeviceList[2].accessTime);
}

}  // namespace
