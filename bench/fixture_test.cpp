// What the in-process benchmarks take for granted about their fixtures. If one of these
// fails, a benchmark measures other work than its name says (records folded by a merge,
// a baseline writing a different document, a load that reads nothing).
#include <gtest/gtest.h>
#include <strings.h>

#include <algorithm>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "CPXMCore.h"
#include "device_fixture.h"
#include "fake_platform.h"

namespace {

std::string Lower(const char* text) {
    std::string out(text);
    std::transform(out.begin(), out.end(), out.begin(), ::tolower);
    return out;
}

TEST(DeviceFixture, RecordsAreValidAndShareNoAddress) {
    CPXMCore& core = bench::StartedRegistry();
    const long largest =
        *std::max_element(std::begin(bench::kListSizes), std::end(bench::kListSizes));
    std::vector<pxm_core_device_s> devices = bench::MakeDevices(static_cast<std::size_t>(largest));
    std::set<std::string> addresses;
    for (const pxm_core_device_s& dev : devices) {
        EXPECT_TRUE(core.UTIL_CheckValidName(dev.devname)) << dev.devname;
        EXPECT_TRUE(core.UTIL_CheckValidId(dev.zel_id)) << dev.zel_id;
        for (const char* mac : {dev.bt_mac, dev.wifi_mac, dev.p2p_mac}) {
            EXPECT_TRUE(core.UTIL_CheckValidMAC(mac)) << mac;
            addresses.insert(Lower(mac));
        }
    }
    // Two records sharing an address would be folded into one by the first merge.
    EXPECT_EQ(3 * devices.size(), addresses.size());
}

TEST(DeviceFixture, TheListJsonBaselineWritesTheDaemonsDocument) {
    CPXMCore& core = bench::StartedRegistry();
    std::vector<pxm_core_device_s> devices = bench::MakeDevices(12);
    bench::ResetRegistry(core, devices);
    std::string daemon;
    ASSERT_TRUE(core.Util_GetJsonStringForDeviceList(daemon));
    Json::StreamWriterBuilder builder;
    EXPECT_EQ(daemon, Json::writeString(builder, bench::DirectListJson(devices)));
}

TEST(DeviceFixture, TheStoredTextLoadsBackAsTheList) {
    CPXMCore& core = bench::StartedRegistry();
    std::vector<pxm_core_device_s> devices = bench::MakeDevices(25);
    bench::ResetRegistry(core, {});
    fake::SetSecureItem(PXM_STORAGE_ITEM, bench::StoredListText(devices));
    ASSERT_GE(core.DB_OpenFile(), 0);
    ASSERT_EQ(devices.size(), core.mDeviceList.size());
    EXPECT_TRUE(core.mReverseDeviceList.empty());
    for (std::size_t i = 0; i < devices.size(); ++i) {
        const pxm_core_device_s& loaded = core.mDeviceList[i];
        EXPECT_STREQ(devices[i].devname, loaded.devname);
        EXPECT_STREQ(devices[i].bt_mac, loaded.bt_mac);
        EXPECT_STREQ(devices[i].p2p_mac, loaded.p2p_mac);
        EXPECT_STREQ(devices[i].mirroring_Id, loaded.mirroring_Id);
        EXPECT_EQ(devices[i].accessTime, loaded.accessTime);
    }
}

TEST(DeviceFixture, TheMergeRequestMergesWhileASaveWaitsAtTheFileLock) {
    CPXMCore& core = bench::StartedRegistry();
    std::vector<pxm_core_device_s> devices = bench::MakeDevices(100);
    pxm_core_device_s request = bench::MergeRequest(devices);
    EXPECT_EQ(1, bench::CaseInsensitiveScan(devices, request));
    EXPECT_NE(std::string(request.wifi_mac), devices[50].wifi_mac);  // the case differs

    bench::ResetRegistry(core, devices);
    fake::SetSecureItem(PXM_STORAGE_ITEM, "");
    // As add_merge does: the add runs while the save it starts waits for the file lock.
    core.mFileLock.Lock();
    ASSERT_TRUE(core.INTERNAL_AddDevice(&request, PXM_SAVE_NORMAL));
    EXPECT_EQ(devices.size(), core.mDeviceList.size());
    EXPECT_EQ(1, core.mDeviceList[50].updated);
    EXPECT_TRUE(core.mFileLock.Unlock());
    core.DB_WaitForSaves();

    std::optional<std::string> stored = fake::SecureItem(PXM_STORAGE_ITEM);
    ASSERT_TRUE(stored.has_value());
    Json::Value root;
    ASSERT_TRUE(bench::ParseListJson(stored->substr(2), &root));
    EXPECT_EQ(devices.size(), root.size());
    EXPECT_EQ(core.mDeviceList[50].accessTime, root[50]["item_data"]["accessTime"].asUInt64());
}

}  // namespace
