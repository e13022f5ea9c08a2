// The backup payload: each entry's key and fields, the list as a whole (null when empty,
// "[]" after a remove-all), the two paths that send it, and which bus events send it.
#include <gtest/gtest.h>
#include <json/json.h>

#include <iterator>
#include <memory>
#include <string>
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

std::vector<std::string> ServiceCalls() {
    std::vector<std::string> names;
    for (const auto& call : fake::Calls()) {
        if (call.fn.rfind("bnr_", 0) == 0) {
            names.push_back(call.fn);
        }
    }
    return names;
}

const std::vector<std::string> kConnectBackupDisconnect = {
    "bnr_init",   "bnr_trigger_callback_register",   "bnr_callback_register",
    "bnr_backup", "bnr_trigger_callback_deregister", "bnr_callback_deregister",
    "bnr_deinit"};

std::string Joined(const std::vector<std::string>& words) {
    std::string out;
    for (const std::string& w : words) {
        out += (out.empty() ? "" : " ") + w;
    }
    return out;
}

// The keys of a sent list, space-separated.
std::string Keys(const std::string& sent) {
    std::vector<std::string> keys;
    for (const Json::Value& entry : unit::ParseJson(sent)) {
        keys.push_back(entry["key"].asString());
    }
    return Joined(keys);
}

class BackupPayload : public ::testing::Test {
protected:
    void SetUp() override { Prepare(false, true, 0); }
    void TearDown() override { client->m_UnRegisterBnrVconfs(); }

    // A clean platform, two stored devices or none, a client that has the registry or not,
    // and the next bnr_backup scripted to answer backup_result.
    void Prepare(bool devices, bool registry, int backup_result) {
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
        d.tvInitMirroringSupport = 1;
        d.isNoUX = 1;
        d.isUXAlways = 1;
        d.accessTime = kTime;
        d.updated = 9;
        snprintf(d.zel_id, sizeof(d.zel_id), "zel");
        snprintf(d.mirroring_Id, sizeof(d.mirroring_Id), "mirror");
        core->mDeviceList.push_back(d);
    }
    // The one payload sent with this client's id: `expected`, or (nullptr) the two devices.
    void ExpectOneSent(const char* expected) {
        std::vector<fake::Call> calls = fake::Calls("bnr_backup");
        ASSERT_EQ(1u, calls.size());
        const std::vector<std::string>& args = calls[0].args;
        EXPECT_EQ(kClientId, args.at(0));
        EXPECT_EQ("(null)", args.at(2));
        if (expected != nullptr) {
            EXPECT_EQ(expected, args.at(1));
        } else {
            EXPECT_EQ("AABBCCDDEE01 AABBCCDDEE02", Keys(args.at(1)));
        }
    }

    CPXMCore* core = CPXMCore::GetInstance();
    std::unique_ptr<PXMBackupRestore> client;
};

TEST_F(BackupPayload, EachEntryIsKeyedByItsKeyTypeAndCarriesTheRecordWithoutIds) {
    const struct {
        const char *name, *bt, *wifi, *p2p;
        int keyType;
        const char* key;
    } rows[] = {
        {"Bt", "AA:BB:CC:DD:EE:01", "AA:BB:CC:DD:EE:02", "", 0, "AABBCCDDEE01"},
        {"Wifi", "", "aa:bb:cc:dd:ee:ff", "", 1, "aabbccddeeff"},
        {"P2p", "", "", "AA-BB-CC-DD-EE-03", 2, "AA-BB-CC-DD-EE-03"},
        {"NoKey", "AA:BB:CC:DD:EE:04", "", "", -1, "Error"},
        {"OddKey", "AA:BB:CC:DD:EE:05", "", "", 3, "Error"},
        {"EmptyKey", "AA:BB:CC:DD:EE:06", "", "", 1, ""},
    };
    for (const auto& row : rows) {
        Store(row.name, row.bt, row.wifi, row.p2p, row.keyType);
    }
    // The reverse list is never backed up.
    core->mReverseDeviceList.push_back(unit::Device("Reverse", "AA:BB:CC:DD:EE:07"));

    std::string text;
    ASSERT_TRUE(client->AssembleCompleteData(text));
    Json::Value list = unit::ParseJson(text);
    ASSERT_EQ(std::size(rows), list.size());
    // The values themselves are checked by the round trip through a restore.
    for (Json::ArrayIndex i = 0; i < list.size(); ++i) {
        const Json::Value& entry = list[i];
        SCOPED_TRACE(rows[i].name);
        EXPECT_EQ("item_data key timestamp", Joined(entry.getMemberNames()));
        EXPECT_EQ(rows[i].key, entry["key"].asString());
        EXPECT_TRUE(entry["timestamp"].isInt64());
        EXPECT_EQ(static_cast<Json::Int64>(kTime), entry["timestamp"].asInt64());
        EXPECT_EQ(
            "accessTime bt_mac devicon devname devstatus devtype isNoUX isUXAlways keyType "
            "p2p_mac tvInitMirroringSupport wifi_mac",
            Joined(entry["item_data"].getMemberNames()));
        EXPECT_EQ(rows[i].name, entry["item_data"]["devname"].asString());
    }

    // The changed entry of one device is assembled in the same form and only logged.
    std::string complete, changed;
    client->AssembleBackupData(complete, changed, &core->mDeviceList[1]);
    EXPECT_EQ(text, complete);
    EXPECT_EQ(list[1], unit::ParseJson(changed));
    EXPECT_TRUE(fake::HasLog("Changed Data: {", DLOG_INFO, "PXM_LOG"));
    EXPECT_EQ(0u, fake::CallCount("bnr_backup"));
}

