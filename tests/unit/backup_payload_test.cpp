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
// Beyond 32 bits, so that a narrowed time would show.
const uint64_t kTime = 1700000000123ULL;

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

std::string MemberNames(const Json::Value& object) {
    std::string names;
    for (const std::string& name : object.getMemberNames()) {
        names += (names.empty() ? "" : " ") + name;
    }
    return names;
}

std::vector<std::string> Keys(const Json::Value& list) {
    std::vector<std::string> keys;
    for (const Json::Value& entry : list) {
        keys.push_back(entry["key"].asString());
    }
    return keys;
}

class BackupPayload : public ::testing::Test {
protected:
    void SetUp() override { Fresh(); }
    void TearDown() override { client->m_UnRegisterBnrVconfs(); }

    // A clean platform, empty lists and a client that has the registry.
    void Fresh() {
        core->DB_WaitForSaves();
        fake::Reset();
        core->mDeviceList.clear();
        core->mReverseDeviceList.clear();
        client = std::make_unique<PXMBackupRestore>();
        client->Initialize(core);
        fake::ClearJournal();
        fake::ClearLogs();
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
        d.dy_type = 0;
        snprintf(d.zel_id, sizeof(d.zel_id), "zel");
        snprintf(d.mirroring_Id, sizeof(d.mirroring_Id), "mirror");
        core->mDeviceList.push_back(d);
    }
    // A fresh start with two stored devices or none, the registry attached or not, and the
    // next bnr_backup scripted to answer backup_result.
    void Prepare(bool devices, bool registry, int backup_result) {
        Fresh();
        if (devices) {
            Store("One", "AA:BB:CC:DD:EE:01", "", "", 0);
            Store("Two", "", "AA:BB:CC:DD:EE:02", "", 1);
        }
        client->m_pPXMCore = registry ? core : nullptr;
        if (backup_result != 0) {
            fake::QueueResult("bnr_backup", backup_result);
        }
    }
    // The one payload sent with this client's id: `expected`, or (nullptr) the two devices.
    std::string ExpectOneSent(const char* expected) {
        EXPECT_EQ(1u, fake::CallCount("bnr_backup"));
        std::vector<fake::Call> calls = fake::Calls("bnr_backup");
        if (calls.empty()) {
            return "";
        }
        const std::vector<std::string>& args = calls[0].args;
        EXPECT_EQ(kClientId, args.at(0));
        EXPECT_EQ("(null)", args.at(2));
        if (expected != nullptr) {
            EXPECT_EQ(expected, args.at(1));
        } else {
            EXPECT_EQ((std::vector<std::string>{"AABBCCDDEE01", "AABBCCDDEE02"}),
                      Keys(unit::ParseJson(args.at(1))));
        }
        return args.at(1);
    }

    CPXMCore* core = CPXMCore::GetInstance();
    std::unique_ptr<PXMBackupRestore> client;
};

TEST_F(BackupPayload, EachEntryIsKeyedByItsKeyTypeAndCarriesTheRecordWithoutIds) {
    struct Row {
        const char* name;
        const char* bt;
        const char* wifi;
        const char* p2p;
        int keyType;
        const char* key;
    };
    const Row rows[] = {
        {"Bt", "AA:BB:CC:DD:EE:01", "AA:BB:CC:DD:EE:02", "", 0, "AABBCCDDEE01"},
        {"Wifi", "", "aa:bb:cc:dd:ee:ff", "", 1, "aabbccddeeff"},
        {"P2p", "", "", "AA-BB-CC-DD-EE-03", 2, "AA-BB-CC-DD-EE-03"},
        {"NoKey", "AA:BB:CC:DD:EE:04", "", "", -1, "Error"},
        {"OddKey", "AA:BB:CC:DD:EE:05", "", "", 3, "Error"},
        {"EmptyKey", "AA:BB:CC:DD:EE:06", "", "", 1, ""},
    };
    for (const Row& row : rows) {
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
        EXPECT_EQ("item_data key timestamp", MemberNames(entry));
        EXPECT_EQ(rows[i].key, entry["key"].asString());
        EXPECT_TRUE(entry["timestamp"].isInt64());
        EXPECT_EQ(static_cast<Json::Int64>(kTime), entry["timestamp"].asInt64());
        EXPECT_EQ(
            "accessTime bt_mac devicon devname devstatus devtype isNoUX isUXAlways keyType "
            "p2p_mac tvInitMirroringSupport wifi_mac",
            MemberNames(entry["item_data"]));
        EXPECT_EQ(rows[i].name, entry["item_data"]["devname"].asString());
    }
    EXPECT_EQ(fake::FindLog("pxmBackupRestore: AssembleCompleteData("), fake::FindLog("> START"));
    EXPECT_TRUE(
        unit::LogsInOrder({"> START", "[DBusServer] Get Device List Size : [6]",
                           "[DBusServer] Device Name [Bt] status [1] "
                           "TvInitMirroringSupport [1] iIsNoUX[1] and iIsUXAlways[1]",
                           "[DBusServer] Device Name [EmptyKey]", "Complete Data: [", "END"}));

    // The changed entry of one device is assembled in the same form and only logged.
    std::string complete;
    std::string changed;
    client->AssembleBackupData(complete, changed, &core->mDeviceList[1]);
    EXPECT_EQ(text, complete);
    Json::Value entry = unit::ParseJson(changed);
    EXPECT_EQ(list[1], entry);
    EXPECT_TRUE(fake::HasLog("[DBusServer] AssembleBackupData called. ", DLOG_INFO, "PXM_LOG"));
    EXPECT_TRUE(fake::HasLog("Changed Data: {", DLOG_INFO, "PXM_LOG"));
    EXPECT_EQ(0u, fake::CallCount("bnr_backup"));
}

