// Backups and restores: the service client's connection and the requests it serves, each
// entry's key and fields and its restore, the list as a whole, the two paths that send it, every
// way a restore fails, which bus events send the list, and a restore beside bus requests.
#include <gtest/gtest.h>
#include <json/json.h>

#include <atomic>
#include <cstdio>
#include <memory>
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
const uint64_t kTime = 1700000000123ULL;  // beyond 32 bits, so that a narrowed time shows
using Names = std::vector<std::string>;
using unit::Join;

// The calls to the backup service, without their "bnr_" prefix.
std::string ServiceCalls() {
    Names names;
    for (const auto& call : fake::Calls()) {
        if (call.fn.rfind("bnr_", 0) == 0) {
            names.push_back(call.fn.substr(4));
        }
    }
    return Join(names);
}

const char kConnectBackupDisconnect[] =
    "init trigger_callback_register callback_register backup trigger_callback_deregister "
    "callback_deregister deinit";

// The keys of a sent list, or the text itself when it is no list of entries.
std::string Keys(const std::string& sent) {
    if (sent.empty() || sent[0] != '[' || sent == "[]") {
        return sent;
    }
    Names keys;
    for (const Json::Value& entry : unit::ParseJson(sent)) {
        keys.push_back(entry["key"].asString());
    }
    return Join(keys);
}

// A connection registers each callback once however often it is made, a disconnect releases
// them, and only this client's key or the restore trigger asks for a restore.
TEST(BackupClient, ConnectionsRegisterOnceAndOnlyRequestsForThisClientAreServed) {
    fake::Reset();
    PXMBackupRestore client;
    EXPECT_EQ("", ServiceCalls()) << "the service is contacted on first use only";
    fake::QueueResult("bnr_init", -107);
    EXPECT_FALSE(client.BnrInit());
    ASSERT_TRUE(client.BnrInit());
    ASSERT_TRUE(client.BnrInit());
    EXPECT_EQ("init init trigger_callback_register callback_register init", ServiceCalls());
    EXPECT_EQ((Names{kClientId, "Orvendale"}), fake::Calls("bnr_init").at(0).args);
    EXPECT_NE(client.m_nBnrTriggerHandle, client.m_nBnrHandler);
    fake::ClearJournal();
    client.BnrDeinit();
    EXPECT_EQ("trigger_callback_deregister callback_deregister deinit", ServiceCalls());

    fake::ClearJournal();
    fake::ChangeStr("memory/bnr/restorecid", "SomeoneElse");
    fake::ChangeInt("memory/bnr/restorecid", 7);  // not a string: reads as empty text
    fake::ChangeStr("memory/bnr/backupcid", "SomeoneElse");
    EXPECT_EQ("", ServiceCalls());
    fake::ChangeStr("memory/bnr/restorecid", kClientId);
    // The restore's answer comes later: the connection stays open for it.
    EXPECT_EQ("init trigger_callback_register callback_register restore", ServiceCalls());
    EXPECT_EQ((Names{kClientId, "(null)"}), fake::Calls("bnr_restore").at(0).args);
    for (int trigger : {1, 9, 2}) {
        fake::DeliverBnrTrigger(trigger);
    }
    EXPECT_EQ(2u, fake::CallCount("bnr_restore"));
    // Answers other than restore data are only logged; data that cannot be used, or that
    // comes without a client, is reported as a failure.
    for (int answer : {0, 101, 103, 500, 501, 502, 503, 504}) {
        fake::DeliverBnrResponse(answer, nullptr);
    }
    EXPECT_EQ(0u, fake::CallCount("bnr_report_success") + fake::CallCount("bnr_report_failure"));
    fake::DeliverBnrResponse(102, "this is not json");
    PXMBackupRestore::m_BnrCallback(BNR_RESPONSE_ERROR, nullptr, nullptr);
    EXPECT_EQ((Names{kClientId, kClientId}), unit::FirstArgs("bnr_report_failure"));
    EXPECT_EQ(1u, fake::CallCount("bnr_init")) << "no answer reconnects";
    client.m_UnRegisterBnrVconfs();
    EXPECT_EQ(0u, fake::VconfListenerCount("memory/bnr/restorecid") +
                      fake::VconfListenerCount("memory/bnr/backupcid"));
    // Released even when the service refuses, so that the next connection registers afresh.
    fake::SetResult("bnr_callback_deregister", -6);
    client.BnrDeinit();
    EXPECT_EQ(-1, client.m_nBnrTriggerHandle);
    EXPECT_EQ(-1, client.m_nBnrHandler);
}

