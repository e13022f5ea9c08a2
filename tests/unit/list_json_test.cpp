// The JSON form of the device lists: what the writer produces from both lists and what the
// reader makes of good, odd and broken documents.
#include <gtest/gtest.h>
#include <json/json.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "CPXMCore.h"
#include "dlog.h"
#include "fake_platform.h"
#include "unit_support.h"

namespace {

pxm_core_device_s Device(const char* name, int status, int dyType) {
    pxm_core_device_s dev{};
    std::strcpy(dev.devname, name);
    std::strcpy(dev.bt_mac, "AA:BB:CC:DD:EE:01");
    std::strcpy(dev.wifi_mac, "0");
    std::strcpy(dev.p2p_mac, "aa:bb:cc:dd:ee:02");
    std::strcpy(dev.zel_id, "zel");
    std::strcpy(dev.mirroring_Id, "mir");
    dev.devstatus = status;
    dev.dy_type = dyType;
    return dev;
}

using unit::Names;

// Every field, so that two records compare with a readable difference.
std::string Text(const pxm_core_device_s& d) {
    return std::string(d.devname) + "|" + d.bt_mac + "|" + d.wifi_mac + "|" + d.p2p_mac + "|" +
           d.zel_id + "|" + d.mirroring_Id + "|" + std::to_string(d.devtype) + "|" +
           std::to_string(d.devicon) + "|" + std::to_string(d.devstatus) + "|" +
           std::to_string(d.tvInitMirroringSupport) + "|" + std::to_string(d.isNoUX) + "|" +
           std::to_string(d.isUXAlways) + "|" + std::to_string(d.accessTime) + "|" +
           std::to_string(d.updated) + "|" + std::to_string(d.keyType) + "|" +
           std::to_string(d.dy_type);
}

class ListJsonTest : public ::testing::Test {
protected:
    void SetUp() override {
        fake::Reset();
        core = CPXMCore::GetInstance();
        core->mDeviceList.clear();
        core->mReverseDeviceList.clear();
    }

