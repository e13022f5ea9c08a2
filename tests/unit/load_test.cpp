// Loading the lists at start-up: the current JSON text, the three old line formats, and
// stored texts that are missing, empty, truncated or broken.
#include <gtest/gtest.h>

#include <cstring>
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

using unit::Names;

class LoadTest : public ::testing::Test {
protected:
    void SetUp() override {
        fake::Reset();
        core = CPXMCore::GetInstance();
        Preload();
    }

    // Records left from before the load, to see whether the load emptied the lists.
    void Preload() {
        pxm_core_device_s stale{};
        std::strcpy(stale.devname, "Stale");
        core->mDeviceList = {stale};
        core->mReverseDeviceList = {stale};
    }

    int Load(const std::string& text) {
        fake::SetSecureItem("PXM_DEVICE_LIST", text);
        return core->DB_OpenFile();
    }

    CPXMCore* core = nullptr;
};

TEST_F(LoadTest, CurrentFormatFillsBothListsByDyType) {
    const std::string json =
        "[{\"item_data\":{\"devname\":\"Phone\",\"accessTime\":1700000000123,\"dy_type\":0}},"
        "{\"item_data\":{\"devname\":\"Laptop\",\"dy_type\":1}},"
        "{\"item_data\":{\"devname\":\"Tablet\"}}]";

    EXPECT_EQ(0, Load("2\n" + json));

    EXPECT_EQ((std::vector<std::string>{"Phone", "Tablet"}), Names(core->mDeviceList));
    EXPECT_EQ(std::vector<std::string>{"Laptop"}, Names(core->mReverseDeviceList));
    EXPECT_EQ(1700000000123ULL, core->mDeviceList[0].accessTime);
    EXPECT_TRUE(fake::HasLog("pxmCore: DB_OpenFile(", DLOG_INFO, "PXM_CORE"));
    EXPECT_TRUE(fake::HasLog("READSIZE[" + std::to_string(2 + json.size()) + "]", DLOG_INFO));
    EXPECT_TRUE(fake::HasLog("DB Check res[1] version: [2]", DLOG_INFO));
    EXPECT_TRUE(fake::HasLog("Data: " + json, DLOG_INFO));
    EXPECT_TRUE(fake::HasLog("Update cleared", DLOG_INFO));
    EXPECT_EQ(1u, fake::CallCount("ss_free_buffer"));
    EXPECT_EQ(1u, fake::CallCount("ss_read"));
}

TEST_F(LoadTest, NothingToReadReturnsMinusOneAndKeepsTheLists) {
    EXPECT_EQ(-1, core->DB_OpenFile());
    EXPECT_TRUE(fake::HasLog("Read PXM file error", DLOG_WARN, "PXM_CORE"));
    EXPECT_EQ(-1, Load(""));
    EXPECT_TRUE(fake::HasLog("Read PXM file is zero", DLOG_INFO));
    fake::ClearLogs();
    fake::SetResult("ss_read", -4);
    EXPECT_EQ(-1, Load("2\n[]"));
    EXPECT_TRUE(fake::HasLog("Read PXM file error", DLOG_WARN));

    EXPECT_EQ(1u, core->mDeviceList.size());
    EXPECT_EQ(1u, core->mReverseDeviceList.size());
    // The file lock was given back on every early return: a save can still run.
    core->DB_Save();
    core->DB_WaitForSaves();
    EXPECT_EQ(1u, fake::CallCount("ss_write"));
}

TEST_F(LoadTest, BrokenCurrentFormatLeavesBothListsEmpty) {
    for (const std::string text : {"2\n[]", "2\n[{\"item_data\":", "2"}) {
        SCOPED_TRACE(text);
        Preload();
        EXPECT_EQ(0, Load(text));
        EXPECT_TRUE(core->mDeviceList.empty());
        EXPECT_TRUE(core->mReverseDeviceList.empty());
    }
    EXPECT_TRUE(fake::HasLog(" Format err ,not Array or Array is empty", DLOG_ERROR));
    EXPECT_TRUE(fake::HasLog("parse json error exception is [", DLOG_ERROR));
}

TEST_F(LoadTest, VersionZeroRecordsLoadUpToATruncatedOne) {
    // The third record stops after its last value: every field matched, the closing tag not.
    std::string third = Record("Third", "AA:BB:CC:DD:EE:03");
    third.resize(third.find("</PXM>"));

    const std::string first = Record("Phone", "AA:BB:CC:DD:EE:01", "aa:bb:cc:dd:ee:0f", "1");
    EXPECT_EQ(2, Load("0\n" + first + Record("Second", "0", "0", "0", "", "18446744073709551615") +
                      third));

    EXPECT_EQ((std::vector<std::string>{"Phone", "Second"}), Names(core->mDeviceList));
    EXPECT_TRUE(core->mReverseDeviceList.empty());
    const pxm_core_device_s& a = core->mDeviceList[0];
    EXPECT_STREQ("aa:bb:cc:dd:ee:0f", a.wifi_mac);
    EXPECT_EQ(1, a.keyType);  // as stored, not recomputed
    EXPECT_STREQ("0", a.zel_id);
    EXPECT_STREQ("", a.mirroring_Id);
    EXPECT_EQ(0, a.dy_type);
    EXPECT_EQ(0, a.updated);
    EXPECT_EQ(18446744073709551615ULL, core->mDeviceList[1].accessTime);
    EXPECT_TRUE(
        fake::HasLog("Read Data[0] [Phone] [AA:BB:CC:DD:EE:01] [aa:bb:cc:dd:ee:0f] [0] "
                     "[1] [2] [0] [1] [0] [1] [1600000000000] [1]",
                     DLOG_INFO));
    EXPECT_TRUE(fake::HasLog("Read Record #2", DLOG_INFO));
    EXPECT_TRUE(fake::HasLog("OFFSET [" + std::to_string(first.size()) + "]"));
    EXPECT_TRUE(fake::HasLog("End Of File [12]", DLOG_INFO));
}

