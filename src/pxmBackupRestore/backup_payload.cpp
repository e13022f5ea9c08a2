// What the backup service receives: the normal list as an array of backup entries, pushed
// after every change of the list and whenever the service asks for a full backup.
#include <json/json.h>

#include <cstdlib>
#include <string>

#include "CPXMCore.h"
#include "PXMBackupRestore.h"
#include "pxmCore/bounded_copy.h"
#include "pxmCore/device_json.h"
#include "pxm_log.h"

namespace {

using pxm_text::FieldString;

// The address that keyType names, without its colons; "Error" when keyType names none.
std::string BackupKey(const pxm_core_device_s& dev) {
    std::string address;
    switch (dev.keyType) {
        case PXM_KEY_BT:
            address = FieldString(dev.bt_mac);
            break;
        case PXM_KEY_WIFI:
            address = FieldString(dev.wifi_mac);
            break;
        case PXM_KEY_P2P:
            address = FieldString(dev.p2p_mac);
            break;
        default:
            return "Error";
    }
    std::string key;
    for (char c : address) {
        if (c != ':') {
            key += c;
        }
    }
    return key;
}

// zel_id, mirroring_Id, dy_type and updated stay out: the service keeps only what a
// restore hands back to the access decision.
Json::Value BackupEntry(const pxm_core_device_s& dev) {
    Json::Value item(Json::objectValue);
    pxm_json::WriteSharedMembers(item, dev);

    Json::Value entry(Json::objectValue);
    entry["key"] = BackupKey(dev);
    entry["timestamp"] = Json::Value(static_cast<Json::Int64>(dev.accessTime));
    entry["item_data"] = item;
    return entry;
}

}  // namespace

bool PXMBackupRestore::Backup(pxm_core_device_s* dev, OP_TYPE op) {
    BNR_LOGI("[DBusServer] %s called. ", __func__);
    std::string complete;
    std::string changed;
    if (dev != nullptr) {
        AssembleBackupData(complete, changed, dev);
    }

    BnrInit();
    BNR_LOGI("backup data[%s]", complete.c_str());
    if (op != OP_ADD_OR_CHANGE) {
        // After a remove-all there is no device to assemble from: the service is told the
        // list is now empty.
        if (dev == nullptr) {
            complete = "[]";
        }
        BNR_LOGI("backup data[%s]", complete.c_str());
    }
    int ret = bnr_backup(PXM_BNR_CLIENT_ID, complete.c_str(), nullptr);
    BnrDeinit();

    if (ret != BNR_ERROR_NONE) {
        BNR_LOGI("bnr_backup error [%d]", ret);
        return false;
    }
    BNR_LOGI("Backup requested successfully.");
    return true;
}

bool PXMBackupRestore::AssembleCompleteData(std::string& out) {
    BNR_LOGI("START");
    if (m_pPXMCore == nullptr) {
        BNR_LOGE("PXM core is not initialized");
        return false;
    }

    int count = 0;
    pxm_core_device_s* devices = nullptr;
    m_pPXMCore->CMD_GetAllDevices(&count, &devices, PXM_SAVE_NORMAL);
    BNR_LOGI("[DBusServer] Get Device List Size : [%d]", count);

    // Stays null without devices: the service is sent the text null, not an empty array.
    Json::Value root(Json::nullValue);
    for (int i = 0; i < count; ++i) {
        const pxm_core_device_s& dev = devices[i];
        root[static_cast<Json::ArrayIndex>(i)] = BackupEntry(dev);
        BNR_LOGI(
            "[DBusServer] Device Name [%s] status [%d] TvInitMirroringSupport [%d] iIsNoUX[%d] "
            "and iIsUXAlways[%d]",
            FieldString(dev.devname).c_str(), dev.devstatus, dev.tvInitMirroringSupport, dev.isNoUX,
            dev.isUXAlways);
    }

    Json::StreamWriterBuilder builder;
    out = Json::writeString(builder, root);
    BNR_LOGI("Complete Data: %s", out.c_str());
    free(devices);
    BNR_LOGI("END");
    return true;
}

void PXMBackupRestore::AssembleBackupData(std::string& complete, std::string& changed,
                                          pxm_core_device_s* dev) {
    BNR_LOGI("[DBusServer] %s called. ", __func__);
    if (m_pPXMCore == nullptr) {
        BNR_LOGE("PXM core is not initialized");
        return;
    }
    AssembleCompleteData(complete);

    // Only logged: the service always receives the whole list.
    Json::StreamWriterBuilder builder;
    changed = Json::writeString(builder, BackupEntry(*dev));
    BNR_LOGI("Changed Data: %s", changed.c_str());
}

void PXMBackupRestore::m_ProcessBackupAll() {
    BNR_LOGI("START");
    std::string text;
    AssembleCompleteData(text);
    if (text.empty()) {
        // Only before start-up hands over the registry.
        BNR_LOGI("Empty device list");
        text = "[]";
    }

    BnrInit();
    int ret = bnr_backup(PXM_BNR_CLIENT_ID, text.c_str(), nullptr);
    if (ret != BNR_ERROR_NONE) {
        BNR_LOGE("bnr_backup err[%d]", ret);
    } else {
        BNR_LOGI("Backup requested successfully.");
    }
    BnrDeinit();
    BNR_LOGI("END");
}