    CPXMCore* core = nullptr;
};

TEST_F(ListJsonTest, WrittenListsReadBackIntoTheListTheirDyTypeNames) {
    pxm_core_device_s phone = Device("Phone", 0, 0);
    phone.devtype = 3;
    phone.devicon = 7;
    phone.tvInitMirroringSupport = 1;
    phone.isUXAlways = 1;
    phone.accessTime = 1700000000123ULL;  // beyond 32 bits
    phone.keyType = 2;
    pxm_core_device_s tablet = Device("Tablet", 1, 0);
    tablet.isNoUX = 1;
    pxm_core_device_s marked = Device("Marked", 2, 4);
    // A reverse record whose dy_type is 0 cannot be told apart once written.
    pxm_core_device_s unmarked = Device("Unmarked", 0, 0);
    core->mDeviceList = {phone, tablet};
    core->mReverseDeviceList = {marked, unmarked};

    std::string out = "stale";
    EXPECT_TRUE(core->Util_GetJsonStringForDeviceList(out));

    Json::Value root;
    std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    ASSERT_TRUE(reader->parse(out.data(), out.data() + out.size(), &root, nullptr)) << out;
    ASSERT_EQ(4u, root.size());
    const std::string keys =
        "accessTime bt_mac devicon devname devstatus devtype dy_type isNoUX isUXAlways keyType "
        "mirroring_Id p2p_mac tvInitMirroringSupport wifi_mac zel_id ";
    for (const Json::Value& element : root) {
        EXPECT_EQ(std::vector<std::string>{"item_data"}, element.getMemberNames());
        std::string names;
        for (const std::string& name : element["item_data"].getMemberNames()) {
            names += name + " ";
        }
        EXPECT_EQ(keys, names);
    }
    EXPECT_EQ("Marked", root[2]["item_data"]["devname"].asString());
    EXPECT_EQ(4, root[2]["item_data"]["dy_type"].asInt());

    core->mDeviceList.clear();
    core->mReverseDeviceList.clear();
    core->Util_GetDeviceListForJsonString(out);

    EXPECT_EQ((std::vector<std::string>{"Phone", "Tablet", "Unmarked"}), Names(core->mDeviceList));
    ASSERT_EQ(std::vector<std::string>{"Marked"}, Names(core->mReverseDeviceList));
    EXPECT_EQ(Text(phone), Text(core->mDeviceList[0]));
    EXPECT_EQ(Text(tablet), Text(core->mDeviceList[1]));
    EXPECT_EQ(Text(marked), Text(core->mReverseDeviceList[0]));

    EXPECT_TRUE(fake::HasLog("Device count is [2]", DLOG_INFO, "PXM_CORE"));
    EXPECT_TRUE(fake::HasLog("Reverse Device count is [2]", DLOG_INFO));
    EXPECT_TRUE(
        fake::HasLog("[DBusServer] Device Name [Phone] status [0] TvInitMirroringSupport "
                     "[1] iIsNoUX[0] and iIsUXAlways[1]"));
    EXPECT_TRUE(fake::HasLog("Complete Data: " + out));
    EXPECT_TRUE(
        fake::HasLog("Restore Data[0] [Phone] [AA:BB:CC:DD:EE:01] [0] [aa:bb:cc:dd:ee:02] "
                     "[zel] [mir] [3] [7] [0] [1] [0] [1] [1700000000123] [2]"));

    core->mDeviceList.clear();
    core->mReverseDeviceList.clear();
    core->Util_GetJsonStringForDeviceList(out);
    EXPECT_EQ("null", out);
}

TEST_F(ListJsonTest, ReaderFillsMissingMembersAndCutsLongText) {
    const std::string longName(200, 'n');
    core->Util_GetDeviceListForJsonString(
        "[{\"item_data\":{\"devname\":\"" + longName +
        "\",\"bt_mac\":\"AA:BB:CC:DD:EE:FF:00\",\"zel_id\":\"" + std::string(40, 'z') +
        "\",\"wifi_mac\":null,\"devstatus\":1,\"accessTime\":18446744073709551615}},"
        "{\"item_data\":{\"devname\":\"Rev\",\"dy_type\":9}},"
        "{\"item_data\":{\"devname\":\"NullDy\",\"dy_type\":null}}]");

    ASSERT_EQ(2u, core->mDeviceList.size());
    const pxm_core_device_s& dev = core->mDeviceList[0];
    EXPECT_EQ(longName.substr(0, 127), dev.devname);
    EXPECT_STREQ("AA:BB:CC:DD:EE:FF", dev.bt_mac);
    EXPECT_EQ(std::string(31, 'z'), dev.zel_id);
    EXPECT_STREQ("0", dev.wifi_mac);
    EXPECT_STREQ("0", dev.mirroring_Id);
    EXPECT_EQ(1, dev.devstatus);
    EXPECT_EQ(18446744073709551615ULL, dev.accessTime);
    EXPECT_STREQ("NullDy", core->mDeviceList[1].devname);
    EXPECT_EQ(std::vector<std::string>{"Rev"}, Names(core->mReverseDeviceList));
}

TEST_F(ListJsonTest, ReaderRefusesDocumentsThatAreNotANonEmptyArray) {
    // The reader appends: what the caller left in the list stays.
    core->mDeviceList = {Device("Kept", 0, 0)};

    for (const char* text : {"null", "{}", "[]", "{\"item_data\":{\"devname\":\"X\"}}"}) {
        SCOPED_TRACE(text);
        fake::ClearLogs();
        core->Util_GetDeviceListForJsonString(text);
        EXPECT_TRUE(fake::HasLog(" Format err ,not Array or Array is empty", DLOG_ERROR));
        EXPECT_FALSE(fake::HasLog("Size: ["));
    }
    // Deep nesting makes the parser throw rather than fail; it must not escape.
    for (const std::string& text : {std::string("not json"), std::string("[{\"item_data\":"),
                                    std::string(), std::string(5000, '[')}) {
        SCOPED_TRACE(text.substr(0, 20));
        fake::ClearLogs();
        core->Util_GetDeviceListForJsonString(text);
        EXPECT_TRUE(fake::HasLog("parse json error exception is [", DLOG_ERROR));
        EXPECT_FALSE(fake::HasLog("Size = "));
    }
    EXPECT_EQ(std::vector<std::string>{"Kept"}, Names(core->mDeviceList));
    EXPECT_TRUE(core->mReverseDeviceList.empty());
}

TEST_F(ListJsonTest, MalformedElementEndsTheWalkKeepingEarlierRecords) {
    const std::string good = "{\"item_data\":{\"devname\":\"Good\"}}";
    const std::string goodReverse = "{\"item_data\":{\"devname\":\"GoodRev\",\"dy_type\":1}}";
    for (const char* bad : {
             "{\"item_data\":{\"devtype\":\"1\"}}",
             "{\"item_data\":{\"devname\":5}}",
             "{\"item_data\":{\"accessTime\":-1}}",
             "{\"item_data\":{\"dy_type\":\"r\"}}",
             "{\"item_data\":[1,2]}",
             "7",
         }) {
        SCOPED_TRACE(bad);
        fake::ClearLogs();
        core->mDeviceList.clear();
        core->mReverseDeviceList.clear();

        core->Util_GetDeviceListForJsonString("[" + good + "," + goodReverse + "," + bad + "," +
                                              good + "]");

        EXPECT_TRUE(fake::HasLog("parse json err exception is [", DLOG_ERROR));
        EXPECT_EQ(std::vector<std::string>{"Good"}, Names(core->mDeviceList));
        EXPECT_EQ(std::vector<std::string>{"GoodRev"}, Names(core->mReverseDeviceList));
    }
}

}  // namespace