// What Backup sends for each shape of the list, each record argument and each kind, and
// that a refused or unconnected backup is still attempted, disconnected and only logged.
TEST_F(BackupPayload, BackupSendsTheWholeListOrItsEmptyForms) {
    const struct {
        const char* what;
        bool devices, registry, record;
        OP_TYPE op;
        int init_result, backup_result;
        const char* sent;  // nullptr: the two stored devices
        size_t data_lines;
    } rows[] = {
        {"change", true, true, true, OP_ADD_OR_CHANGE, 0, 0, nullptr, 1},
        {"removal of one", true, true, true, OP_REMOVE, 0, 0, nullptr, 2},
        {"removal of the last", false, true, true, OP_REMOVE, 0, 0, "null", 2},
        {"remove-all", false, true, false, OP_REMOVE, 0, 0, "[]", 2},
        {"remove-all, list not yet empty", true, true, false, OP_REMOVE, 0, 0, "[]", 2},
        {"no record for a change", true, true, false, OP_ADD_OR_CHANGE, 0, 0, "", 1},
        {"no registry", true, false, true, OP_ADD_OR_CHANGE, 0, 0, "", 1},
        {"refused", true, true, true, OP_ADD_OR_CHANGE, 0, -1, nullptr, 1},
        {"not connected", true, true, true, OP_ADD_OR_CHANGE, -107, 0, nullptr, 1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        Prepare(row.devices, row.registry, row.backup_result);
        if (row.init_result != 0) {
            fake::QueueResult("bnr_init", row.init_result);
        }
        pxm_core_device_s dev = unit::Device("Gone", "AA:BB:CC:DD:EE:09");

        EXPECT_EQ(row.backup_result == 0, client->Backup(row.record ? &dev : nullptr, row.op));

        const std::vector<std::string> unconnected = {"bnr_init", "bnr_backup", "bnr_deinit"};
        EXPECT_EQ(row.init_result != 0 ? unconnected : kConnectBackupDisconnect, ServiceCalls());
        ExpectOneSent(row.sent);
        EXPECT_EQ(row.data_lines, fake::CountLogs("> backup data["));
        EXPECT_EQ(row.record && row.registry, fake::HasLog("Changed Data: "));
        EXPECT_EQ(row.backup_result == 0, unit::LogsInOrder({"backup data[", "BnrDeinit(",
                                                             "Backup requested successfully."}));
    }
}

// The full backup the service asks for through its settings key, for this client only.
TEST_F(BackupPayload, FullBackupOnRequestSendsTheListOrAnEmptyArray) {
    const struct {
        const char* what;
        bool devices, registry;
        int backup_result;
        const char* sent;  // nullptr: the two stored devices
    } rows[] = {
        {"devices", true, true, 0, nullptr},
        {"empty list", false, true, 0, "null"},
        {"no registry yet", true, false, 0, "[]"},
        {"refused", true, true, -5, nullptr},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        Prepare(row.devices, row.registry, row.backup_result);
        fake::ChangeStr("memory/bnr/backupcid", "SomeoneElse");
        EXPECT_TRUE(ServiceCalls().empty());

        fake::ChangeStr("memory/bnr/backupcid", kClientId);

        EXPECT_EQ(kConnectBackupDisconnect, ServiceCalls());
        ExpectOneSent(row.sent);
        std::string outcome =
            row.backup_result != 0 ? "bnr_backup err[-5]" : "Backup requested successfully.";
        EXPECT_TRUE(fake::HasLog(outcome, row.backup_result != 0 ? DLOG_ERROR : DLOG_INFO));
        EXPECT_TRUE(unit::LogsInOrder({outcome, "pxmBackupRestore: BnrDeinit("}));
    }
}

// ---- which bus events send the list ----------------------------------------------------

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

class BackupEvents : public handler_bus::HandlerTest {};

TEST_F(BackupEvents, EveryChangeOfTheNormalListSendsItAsItStandsAfterTheChange) {
    Start();
    const char* const kA = "AA:BB:CC:DD:EE:01";
    const char* const kB = "AA:BB:CC:DD:EE:02";
    const std::string kBoth = "AABBCCDDEE01 AABBCCDDEE02";
    // sent: the keys of the list that was sent, "-" for none; changed: a text of the logged
    // changed entry ("" for none). The set-status copy has neither name nor status.
    const struct {
        const char* method;
        GVariant* args;
        std::string sent;
        const char* changed;
    } steps[] = {
        {"pxm_request_access", Ask("Alpha", kA, 0), "AABBCCDDEE01", "\"devname\" : \"Alpha\""},
        {"pxm_request_access", Ask("Alpha", kA, 0), "AABBCCDDEE01", "\"devname\" : \"Alpha\""},
        {"pxm_request_access_reverse", Ask("Rev", kB, 0), "-", ""},
        {"pxm_request_access", Ask("Beta", kB, 0, 0), "-", ""},  // the prompt is launched
        {"pxm_feedback_ux", Ask("Beta", kB, 2, 0), "-", ""},
        {"pxm_feedback_ux", Ask("Beta", kB, 0, 0), kBoth, "\"devname\" : \"Beta\""},
        {"pxm_set_status", MacIndValue(kA, 1, 1), kBoth, "\"devname\" : \"\""},
        {"pxm_set_status", MacIndValue(kA, 1, 1), "-", ""},
        {"pxm_set_tv_init_mirroring_status", MacIndValue(kA, 1, 1), "-", ""},
        {"pxm_remove_device", MacInd(kB, 1), "AABBCCDDEE01", "\"key\" : \"AABBCCDDEE02\""},
        {"pxm_remove_device", MacInd(kB, 1), "-", ""},
        {"pxm_remove_device_reverse", MacInd(kB, 1), "-", ""},
        {"pxm_remove_all", nullptr, "[]", ""},
        {"pxm_remove_all_reverse", nullptr, "-", ""},
    };
    int n = 0;
    for (const auto& step : steps) {
        SCOPED_TRACE(std::to_string(n++) + " " + step.method);
        fake::ClearJournal();
        fake::ClearLogs();
        const std::string method = step.method;
        client.Call(method == "pxm_feedback_ux" ? PXM_DBUS_UX_INTERFACE : handler_bus::kSet,
                    step.method, step.args);
        client.Flush();
        std::vector<std::string> sent;
        for (const fake::Call& call : fake::Calls("bnr_backup")) {
            sent.push_back(call.args.at(1));
        }
        ASSERT_EQ(step.sent == "-" ? 0u : 1u, sent.size());
        bool removal = method.find("remove") != std::string::npos;
        EXPECT_EQ(sent.size() * (removal ? 2 : 1), fake::CountLogs("> backup data["));
        long changed = fake::FindLog("Changed Data: ");
        EXPECT_EQ(*step.changed != '\0', changed >= 0);
        if (changed >= 0) {
            EXPECT_NE(std::string::npos, fake::Logs()[changed].text.find(step.changed));
        }
        if (sent.empty()) {
            continue;
        }
        EXPECT_EQ(step.sent, sent[0] == "[]" ? sent[0] : Keys(sent[0]));
        // Backups come after the change has been announced.
        long signal = fake::FindLog("[NOTI] DEVICE");
        if (signal >= 0) {
            EXPECT_LT(signal, fake::FindLog("[DBusServer] Backup called. "));
        }
    }
}

}  // namespace
