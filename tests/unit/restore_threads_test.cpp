// A restore arrives on the backup service's own thread while bus requests are handled on the
// main loop: both change the normal list at once. Nothing may be lost or duplicated, the
// list lock must end free, every backup sent meanwhile must be a whole list, and the last
// save must hold the final list. Run under the thread sanitizer, this is the race check.
#include <gtest/gtest.h>
#include <json/json.h>

#include <atomic>
#include <cstdio>
#include <set>
#include <string>
#include <thread>

#include "CPXMCore.h"
#include "PXMBackupRestore.h"
#include "fake_platform.h"
#include "handler_bus.h"
#include "unit_support.h"

namespace {

using handler_bus::kGet;
using handler_bus::kSet;
using handler_bus::MacIndValue;

// Wi-Fi addresses only: no Bluetooth table, so no eviction can take a device away.
std::string Mac(int side, int n) {
    char mac[32];
    snprintf(mac, sizeof(mac), "0%d:00:00:00:00:%02X", side & 0xF, n & 0xFF);
    return mac;
}

// Restore payload of devices 0..last of the service's side, as the service returns it.
std::string RestorePayload(int last) {
    Json::Value list(Json::arrayValue);
    for (int n = 0; n <= last; ++n) {
        Json::Value item;
        item["devname"] = "Restored" + std::to_string(n);
        for (const char* text : {"bt_mac", "p2p_mac"}) {
            item[text] = "";
        }
        item["wifi_mac"] = Mac(2, n);
        item["devstatus"] = n % 2;
        for (const char* number : {"devtype", "devicon", "tvInitMirroringSupport", "isNoUX",
                                   "isUXAlways", "accessTime", "keyType"}) {
            item[number] = 1;
        }
        list.append(Json::Value());
        list[n]["item_data"] = item;
    }
    Json::Value root;
    root["list"] = list;
    return Json::writeString(Json::StreamWriterBuilder(), root);
}

class RestoreThreads : public handler_bus::HandlerTest {};

TEST_F(RestoreThreads, ARestoreBesideBusRequestsLosesAndDuplicatesNothing) {
    Start();
    const int kRounds = 24;
    std::atomic<bool> restoring{true};
    // Each round restores one more device and merges the ones restored before it.
    std::thread service([this, kRounds, &restoring] {
        for (int round = 0; round < kRounds; ++round) {
            std::string text = RestorePayload(round);
            bnr_resp_data_s resp{&text[0], static_cast<int>(text.size())};
            PXMBackupRestore::m_BnrCallback(BNR_RESPONSE_RESTORE_DATA, &resp, &server->m_BnrClient);
        }
        restoring = false;
    });

    // Meanwhile the main loop stores, lists and changes its own devices.
    int added = 0;
    while (restoring || added < kRounds) {
        handler_bus::Request request;
        request.name = "Main" + std::to_string(added);
        request.wifi = Mac(1, added);
        request.no_ux = 1;
        EXPECT_EQ("(0,)", client.Call(kSet, "pxm_request_access", request.Variant()));
        client.Call(kGet, "pxm_get_list");
        EXPECT_EQ("(1,)",
                  client.Call(kSet, "pxm_set_status", MacIndValue(request.wifi.c_str(), 2, 1)));
        ++added;
    }
    service.join();

    EXPECT_EQ(static_cast<std::size_t>(kRounds), fake::CallCount("bnr_report_success"));
    EXPECT_EQ(0u, fake::CallCount("bnr_report_failure"));
    EXPECT_TRUE(unit::LockIsFree(core->mPXMLock));

    std::set<std::string> expected;
    for (int n = 0; n < added; ++n) {
        expected.insert(Mac(1, n));
    }
    for (int n = 0; n < kRounds; ++n) {
        expected.insert(Mac(2, n));
    }
    std::multiset<std::string> stored;
    core->mPXMLock.Lock();
    for (const pxm_core_device_s& rec : core->mDeviceList) {
        stored.insert(rec.wifi_mac);
        std::string mac = rec.wifi_mac;
        // Main devices were all set to denied; restored ones keep their own verdict.
        int status = mac[1] == '1' ? 1 : std::stoi(mac.substr(15), nullptr, 16) % 2;
        EXPECT_EQ(status, rec.devstatus) << mac;
    }
    core->mPXMLock.Unlock();
    EXPECT_EQ(std::multiset<std::string>(expected.begin(), expected.end()), stored);

    // Every backup sent meanwhile was one whole list, never a torn one.
    for (const std::string& sent : fake::BackupPayloads()) {
        Json::Value list = unit::ParseJson(sent);
        ASSERT_TRUE(list.isArray()) << sent;
        std::set<std::string> keys;
        for (const Json::Value& entry : list) {
            keys.insert(entry["key"].asString());
        }
        EXPECT_EQ(list.size(), keys.size()) << "a device sent twice: " << sent;
    }

    // The last save to run wrote the final list.
    core->DB_WaitForSaves();
    std::string saved = fake::SecureItem(PXM_STORAGE_ITEM).value_or("");
    ASSERT_EQ(0u, saved.rfind("2\n", 0));
    EXPECT_EQ(expected.size(), unit::ParseJson(saved.substr(2)).size());
}

}  // namespace