class BackupPayload : public ::testing::Test {
protected:
    void TearDown() override { client->m_UnRegisterBnrVconfs(); }

    // A clean platform, two stored devices or none, a client that has the registry or not,
    // and the next bnr_backup scripted to answer backup_result.
    void Prepare(bool devices, bool registry = true, int backup_result = 0) {
        core->DB_WaitForSaves();
        fake::Reset();
        core->mDeviceList.clear();
        core->mReverseDeviceList.clear();
        client = std::make_unique<PXMBackupRestore>();
        client->Initialize(registry ? core : nullptr);
        fake::ClearJournal();
        fake::ClearLogs();
        if (devices) {
            Store("One", "AA:BB:CC:DD:EE:01", "", "", 0);
            Store("Two", "", "AA:BB:CC:DD:EE:02", "", 1);
        }
        if (backup_result != 0) {
            fake::QueueResult("bnr_backup", backup_result);
        }
    }
    void Store(const char* name, const char* bt, const char* wifi, const char* p2p, int keyType) {
        pxm_core_device_s d = unit::Device(name, bt, wifi, p2p, 1);
        d.keyType = keyType;
        d.devtype = 3;
        d.devicon = 4;
        d.tvInitMirroringSupport = d.isNoUX = d.isUXAlways = 1;
        d.accessTime = kTime;
        d.updated = 9;
        snprintf(d.zel_id, sizeof(d.zel_id), "zel");
        snprintf(d.mirroring_Id, sizeof(d.mirroring_Id), "mirror");
        core->mDeviceList.push_back(d);
    }
    // The one payload sent, with this client's id, as its keys.
    std::string SentKeys() {
        std::vector<fake::Call> calls = fake::Calls("bnr_backup");
        EXPECT_EQ(1u, calls.size());
        if (calls.size() != 1) {
            return "(not one)";
        }
        EXPECT_EQ(kClientId, calls[0].args.at(0));
        EXPECT_EQ("(null)", calls[0].args.at(2));
        return Keys(calls[0].args.at(1));
    }

    CPXMCore* core = CPXMCore::GetInstance();
    std::unique_ptr<PXMBackupRestore> client;
};

