// Restore: the service hands back {"list": [backup entries]} and every device in it goes
// through the access decision again, with its stored verdict and without a prompt.
#include <json/json.h>

#include <cstring>
#include <exception>
#include <string>

#include "CPXMCore.h"
#include "PXMBackupRestore.h"
#include "pxmCore/bounded_copy.h"
#include "pxmCore/device_json.h"
#include "pxm_log.h"

namespace {

// A missing or non-text member is a type error of the library, as for a malformed entry.
template <std::size_t N>
void ReadText(char (&field)[N], const Json::Value& item, const char* key) {
    pxm_text::CopyField(field, item[key].asCString());
}

// The fields of one entry's "item_data", read into a cleared record so that nothing of the
// entry before it carries over.
pxm_core_device_s ReadEntry(const Json::Value& entry) {
    const Json::Value& item = entry["item_data"];
    pxm_core_device_s dev{};
    ReadText(dev.devname, item, "devname");
    ReadText(dev.bt_mac, item, "bt_mac");
    ReadText(dev.wifi_mac, item, "wifi_mac");
    ReadText(dev.p2p_mac, item, "p2p_mac");
    pxm_json::ReadSharedNumbers(item, &dev);
    return dev;
}

}  // namespace

// Runs on the service's thread, next to the bus handlers on the main loop: the registry's
// own lock keeps the lists consistent, and the restore touches no state of this client.
bool PXMBackupRestore::ParseRestoreData(const char* text) {
    // A response without data reads as empty text, which fails to parse.
    const char* input = text != nullptr ? text : "";
    BNR_LOGI("Device json data [%s]", input);

    Json::Value root;
    std::string errors;
    if (!pxm_json::ParseDocument(input, input + strlen(input), &root, &errors)) {
        BNR_LOGE("parse json error exception is [%s] ", errors.c_str());
        return false;
    }

    // Only an object has members; a bare array (what a backup sends) has no "list".
    Json::Value list = root.isObject() ? root["list"] : Json::Value(Json::nullValue);
    if (!list.isArray() || list.empty()) {
        BNR_LOGE(" Format err ,not Array or Array is empty");
        return false;
    }
    BNR_LOGI("Data: <%s>", input);

    try {
        for (Json::ArrayIndex i = 0; i < list.size(); ++i) {
            pxm_core_device_s dev = ReadEntry(list[i]);
            BNR_LOGI(
                "Restore Data[%d] [%s] [%s] [%s] [%s] [%d] [%d] [%d] [%d] [%d] [%d] [%llu] [%d]",
                static_cast<int>(i), dev.devname, dev.bt_mac, dev.wifi_mac, dev.p2p_mac,
                dev.devtype, dev.devicon, dev.devstatus, dev.tvInitMirroringSupport, dev.isNoUX,
                dev.isUXAlways, static_cast<unsigned long long>(dev.accessTime), dev.keyType);
            // The stored verdict is taken as it is: nobody is asked again.
            dev.isNoUX = 1;
            dev.isUXAlways = 0;
            if (m_pPXMCore == nullptr) {
                BNR_LOGE("m_pPXMCore null");
                return false;
            }
            // Not transactional: devices handed over before a bad entry stay stored.
            m_pPXMCore->DB_WaitForSaveRoom();
            m_pPXMCore->CMD_RequestAccess(&dev, PXM_SAVE_NORMAL);
        }
    } catch (const std::exception& e) {
        BNR_LOGE(" parse json err exception is [%s] ", e.what());
        return false;
    }
    return true;
}