// What Backup sends for each shape of the list, each record argument and each kind, and
// that a refused or unconnected backup is still attempted, disconnected and only logged.
TEST_F(BackupPayload, BackupSendsTheWholeListOrItsEmptyForms) {
    struct Row {
        const char* what;
        bool devices;
        bool registry;
        bool record;
        OP_TYPE op;
        int init_result;
        int backup_result;
        const char* sent;  // nullptr: the two stored devices
        int data_lines;
    };
    const Row rows[] = {
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
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        Prepare(row.devices, row.registry, row.backup_result);
        if (row.init_result != 0) {
            fake::QueueResult("bnr_init", row.init_result);
        }
        pxm_core_device_s dev = unit::Device("Gone", "AA:BB:CC:DD:EE:09");

        bool accepted = client->Backup(row.record ? &dev : nullptr, row.op);

        EXPECT_EQ(row.backup_result == 0, accepted);
        std::vector<std::string> expected_calls = kConnectBackupDisconnect;
        if (row.init_result != 0) {
            expected_calls = {"bnr_init", "bnr_backup", "bnr_deinit"};
        }
        EXPECT_EQ(expected_calls, ServiceCalls());
        std::string sent = ExpectOneSent(row.sent);
        EXPECT_EQ(static_cast<std::size_t>(row.data_lines), fake::CountLogs("> backup data["));
        EXPECT_TRUE(fake::HasLog("backup data[" + sent + "]", DLOG_INFO, "PXM_LOG"));
        EXPECT_EQ(row.record && row.registry, fake::HasLog("Changed Data: "));
        EXPECT_EQ(row.record && !row.registry, fake::HasLog("PXM core is not initialized"));
        if (row.backup_result != 0) {
            EXPECT_TRUE(fake::HasLog("bnr_backup error [-1]", DLOG_INFO, "PXM_LOG"));
            EXPECT_FALSE(fake::HasLog("Backup requested successfully."));
        } else {
            EXPECT_TRUE(unit::LogsInOrder({"[DBusServer] Backup called. ", "backup data[",
                                           "pxmBackupRestore: BnrDeinit(",
                                           "Backup requested successfully."}));
        }
    }
}

// The full backup the service asks for through its settings key, for this client only.
TEST_F(BackupPayload, FullBackupOnRequestSendsTheListOrAnEmptyArray) {
    struct Row {
        const char* what;
        bool devices;
        bool registry;
        int backup_result;
        const char* sent;  // nullptr: the two stored devices
    };
    const Row rows[] = {
        {"devices", true, true, 0, nullptr},
        {"empty list", false, true, 0, "null"},
        {"no registry yet", true, false, 0, "[]"},
        {"refused", true, true, -5, nullptr},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        Prepare(row.devices, row.registry, row.backup_result);
        fake::ChangeStr("memory/bnr/backupcid", "SomeoneElse");
        EXPECT_TRUE(ServiceCalls().empty());

        fake::ChangeStr("memory/bnr/backupcid", kClientId);

        EXPECT_EQ(kConnectBackupDisconnect, ServiceCalls());
        ExpectOneSent(row.sent);
        EXPECT_EQ(!row.registry, fake::HasLog("Empty device list", DLOG_INFO, "PXM_LOG"));
        std::string outcome =
            row.backup_result != 0 ? "bnr_backup err[-5]" : "Backup requested successfully.";
        EXPECT_TRUE(fake::HasLog(outcome, row.backup_result != 0 ? DLOG_ERROR : DLOG_INFO));
        // The outcome is logged before the disconnect, END after it.
        EXPECT_TRUE(unit::LogsInOrder({"pxmBackupRestore: m_ProcessBackupAll(", outcome,
                                       "pxmBackupRestore: BnrDeinit(",
                                       "pxmBackupRestore: m_ProcessBackupAll("}));
        long end = fake::FindLog("pxmBackupRestore: m_ProcessBackupAll(",
                                 fake::FindLog("pxmBackupRestore: BnrDeinit("));
        ASSERT_GE(end, 0);
        EXPECT_NE(std::string::npos, fake::Logs()[end].text.find("> END"));
    }
}

// ---- which bus events send the list ----------------------------------------------------