TEST_F(BackupPayload, EachEntryIsKeyedByItsKeyTypeAndRestoresToTheRecordWithoutIds) {
    Prepare(false);
    Store("Bt", "AA:BB:CC:DD:EE:01", "AA:BB:CC:DD:EE:02", "", 0);
    Store("Wifi", "", "aa:bb:cc:dd:ee:ff", "", 1);
    core->mDeviceList.back().devstatus = 0;
    Store("P2p", "", "", "AA-BB-CC-DD-EE-03", 2);
    Store("NoKey", "AA:BB:CC:DD:EE:04", "", "", -1);
    Store("OddKey", "AA:BB:CC:DD:EE:05", "", "", 3);
    Store("EmptyKey", "AA:BB:CC:DD:EE:06", "", "", 1);
    // The reverse list is never backed up.
    core->mReverseDeviceList.push_back(unit::Device("Reverse", "AA:BB:CC:DD:EE:07"));

    std::string text;
    ASSERT_TRUE(client->AssembleCompleteData(text));
    EXPECT_EQ("AABBCCDDEE01 aabbccddeeff AA-BB-CC-DD-EE-03 Error Error ", Keys(text));
    for (const Json::Value& entry : unit::ParseJson(text)) {
        SCOPED_TRACE(entry["item_data"]["devname"].asString());
        EXPECT_EQ("item_data key timestamp", Join(entry.getMemberNames()));
        EXPECT_TRUE(entry["timestamp"].isInt64());
        EXPECT_EQ(static_cast<Json::Int64>(kTime), entry["timestamp"].asInt64());
        EXPECT_EQ(
            "accessTime bt_mac devicon devname devstatus devtype isNoUX isUXAlways keyType "
            "p2p_mac tvInitMirroringSupport wifi_mac",
            Join(entry["item_data"].getMemberNames()));
    }

    // What was sent comes back from a restore, wrapped as the service returns it, field for
    // field but for the two identifiers a backup leaves out (saved as the placeholder), with
    // the time and the silent flags a restore sets. A device already known takes the restored
    // fields and verdict but keeps its mirroring flag; allowed devices enter the wake-up tables,
    // denied ones do not. A restore neither asks the user nor backs up.
    core->mDeviceList = {unit::Device("Known", "AA:BB:CC:DD:EE:01")};
    core->mReverseDeviceList.clear();
    fake::ClearJournal();
    fake::SetRealtime(1800000000, 0);
    std::string wrapped = "{\"list\": " + text + "}";
    bnr_resp_data_s resp{&wrapped[0], static_cast<int>(wrapped.size())};
    PXMBackupRestore::m_BnrCallback(BNR_RESPONSE_RESTORE_DATA, &resp, client.get());
    EXPECT_EQ("report_success", ServiceCalls());
    EXPECT_EQ(0u, fake::CallCount("aul_launch_app"));
    EXPECT_EQ(Names{"aa:bb:cc:dd:ee:ff"}, fake::WakerTable());
    EXPECT_TRUE(fake::HeadlessTable().empty());
    core->DB_WaitForSaves();
    EXPECT_EQ(
        "Bt|AA:BB:CC:DD:EE:01|AA:BB:CC:DD:EE:02|0|0|0|3|4|1|0|1|0|1800000000000|0|0|0\n"
        "Wifi|0|aa:bb:cc:dd:ee:ff|0|0|0|3|4|0|1|1|0|1800000000000|1|1|0\n"
        "P2p|0|0|AA-BB-CC-DD-EE-03|0|0|3|4|1|1|1|0|1800000000000|0|2|0\n"
        "NoKey|AA:BB:CC:DD:EE:04|0|0|0|0|3|4|1|1|1|0|1800000000000|0|0|0\n"
        "OddKey|AA:BB:CC:DD:EE:05|0|0|0|0|3|4|1|1|1|0|1800000000000|0|3|0\n"
        "EmptyKey|AA:BB:CC:DD:EE:06|0|0|0|0|3|4|1|1|1|0|1800000000000|0|1|0",
        unit::Texts(core->mDeviceList));
    EXPECT_EQ(6u,
              unit::ParseJson(fake::SecureItem(PXM_STORAGE_ITEM).value_or("").substr(2)).size());
}

