// Validity rules, lookups, key-type completion and the corrected clock.
#include <gtest/gtest.h>

#include <cstring>

#include "CPXMCore.h"
#include "fake_platform.h"
#include "unit_support.h"

namespace {

pxm_core_device_s Record(const char* bt, const char* wifi, const char* p2p, int keyType) {
    pxm_core_device_s dev = unit::Device("", bt, wifi, p2p);
    dev.keyType = keyType;
    return dev;
}

TEST(RecordUtils, ValidityKeyTypesClockAndLookups) {
    CPXMCore* core = CPXMCore::GetInstance();
    for (const char* mac :
         {"00:00:00:00:00:01", "00-00-00-00-00-01", "G1:22:33:44:55:66", "AA:BB:CC:DD:EE:F?"}) {
        EXPECT_TRUE(core->UTIL_CheckValidMAC(mac)) << mac;
    }
    for (const char* mac : {"00:00:00:00:00:00", "00-00-00-00-00-00", "AA:BB:CC:DD:EE:F",
                            "AA:BB:CC:DD:EE:FF0", "0"}) {
        EXPECT_FALSE(core->UTIL_CheckValidMAC(mac)) << mac;
    }
    for (const char* name : {"", "0", "None", "unknown"}) {
        EXPECT_FALSE(core->UTIL_CheckValidName(name)) << name;
    }
    EXPECT_TRUE(core->UTIL_CheckValidName("Galaxy") && core->UTIL_CheckValidName("00"));
    EXPECT_TRUE(core->UTIL_CheckValidId("") && core->UTIL_CheckValidId("zel-7"));
    EXPECT_FALSE(core->UTIL_CheckValidId("None") || core->UTIL_CheckValidId("0") ||
                 core->UTIL_CheckValidId("UNKNOWN"));

    // Key types: an explicit choice is kept, else the first valid address decides.
    const struct {
        pxm_core_device_s dev;
        int keyType;
    } keys[] = {{Record("aa:bb:cc:dd:ee:01", "", "", 0), 0},
                {Record("", "0", "0", 1), 1},
                {Record("0", "", "aa:bb:cc:dd:ee:03", 0), 2},
                {Record("aa:bb:cc:dd:ee:01", "aa:bb:cc:dd:ee:02", "", -1), 0},
                {Record("0", "aa:bb:cc:dd:ee:02", "aa:bb:cc:dd:ee:03", -1), 1},
                {Record("", "0", "00-00-00-00-00-00", 0), -1}};
    for (auto c : keys) {
        core->UTIL_CheckAndUpdateKeyType(&c.dev);
        EXPECT_EQ(c.keyType, c.dev.keyType) << c.dev.bt_mac << c.dev.wifi_mac << c.dev.p2p_mac;
    }

    // An unset clock is lifted by the fixed offset.
    fake::SetRealtime(5, 0);
    EXPECT_EQ(1000000005000ULL, core->UTIL_GetTime());
    fake::SetRealtime(999999999, 999999999);  // just below the threshold
    EXPECT_EQ(1999999999999ULL, core->UTIL_GetTime());
    fake::SetRealtime(1700000000, 987654321);
    EXPECT_EQ(1700000000987ULL, core->UTIL_GetTime());
    EXPECT_EQ(2u, fake::CountLogs("System time is not in sync"));

    // Lookups compare many records quickly; they must still find the first record with the
    // same address but for the case of letters. A miss clears the out-record; an empty list
    // leaves it alone.
    const char* stored[][2] = {
        {"first", "AA:BB:CC:DD:EE:01"},     {"second", "aa:bb:cc:dd:ee:01"},
        {"last-char", "AA:BB:CC:DD:EE:02"}, {"at-sign", "@[:BB:CC:DD:EE:04"},
        {"short", "AA:BB:CC:DD:EE:0"},      {"wifi-only", "0"},
    };
    core->mDeviceList.clear();
    for (const auto& entry : stored) {
        core->mDeviceList.push_back(unit::Device(entry[0], entry[1], "11:22:33:44:55:66", "0"));
    }
    const struct {
        const char* mac;
        int ind;
        const char* found;  // devname, or "" for no record
    } cases[] = {
        {"aa:BB:cc:DD:ee:01", PXM_TECH_BT, "first"},
        {"AA:BB:CC:DD:EE:02", PXM_TECH_BT, "last-char"},
        {"AA:BB:CC:DD:EE:03", PXM_TECH_BT, ""},  // differs in the 17th character only
        {"@[:bb:cc:dd:ee:04", PXM_TECH_BT, "at-sign"},
        {"`{:BB:CC:DD:EE:04", PXM_TECH_BT, ""},  // '`' and '{' are not letters
        {"AA:BB:CC:DD:EE:0\x01", PXM_TECH_BT, ""},
        {"11:22:33:44:55:66", PXM_TECH_WIFI, "first"},
        {"11:22:33:44:55:66", PXM_TECH_P2P, ""},
        {"00:00:00:00:00:00", PXM_TECH_BT, ""},
        {"0", PXM_TECH_BT, ""},  // a placeholder never matches, not even the same placeholder
        {"aa:bb:cc:dd:ee:01", 4, ""},
    };
    for (const auto& c : cases) {
        pxm_core_device_s out;
        memset(&out, 'Q', sizeof out);
        out.devname[sizeof out.devname - 1] = '\0';
        bool hit =
            core->CMD_GetDevice(c.mac, static_cast<pxm_tech_ind_e>(c.ind), &out, PXM_SAVE_NORMAL);
        EXPECT_EQ(*c.found != '\0', hit) << c.mac << " " << c.ind;
        EXPECT_STREQ(c.found, out.devname) << c.mac << " " << c.ind;
    }
    core->mReverseDeviceList.clear();
    pxm_core_device_s out;
    memset(&out, 'Q', sizeof out);
    EXPECT_FALSE(core->CMD_GetDevice("AA:BB:CC:DD:EE:01", PXM_TECH_BT, &out, PXM_SAVE_REVERSE));
    EXPECT_EQ('Q', out.devname[0]);
    core->mDeviceList.clear();
}

}  // namespace