using handler_bus::kSet;
using handler_bus::MacInd;
using handler_bus::MacIndValue;
using handler_bus::Request;
const char* const kUx = PXM_DBUS_UX_INTERFACE;

Request Device(const char* name, const char* bt, int status, int no_ux = 1) {
    Request r;
    r.name = name;
    r.bt = bt;
    r.status = status;
    r.no_ux = no_ux;
    return r;
}

class BackupEvents : public handler_bus::HandlerTest {};

TEST_F(BackupEvents, EveryChangeOfTheNormalListSendsItAsItStandsAfterTheChange) {
    Start();
    const char* const kA = "AA:BB:CC:DD:EE:01";
    const char* const kB = "AA:BB:CC:DD:EE:02";
    struct Step {
        const char* what;
        const char* interface;
        const char* method;
        GVariant* args;
        int backups;                    // 0 or 1
        int data_lines;                 // 1 for a change, 2 for a removal
        const char* changed;            // text of the logged changed entry, or nullptr
        std::vector<std::string> keys;  // the list that was sent
    };
    Step steps[] = {
        {"forced allow",
         kSet,
         "pxm_request_access",
         Device("Alpha", kA, 0).Variant(),
         1,
         1,
         "\"devname\" : \"Alpha\"",
         {"AABBCCDDEE01"}},
        {"the same again, nothing changed",
         kSet,
         "pxm_request_access",
         Device("Alpha", kA, 0).Variant(),
         1,
         1,
         "\"devname\" : \"Alpha\"",
         {"AABBCCDDEE01"}},
        {"reverse list",
         kSet,
         "pxm_request_access_reverse",
         Device("Rev", kB, 0).Variant(),
         0,
         0,
         nullptr,
         {}},
        {"undecided: the prompt is launched",
         kSet,
         "pxm_request_access",
         Device("Beta", kB, 0, 0).Variant(),
         0,
         0,
         nullptr,
         {}},
        {"prompt answers undecided",
         kUx,
         "pxm_feedback_ux",
         Device("Beta", kB, 2, 0).Variant(),
         0,
         0,
         nullptr,
         {}},
        {"prompt answers allow",
         kUx,
         "pxm_feedback_ux",
         Device("Beta", kB, 0, 0).Variant(),
         1,
         1,
         "\"devname\" : \"Beta\"",
         {"AABBCCDDEE01", "AABBCCDDEE02"}},
        // The set-status copy has neither name nor status.
        {"status changed",
         kSet,
         "pxm_set_status",
         MacIndValue(kA, 1, 1),
         1,
         1,
         "\"devname\" : \"\"",
         {"AABBCCDDEE01", "AABBCCDDEE02"}},
        {"status unchanged", kSet, "pxm_set_status", MacIndValue(kA, 1, 1), 0, 0, nullptr, {}},
        {"mirroring flag",
         kSet,
         "pxm_set_tv_init_mirroring_status",
         MacIndValue(kA, 1, 1),
         0,
         0,
         nullptr,
         {}},
        {"removal",
         kSet,
         "pxm_remove_device",
         MacInd(kB, 1),
         1,
         2,
         "\"key\" : \"AABBCCDDEE02\"",
         {"AABBCCDDEE01"}},
        {"removal of an unknown device",
         kSet,
         "pxm_remove_device",
         MacInd(kB, 1),
         0,
         0,
         nullptr,
         {}},
        {"reverse removal", kSet, "pxm_remove_device_reverse", MacInd(kB, 1), 0, 0, nullptr, {}},
        {"remove-all", kSet, "pxm_remove_all", nullptr, 1, 2, nullptr, {}},
        {"reverse remove-all", kSet, "pxm_remove_all_reverse", nullptr, 0, 0, nullptr, {}},
    };
    for (Step& step : steps) {
        SCOPED_TRACE(step.what);
        fake::ClearJournal();
        fake::ClearLogs();
        client.Call(step.interface, step.method, step.args);
        client.Flush();
        ASSERT_EQ(static_cast<std::size_t>(step.backups), fake::CallCount("bnr_backup"));
        EXPECT_EQ(static_cast<std::size_t>(step.data_lines), fake::CountLogs("> backup data["));
        long changed = fake::FindLog("Changed Data: ");
        if (step.changed != nullptr) {
            ASSERT_GE(changed, 0);
            EXPECT_NE(std::string::npos, fake::Logs()[changed].text.find(step.changed));
        } else {
            EXPECT_EQ(-1, changed);
        }
        if (step.backups == 0) {
            continue;
        }
        std::string sent = fake::Calls("bnr_backup")[0].args.at(1);
        if (std::string(step.method) == "pxm_remove_all") {
            EXPECT_EQ("[]", sent);
        } else {
            EXPECT_EQ(step.keys, Keys(unit::ParseJson(sent)));
        }
        // Backups come after the change has been announced.
        long signal = fake::FindLog("[NOTI] DEVICE");
        if (signal >= 0) {
            EXPECT_LT(signal, fake::FindLog("[DBusServer] Backup called. "));
        }
    }
}

}  // namespace