// What Backup sends for each shape of the list, each record argument and each kind, and
// that a refused or unconnected backup is still attempted, disconnected and only logged.
// The full backup the service asks for through its settings key serves this client only.
TEST_F(BackupPayload, BackupSendsTheWholeListOrItsEmptyForms) {
    const std::string kTwo = "AABBCCDDEE01 AABBCCDDEE02";
    const struct {
        const char* what;
        bool devices, registry, record;
        OP_TYPE op;
        int init_result, backup_result;
        std::string sent;
        size_t data_lines;
    } rows[] = {
        {"change", true, true, true, OP_ADD_OR_CHANGE, 0, 0, kTwo, 1},
        {"removal of one", true, true, true, OP_REMOVE, 0, 0, kTwo, 2},
        {"removal of the last", false, true, true, OP_REMOVE, 0, 0, "null", 2},
        {"remove-all", false, true, false, OP_REMOVE, 0, 0, "[]", 2},
        {"remove-all, list not yet empty", true, true, false, OP_REMOVE, 0, 0, "[]", 2},
        {"no record for a change", true, true, false, OP_ADD_OR_CHANGE, 0, 0, "", 1},
        {"no registry", true, false, true, OP_ADD_OR_CHANGE, 0, 0, "", 1},
        {"refused", true, true, true, OP_ADD_OR_CHANGE, 0, -1, kTwo, 1},
        {"not connected", true, true, true, OP_ADD_OR_CHANGE, -107, 0, kTwo, 1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        Prepare(row.devices, row.registry, row.backup_result);
        if (row.init_result != 0) {
            fake::QueueResult("bnr_init", row.init_result);
        }
        pxm_core_device_s dev = unit::Device("Gone", "AA:BB:CC:DD:EE:09");

        EXPECT_EQ(row.backup_result == 0, client->Backup(row.record ? &dev : nullptr, row.op));

        EXPECT_EQ(row.init_result != 0 ? "init backup deinit" : kConnectBackupDisconnect,
                  ServiceCalls());
        EXPECT_EQ(row.sent, SentKeys());
        EXPECT_EQ(row.data_lines, fake::CountLogs("> backup data["));
        EXPECT_EQ(row.record && row.registry, fake::HasLog("Changed Data: "));
        EXPECT_EQ(row.backup_result == 0, unit::LogsInOrder({"backup data[", "BnrDeinit(",
                                                             "Backup requested successfully."}));
    }

    const struct {
        bool devices, registry;
        int backup_result;
        std::string sent;
    } requested[] = {{true, true, 0, kTwo},
                     {false, true, 0, "null"},
                     {true, false, 0, "[]"},
                     {true, true, -5, kTwo}};
    for (const auto& row : requested) {
        SCOPED_TRACE(row.sent + " " + std::to_string(row.backup_result));
        Prepare(row.devices, row.registry, row.backup_result);
        fake::ChangeStr("memory/bnr/backupcid", kClientId);
        EXPECT_EQ(kConnectBackupDisconnect, ServiceCalls());
        EXPECT_EQ(row.sent, SentKeys());
        std::string outcome =
            row.backup_result != 0 ? "bnr_backup err[-5]" : "Backup requested successfully.";
        EXPECT_TRUE(fake::HasLog(outcome, row.backup_result != 0 ? DLOG_ERROR : DLOG_INFO));
        EXPECT_TRUE(unit::LogsInOrder({outcome, "pxmBackupRestore: BnrDeinit("}));
    }
}

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

using Restore = BackupPayload;

// Every failure reports failure to the service and keeps what came before it.
TEST_F(Restore, FailuresAreReportedAndKeepTheDevicesBeforeTheBadEntry) {
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
    // A new device would be asked about, were the restore not to forbid it.
    core->m_nAccessNoti = 1;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text.substr(0, 60));
        Prepare(false);
        ASSERT_TRUE(client->BnrInit());
        fake::ClearJournal();

        fake::DeliverBnrResponse(102, row.text == "(null)" ? nullptr : row.text.c_str());

        EXPECT_EQ(row.kept, core->mDeviceList.size());
        EXPECT_EQ(std::vector<std::string>{kClientId}, unit::FirstArgs("bnr_report_failure"));
        EXPECT_EQ(0u, fake::CallCount("bnr_report_success"));
        EXPECT_TRUE(fake::HasLog(row.log, DLOG_ERROR)) << row.log;
        EXPECT_TRUE(unit::LogsInOrder({row.log, "m_Restore fail", "response came. Finish app"}));
        EXPECT_TRUE(unit::LockIsFree(core->mPXMLock));
    }
}

// ---- which bus events announce and send the list -----------------------------------------

using handler_bus::kGet;
using handler_bus::kSet;
using handler_bus::MacInd;
using handler_bus::MacIndValue;

GVariant* Ask(const char* name, const char* bt, int status, int no_ux = 1) {
    handler_bus::Request r;
    r.name = name;
    r.bt = bt;
    r.status = status;
    r.no_ux = no_ux;
    return r.Variant();
}

using BackupEvents = handler_bus::HandlerTest;

