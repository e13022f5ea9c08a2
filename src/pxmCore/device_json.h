// JSON shared by the stored list and the backup service's payloads: parsing a document, and
// the members of "item_data" both carry (every field but the two ids and the list marker,
// which only the stored list has).
#pragma once

#include <json/json.h>

#include <exception>
#include <memory>
#include <string>

#include "bounded_copy.h"
#include "pxm_types.h"

namespace pxm_json {

// The library's default reader over [begin, end); false with the reader's error text.
inline bool ParseDocument(const char* begin, const char* end, Json::Value* root,
                          std::string* errors) {
    Json::CharReaderBuilder builder;
    try {
        std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
        return reader->parse(begin, end, root, errors);
    } catch (const std::exception& e) {
        // The reader throws instead of failing on input nested deeper than its limit.
        *errors = e.what();
        return false;
    }
}

// Every member is assigned, so a reused item keeps nothing of the record before it.
inline void WriteSharedMembers(Json::Value& item, const pxm_core_device_s& dev) {
    item["devname"] = pxm_text::FieldString(dev.devname);
    item["bt_mac"] = pxm_text::FieldString(dev.bt_mac);
    item["wifi_mac"] = pxm_text::FieldString(dev.wifi_mac);
    item["p2p_mac"] = pxm_text::FieldString(dev.p2p_mac);
    item["devtype"] = Json::Value(static_cast<Json::Int>(dev.devtype));
    item["devicon"] = Json::Value(static_cast<Json::Int>(dev.devicon));
    item["devstatus"] = Json::Value(static_cast<Json::Int>(dev.devstatus));
    item["tvInitMirroringSupport"] =
        Json::Value(static_cast<Json::Int>(dev.tvInitMirroringSupport));
    item["isNoUX"] = Json::Value(static_cast<Json::Int>(dev.isNoUX));
    item["isUXAlways"] = Json::Value(static_cast<Json::Int>(dev.isUXAlways));
    // Written signed, read back unsigned.
    item["accessTime"] = Json::Value(static_cast<Json::Int64>(dev.accessTime));
    item["keyType"] = Json::Value(static_cast<Json::Int>(dev.keyType));
}

// The integer members: a missing one reads as 0, a mistyped one throws the library's
// exception, which the callers catch around their whole walk.
inline void ReadSharedNumbers(const Json::Value& item, pxm_core_device_s* dev) {
    dev->devtype = item["devtype"].asInt();
    dev->devicon = item["devicon"].asInt();
    dev->devstatus = item["devstatus"].asInt();
    dev->tvInitMirroringSupport = item["tvInitMirroringSupport"].asInt();
    dev->isNoUX = item["isNoUX"].asInt();
    dev->isUXAlways = item["isUXAlways"].asInt();
    dev->accessTime = item["accessTime"].asLargestUInt();
    dev->keyType = item["keyType"].asInt();
}

}  // namespace pxm_json
