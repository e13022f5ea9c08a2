// The JSON form of both device lists: one array of {"item_data": {...}} objects, the normal
// list first, then the reverse list; "dy_type" alone tells them apart when read back.
#include <json/json.h>

#include <exception>
#include <string>

#include "CPXMCore.h"
#include "bounded_copy.h"
#include "device_json.h"
#include "pxm_log.h"

namespace {

using pxm_text::FieldString;

// Every member is assigned each time, so the one reused item carries nothing of the record
// before it.
void FillItem(Json::Value& item, const pxm_core_device_s& dev) {
    pxm_json::WriteSharedMembers(item, dev);
    item["zel_id"] = FieldString(dev.zel_id);
    item["mirroring_Id"] = FieldString(dev.mirroring_Id);
    item["dy_type"] = Json::Value(static_cast<Json::Int>(dev.dy_type));
}

void LogItem(const pxm_core_device_s& dev) {
    CORE_LOG_FN("Util_GetJsonStringForDeviceList", DLOG_INFO,
                "[DBusServer] Device Name [%s] status [%d] TvInitMirroringSupport [%d] "
                "iIsNoUX[%d] and iIsUXAlways[%d]",
                FieldString(dev.devname).c_str(), dev.devstatus, dev.tvInitMirroringSupport,
                dev.isNoUX, dev.isUXAlways);
}

// A missing or null member reads as the placeholder "0", like an absent address.
template <std::size_t N>
void ReadText(char (&field)[N], const Json::Value& item, const char* key) {
    const Json::Value& member = item[key];
    pxm_text::CopyField(field, member.isNull() ? "0" : member.asCString());
}

}  // namespace

bool CPXMCore::Util_GetJsonStringForDeviceList(std::string& out) {
    Json::StreamWriterBuilder builder;
    Json::Value root(Json::nullValue);
    Json::Value item(Json::nullValue);

    CORE_LOGI("Device count is [%d]", static_cast<int>(mDeviceList.size()));
    Json::ArrayIndex index = 0;
    for (const pxm_core_device_s& dev : mDeviceList) {
        FillItem(item, dev);
        root[index++]["item_data"] = item;
        LogItem(dev);
    }

    CORE_LOGI("Reverse Device count is [%d]", static_cast<int>(mReverseDeviceList.size()));
    for (const pxm_core_device_s& dev : mReverseDeviceList) {
        FillItem(item, dev);
        root[index++]["item_data"] = item;
        LogItem(dev);
    }

    out = Json::writeString(builder, root);
    CORE_LOGI("Complete Data: %s", out.c_str());
    CORE_LOGI("END");
    return true;
}

void CPXMCore::Util_GetDeviceListForJsonString(const std::string& text) {
    CORE_LOGI("json data [%s]", text.c_str());

    Json::Value root;
    std::string errors;
    if (!pxm_json::ParseDocument(text.data(), text.data() + text.size(), &root, &errors)) {
        CORE_LOGE("parse json error exception is [%s]", errors.c_str());
        return;
    }

    CORE_LOGI("Size = %d", 0);
    CORE_LOGI("Size = %d", static_cast<int>(root.size()));
    if (!root.isArray() || root.empty()) {
        CORE_LOGE(" Format err ,not Array or Array is empty");
        return;
    }
    CORE_LOGI("Size: [%d] Data: <%s>", static_cast<int>(root.size()), text.c_str());

    // A malformed element ends the walk; the records before it stay in the lists.
    const Json::Value& elements = root;
    try {
        for (Json::ArrayIndex i = 0; i < elements.size(); ++i) {
            const Json::Value& item = elements[i]["item_data"];
            pxm_core_device_s dev{};

            ReadText(dev.devname, item, "devname");
            ReadText(dev.bt_mac, item, "bt_mac");
            ReadText(dev.wifi_mac, item, "wifi_mac");
            ReadText(dev.p2p_mac, item, "p2p_mac");
            ReadText(dev.zel_id, item, "zel_id");
            ReadText(dev.mirroring_Id, item, "mirroring_Id");

            pxm_json::ReadSharedNumbers(item, &dev);
            const Json::Value& dyType = item["dy_type"];
            dev.dy_type = dyType.isNull() ? 0 : dyType.asInt();

            CORE_LOGI(
                "Restore Data[%d] [%s] [%s] [%s] [%s] [%s] [%s] [%d] [%d] [%d] [%d] [%d] [%d] "
                "[%llu] [%d]",
                static_cast<int>(i), dev.devname, dev.bt_mac, dev.wifi_mac, dev.p2p_mac, dev.zel_id,
                dev.mirroring_Id, dev.devtype, dev.devicon, dev.devstatus,
                dev.tvInitMirroringSupport, dev.isNoUX, dev.isUXAlways,
                static_cast<unsigned long long>(dev.accessTime), dev.keyType);

            if (dev.dy_type == 0) {
                mDeviceList.push_back(dev);
            } else {
                mReverseDeviceList.push_back(dev);
            }
        }
    } catch (const Json::Exception& e) {
        CORE_LOGE("parse json err exception is [%s]", e.what());
    } catch (const std::exception& e) {
        CORE_LOGE("parse json err exception is [%s]", e.what());
    }
}