// Each step as the client sees it: the signal, if any, and the backup sent after it.
TEST_F(BackupEvents, EveryChangeOfTheNormalListIsAnnouncedAndSentAsItStandsAfterTheChange) {
    Start();
    const char* const kA = "AA:BB:CC:DD:EE:01";
    const char* const kB = "AA:BB:CC:DD:EE:02";
    const std::string kBoth = "AABBCCDDEE01 AABBCCDDEE02";
    // An empty address goes out as the placeholder.
    const std::string kA0 = "('AA:BB:CC:DD:EE:01', '0', '0', 0)";
    const std::string kB0 = "('AA:BB:CC:DD:EE:02', '0', '0', 0)";
    const std::string kA1 = "('AA:BB:CC:DD:EE:01', '0', '0', 1)";
    // sent: the keys of the list that was sent, "-" for none.
    const struct {
        const char* method;
        GVariant* args;
        std::string sent, signal;
    } steps[] = {
        {"pxm_request_access", Ask("Alpha", kA, 0), "AABBCCDDEE01", kA0},
        // The same device again changes nothing worth a signal.
        {"pxm_request_access", Ask("Alpha", kA, 0), "AABBCCDDEE01", ""},
        // The reverse list is decided, but never announced.
        {"pxm_request_access_reverse", Ask("Rev", kB, 0), "-", ""},
        {"pxm_request_access", Ask("Beta", kB, 0, 0), "-", ""},  // the prompt is launched
        {"pxm_feedback_ux", Ask("Beta", kB, 2, 0), "-", "('AA:BB:CC:DD:EE:02', '0', '0', 2)"},
        {"pxm_feedback_ux", Ask("Beta", kB, 0, 0), kBoth, kB0},
        {"pxm_set_status", MacIndValue(kA, 1, 1), kBoth, kA1},
        {"pxm_set_status", MacIndValue(kA, 1, 1), "-", ""},
        {"pxm_set_tv_init_mirroring_status", MacIndValue(kA, 1, 1), "-", kA1},
        {"pxm_remove_device", MacInd(kB, 1), "AABBCCDDEE01", "('AA:BB:CC:DD:EE:02', '0', '0', 3)"},
        {"pxm_remove_device", MacInd(kB, 1), "-", ""},
        {"pxm_remove_device_reverse", MacInd(kB, 1), "-", ""},
        {"pxm_remove_all", nullptr, "[]", "('0', '0', '0', 4)"},
        {"pxm_remove_all_reverse", nullptr, "-", ""},
    };
    int n = 0;
    for (const auto& step : steps) {
        SCOPED_TRACE(std::to_string(n++) + " " + step.method);
        fake::ClearJournal();
        fake::ClearLogs();
        client.events.clear();
        const std::string method = step.method;
        client.Call(method == "pxm_feedback_ux" ? PXM_DBUS_UX_INTERFACE : kSet, step.method,
                    step.args);
        const std::string name = method == "pxm_set_tv_init_mirroring_status"
                                     ? PXM_SIGNAL_TV_INIT_MIRRORING_CHANGED
                                     : PXM_SIGNAL_STATUS_CHANGED;
        EXPECT_EQ(step.signal.empty() ? "" : "signal " + name + " " + step.signal + "\n",
                  client.Heard("signal"));
        EXPECT_FALSE(core->m_bNoDataChanged) << "the flag is spent by the call that read it";
        Names sent;
        for (const fake::Call& call : fake::Calls("bnr_backup")) {
            sent.push_back(Keys(call.args.at(1)));
        }
        EXPECT_EQ(step.sent == "-" ? Names{} : Names{step.sent}, sent);
        // Backups come after the change has been announced.
        long signal = fake::FindLog("[NOTI] DEVICE");
        if (!sent.empty() && signal >= 0) {
            EXPECT_LT(signal, fake::FindLog("[DBusServer] Backup called. "));
        }
    }
    // A reverse request that asks the user is answered so, but nobody waits for the prompt.
    EXPECT_EQ("(2,)", client.Call(kSet, "pxm_request_access_reverse", Ask("Rev", kB, 0, 0)));
    EXPECT_EQ(0u, server->m_nUxTimerId);
    EXPECT_EQ(0, server->m_UxPendingDevice.bt_mac[0]);
}

// A restore arrives on the backup service's own thread while bus requests are handled on the
// main loop: both change the normal list at once. Nothing may be lost or duplicated, the
// list lock must end free, every backup sent meanwhile must be a whole list, and the last
// save must hold the final list. Run under the thread sanitizer, this is the race check.
using RestoreThreads = handler_bus::HandlerTest;

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
