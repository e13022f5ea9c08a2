// Restore: every way it can fail (and what a failure keeps), what the service is told, and a
// restore beside bus requests.
#include <gtest/gtest.h>
#include <json/json.h>

#include <atomic>
#include <cstdio>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "CPXMCore.h"
#include "PXMBackupRestore.h"
#include "dlog.h"
#include "fake_platform.h"
#include "handler_bus.h"
#include "unit_support.h"

namespace {

const char kClientId[] = "Zq8Tn3Wd5R";

// One backup entry as the service stores it; `item` is spliced into "item_data".
std::string Entry(const std::string& item) {
    return "{\"key\":\"x\",\"timestamp\":1,\"item_data\":{" + item + "}}";
}

std::string Item(const std::string& name, const std::string& bt, const std::string& wifi,
                 int status) {
    return "\"devname\":\"" + name + "\",\"bt_mac\":\"" + bt + "\",\"wifi_mac\":\"" + wifi +
           "\",\"p2p_mac\":\"\",\"devtype\":3,\"devicon\":4,\"devstatus\":" +
           std::to_string(status) +
           ",\"tvInitMirroringSupport\":1,\"isNoUX\":0,\"isUXAlways\":0,\"accessTime\":"
           "1700000000123,\"keyType\":" +
           (bt.empty() ? "1" : "0");
}

std::string Payload(const std::vector<std::string>& entries) {
    return "{\"list\":[" + unit::Join(entries, ",") + "]}";
}

const std::string kGood = Entry(Item("Good", "AA:BB:CC:DD:EE:01", "AA:BB:CC:DD:EE:02", 0));

// Wi-Fi addresses only: no Bluetooth table, so no eviction can take a device away.
std::string Mac(int side, int n) {
    char mac[32];
    snprintf(mac, sizeof(mac), "0%d:00:00:00:00:%02X", side & 0xF, n & 0xFF);
    return mac;
}

// Restore payload of devices 0..last of the service's side, as the service returns it.
std::string RestorePayload(int last) {
    std::vector<std::string> entries;
    for (int n = 0; n <= last; ++n) {
        entries.push_back(Entry(Item("Restored" + std::to_string(n), "", Mac(2, n), n % 2)));
    }
    return Payload(entries);
}

// Every failure reports failure to the service and keeps what came before it.
TEST(Restore, FailuresAreReportedAndKeepTheDevicesBeforeTheBadEntry) {
    const std::string kParse = "> parse json error exception is [";
    const std::string kFormat = ">  Format err ,not Array or Array is empty";
    const std::string kEntry = ">  parse json err exception is [";
    const struct {
        std::string text;  // "(null)": no data at all
        std::string log;   // the ERROR line after the common prefix
        std::size_t kept;
    } rows[] = {
        {"(null)", kParse, 0},
        {std::string(5000, '['), kParse, 0},
        {"[" + kGood + "]", kFormat, 0},
        {"{\"list\":[]}", kFormat, 0},
        {Payload({kGood, Entry(Item("Bad", "AA:BB:CC:DD:EE:05", "", 0) + ",\"devtype\":\"1\"")}),
         kEntry, 1},
        {Payload({kGood, "7"}), kEntry, 1},
        {Payload({Entry(Item("T", "AA:BB:CC:DD:EE:07", "", 0) + ",\"accessTime\":-1")}), kEntry, 0},
    };
    CPXMCore* core = CPXMCore::GetInstance();
    // A new device would be asked about, were the restore not to forbid it.
    core->m_nAccessNoti = 1;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text.substr(0, 60));
        core->DB_WaitForSaves();
        fake::Reset();
        core->mDeviceList.clear();
        PXMBackupRestore client;
        client.Initialize(core);
        ASSERT_TRUE(client.BnrInit());
        fake::ClearJournal();

        fake::DeliverBnrResponse(102, row.text == "(null)" ? nullptr : row.text.c_str());

        EXPECT_EQ(row.kept, core->mDeviceList.size());
        EXPECT_EQ(std::vector<std::string>{kClientId}, unit::FirstArgs("bnr_report_failure"));
        EXPECT_EQ(0u, fake::CallCount("bnr_report_success"));
        EXPECT_TRUE(fake::HasLog(row.log, DLOG_ERROR)) << row.log;
        EXPECT_TRUE(unit::LogsInOrder({row.log, "m_Restore fail", "response came. Finish app"}));
        client.m_UnRegisterBnrVconfs();
        client.BnrDeinit();
        EXPECT_TRUE(unit::LockIsFree(core->mPXMLock));
    }
    core->DB_WaitForSaves();
}

// A restore arrives on the backup service's own thread while bus requests are handled on the
// main loop: both change the normal list at once. Nothing may be lost or duplicated, the
// list lock must end free, every backup sent meanwhile must be a whole list, and the last
// save must hold the final list. Run under the thread sanitizer, this is the race check.
using RestoreThreads = handler_bus::HandlerTest;

using handler_bus::kGet;
using handler_bus::kSet;
using handler_bus::MacIndValue;

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

    // Each device once, with its verdict: main devices were all set to denied, restored ones
    // keep their own.
    std::multiset<std::string> expected, stored;
    for (int n = 0; n < kRounds; ++n) {
        expected.insert(Mac(2, n) + "=" + std::to_string(n % 2));
    }
    for (int n = 0; n < added; ++n) {
        expected.insert(Mac(1, n) + "=1");
    }
    core->mPXMLock.Lock();
    for (const pxm_core_device_s& rec : core->mDeviceList) {
        stored.insert(rec.wifi_mac + ("=" + std::to_string(rec.devstatus)));
    }
    core->mPXMLock.Unlock();
    EXPECT_EQ(expected, stored);

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