TEST_F(LoadTest, VersionOneRecordsCarryTheirZelId) {
    // The whole word is read; only what fits the field is kept, and the records after a
    // long one load too.
    EXPECT_EQ(4, Load("1\n" + Record("Phone", "AA:BB:CC:DD:EE:01", "0", "0", "abc") +
                      Record("Desk", "AA:BB:CC:DD:EE:02", "0", "0", std::string(31, 'z')) +
                      Record("Long", "AA:BB:CC:DD:EE:03", "0", "0", std::string(40, 'q')) +
                      Record("After", "AA:BB:CC:DD:EE:04", "0", "0", "x")));

    ASSERT_EQ((std::vector<std::string>{"Phone", "Desk", "Long", "After"}),
              Names(core->mDeviceList));
    EXPECT_STREQ("abc", core->mDeviceList[0].zel_id);
    EXPECT_EQ(std::string(31, 'z'), core->mDeviceList[1].zel_id);
    EXPECT_EQ(std::string(31, 'q'), core->mDeviceList[2].zel_id);
    EXPECT_STREQ("x", core->mDeviceList[3].zel_id);
    EXPECT_TRUE(
        fake::HasLog("Read Data[0] [Phone] [AA:BB:CC:DD:EE:01] [0] [0] [1] [2] [0] [1] "
                     "[0] [1] [1600000000000] [0] [abc]",
                     DLOG_INFO));
    EXPECT_TRUE(fake::HasLog("End Of File [-1]"));
}

TEST_F(LoadTest, UnversionedRecordsGetTheirKeyTypeFromTheirAddresses) {
    // These records were written with a 32-bit time: a larger value cannot be one of them.
    EXPECT_EQ(3, Load(Record("Wifi Phone", "0", "AA:BB:CC:DD:EE:02", "", "", "4294967295") +
                      Record("Bt Phone", "AA:BB:CC:DD:EE:01", "0", "", "", "5000000000") +
                      Record("Late", "AA:BB:CC:DD:EE:03", "0", "", "", "99999999999999999999")));

    ASSERT_EQ(3u, core->mDeviceList.size());
    EXPECT_EQ(1, core->mDeviceList[0].keyType);
    EXPECT_EQ(4294967295ULL, core->mDeviceList[0].accessTime);
    EXPECT_EQ(4294967295ULL, core->mDeviceList[1].accessTime);
    EXPECT_EQ(4294967295ULL, core->mDeviceList[2].accessTime);
    EXPECT_STREQ("0", core->mDeviceList[0].zel_id);
    EXPECT_EQ(0, core->mDeviceList[1].keyType);
    EXPECT_TRUE(fake::HasLog("DB Check res[0] version: [-1]", DLOG_INFO));
    EXPECT_TRUE(
        fake::HasLog("Read Data[0] [Wifi Phone] [0] [AA:BB:CC:DD:EE:02] [0] [1] [2] [0] "
                     "[1] [0] [1] [4294967295]",
                     DLOG_INFO));
    EXPECT_TRUE(fake::HasLog("End Of File [-1]"));
}

TEST_F(LoadTest, UnknownVersionAndBareVersionLinesLoadNothing) {
    EXPECT_EQ(0, Load("3\n" + Record("Phone", "AA:BB:CC:DD:EE:01", "0", "")));
    EXPECT_TRUE(core->mDeviceList.empty());
    EXPECT_TRUE(core->mReverseDeviceList.empty());
    EXPECT_TRUE(fake::HasLog("DB Check res[1] version: [3]"));
    EXPECT_TRUE(fake::HasLog("End Of File [0]", DLOG_INFO));

    // Nothing is read past the end of the text.
    EXPECT_EQ(0, Load("0"));
    EXPECT_EQ(0, Load("1\n"));
    EXPECT_TRUE(core->mDeviceList.empty());
}

TEST_F(LoadTest, MalformedLinesEndTheLoadAtTheirRecord) {
    EXPECT_EQ(1, Load("0\n" + Record("Phone", "AA:BB:CC:DD:EE:01") +
                      Record("", "AA:BB:CC:DD:EE:02") + Record("After", "AA:BB:CC:DD:EE:03")));
    EXPECT_EQ(std::vector<std::string>{"Phone"}, Names(core->mDeviceList));

    // An address of 18 characters fits the template and is cut to the field; longer
    // addresses and names do not fit their conversion.
    EXPECT_EQ(1, Load("0\n" + Record("Eighteen", "AA:BB:CC:DD:EE:FFX")));
    EXPECT_STREQ("AA:BB:CC:DD:EE:FF", core->mDeviceList[0].bt_mac);
    EXPECT_EQ(0, Load("0\n" + Record("Nineteen", "AA:BB:CC:DD:EE:FFXY")));
    EXPECT_EQ(1, Load("0\n" + Record(std::string(127, 'n'), "AA:BB:CC:DD:EE:01") +
                      Record(std::string(128, 'n'), "AA:BB:CC:DD:EE:02")));
    EXPECT_EQ(std::string(127, 'n'), core->mDeviceList[0].devname);

    std::string text = Record("Phone", "AA:BB:CC:DD:EE:01");
    text.replace(text.find("<icon>2"), 7, "<icon>x");
    EXPECT_EQ(0, Load("0\n" + text));
    EXPECT_TRUE(fake::HasLog("End Of File [5]"));
}

}  // namespace
