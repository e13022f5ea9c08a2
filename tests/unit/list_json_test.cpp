// The JSON form of the device lists: what the writer produces from both lists and what the
// reader makes of good, odd and broken documents.
#include <gtest/gtest.h>
#include <json/json.h>

#include <string>
#include <vector>

#include "CPXMCore.h"
#include "dlog.h"
#include "fake_platform.h"
#include "unit_support.h"

namespace {

pxm_core_device_s Device(const char* name, int status, int dyType) {
    pxm_core_device_s dev =
        unit::Device(name, "AA:BB:CC:DD:EE:01", "0", "aa:bb:cc:dd:ee:02", status);
    snprintf(dev.zel_id, sizeof dev.zel_id, "zel");
    snprintf(dev.mirroring_Id, sizeof dev.mirroring_Id, "mir");
    dev.dy_type = dyType;
    return dev;
}

// Every field, so that two records compare with a readable difference.
std::string Text(const pxm_core_device_s& d) {
    char out[512];
    snprintf(out, sizeof out, "%s|%s|%s|%s|%s|%s|%d|%d|%d|%d|%d|%d|%llu|%d|%d|%d", d.devname,
             d.bt_mac, d.wifi_mac, d.p2p_mac, d.zel_id, d.mirroring_Id, d.devtype, d.devicon,
             d.devstatus, d.tvInitMirroringSupport, d.isNoUX, d.isUXAlways,
             static_cast<unsigned long long>(d.accessTime), d.updated, d.keyType, d.dy_type);
    return out;
}

class ListJsonTest : public ::testing::Test {
protected:
    void SetUp() override {
        fake::Reset();
        core->mDeviceList.clear();
        core->mReverseDeviceList.clear();
    }
    CPXMCore* core = CPXMCore::GetInstance();
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
    core->mDeviceList = {phone, tablet};
    core->mReverseDeviceList = {marked, Device("Unmarked", 0, 0)};

    std::string out = "stale";
    EXPECT_TRUE(core->Util_GetJsonStringForDeviceList(out));
    Json::Value root = unit::ParseJson(out);
    ASSERT_EQ(4u, root.size());
    for (const Json::Value& element : root) {
        EXPECT_EQ(std::vector<std::string>{"item_data"}, element.getMemberNames());
        EXPECT_EQ((std::vector<std::string>{"accessTime", "bt_mac", "devicon", "devname",
                                            "devstatus", "devtype", "dy_type", "isNoUX",
                                            "isUXAlways", "keyType", "mirroring_Id", "p2p_mac",
                                            "tvInitMirroringSupport", "wifi_mac", "zel_id"}),
                  element["item_data"].getMemberNames());
    }

    core->mDeviceList.clear();
    core->mReverseDeviceList.clear();
    core->Util_GetDeviceListForJsonString(out);
    EXPECT_EQ("Phone Tablet Unmarked", unit::Names(core->mDeviceList));
    ASSERT_EQ("Marked", unit::Names(core->mReverseDeviceList));
    EXPECT_EQ(Text(phone), Text(core->mDeviceList[0]));
    EXPECT_EQ(Text(tablet), Text(core->mDeviceList[1]));
    EXPECT_EQ(Text(marked), Text(core->mReverseDeviceList[0]));

    core->mDeviceList.clear();
    core->mReverseDeviceList.clear();
    core->Util_GetJsonStringForDeviceList(out);
    EXPECT_EQ("null", out);
}

// The reader appends to what the lists hold; it stops at the first element it cannot read,
// keeping the records before it, and refuses documents that are not a non-empty array.
TEST_F(ListJsonTest, ReaderKeepsWhatItCouldReadAndRefusesTheRest) {
    const std::string good = "{\"item_data\":{\"devname\":\"Good\"}}";
    const std::string rev = "{\"item_data\":{\"devname\":\"GoodRev\",\"dy_type\":1}}";
    const std::string fmt = " Format err ,not Array or Array is empty";
    const std::string parse = "parse json error exception is [";
    const std::string element = "parse json err exception is [";
    const struct {
        std::string text, normal, reverse, error;
    } rows[] = {
        {"[" + good + "," + rev + ",{\"item_data\":{\"devname\":\"NullDy\",\"dy_type\":null}}]",
         "Kept Good NullDy", "GoodRev", ""},
        {"null", "Kept", "", fmt},
        {"{}", "Kept", "", fmt},
        {"[]", "Kept", "", fmt},
        {good, "Kept", "", fmt},
        {"not json", "Kept", "", parse},
        {"[{\"item_data\":", "Kept", "", parse},
        {"", "Kept", "", parse},
        {std::string(5000, '['), "Kept", "", parse},  // the parser throws: it must not escape
        {"[" + good + "," + rev + ",{\"item_data\":{\"devtype\":\"1\"}}," + good + "]", "Kept Good",
         "GoodRev", element},
        {"[" + good + "," + rev + ",{\"item_data\":{\"devname\":5}}," + good + "]", "Kept Good",
         "GoodRev", element},
        {"[" + good + "," + rev + ",{\"item_data\":{\"accessTime\":-1}}]", "Kept Good", "GoodRev",
         element},
        {"[" + good + "," + rev + ",{\"item_data\":{\"dy_type\":\"r\"}}]", "Kept Good", "GoodRev",
         element},
        {"[" + good + "," + rev + ",{\"item_data\":[1,2]}]", "Kept Good", "GoodRev", element},
        {"[" + good + "," + rev + ",7]", "Kept Good", "GoodRev", element},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text.substr(0, 60));
        fake::ClearLogs();
        core->mDeviceList = {Device("Kept", 0, 0)};
        core->mReverseDeviceList.clear();
        core->Util_GetDeviceListForJsonString(row.text);
        EXPECT_EQ(row.normal, unit::Names(core->mDeviceList));
        EXPECT_EQ(row.reverse, unit::Names(core->mReverseDeviceList));
        if (!row.error.empty()) {
            EXPECT_TRUE(fake::HasLog(row.error, DLOG_ERROR));
        }
    }

    // Missing members are filled, long texts cut to their field.
    core->mDeviceList.clear();
    core->Util_GetDeviceListForJsonString(
        "[{\"item_data\":{\"devname\":\"" + std::string(200, 'n') +
        "\",\"bt_mac\":\"AA:BB:CC:DD:EE:FF:00\",\"zel_id\":\"" + std::string(40, 'z') +
        "\",\"wifi_mac\":null,\"devstatus\":1,\"accessTime\":18446744073709551615}}]");
    ASSERT_EQ(1u, core->mDeviceList.size());
    const pxm_core_device_s& dev = core->mDeviceList[0];
    EXPECT_EQ(std::string(127, 'n') + "|AA:BB:CC:DD:EE:FF|0|0|" + std::string(31, 'z') +
                  "|0|0|0|1|0|0|0|18446744073709551615|0|0|0",
              Text(dev));
}

}  // namespace
