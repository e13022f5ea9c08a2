#include "stored_list.h"

#include <json/json.h>

#include <cstdlib>
#include <memory>

#include "pxm_credential.h"

namespace quillon_platform {

namespace {

// An address the daemon would enter in a wake table: 17 characters, not all zeros.
std::string Usable(const Json::Value& member) {
    if (!member.isString())
        return std::string();
    std::string text = member.asString();
    if (text.size() != 17 || text == "00:00:00:00:00:00" || text == "00-00-00-00-00-00")
        return std::string();
    return text;
}

}  // namespace

ss_credential_s DaemonCredential() {
    ss_credential_s cred;
    ss_init_credential(&cred, kPxmAppCredential, PXM_SS_CREDENTIAL_TYPE, PXM_SS_CREDENTIAL_FLAGS);
    return cred;
}

bool ReadDaemonItem(const std::string& item, std::string* text, std::string* error) {
    ss_credential_s cred = DaemonCredential();
    char* buffer = nullptr;
    size_t size = 0;
    int rc = ss_read(&buffer, &size, -1, 0, item.c_str(), &cred, 1);
    if (rc == SS_ERROR_NO_SUCH_ITEM) {
        *error = "no item '" + item + "'";
        return false;
    }
    if (rc != SS_ERROR_NONE) {
        *error = "item '" + item + "' cannot be read (" + std::to_string(rc) + ")";
        return false;
    }
    text->assign(buffer, size);
    ss_free_buffer(buffer);
    return true;
}

bool ReadAllowedDevices(std::vector<AllowedDevice>* devices, std::string* error) {
    std::string text;
    if (!ReadDaemonItem("PXM_DEVICE_LIST", &text, error)) {
        // No list stored: nothing may be in the tables.
        if (error->rfind("no item", 0) == 0) {
            error->clear();
            return true;
        }
        return false;
    }
    if (text.rfind("2\n", 0) != 0) {
        *error = "the stored list is in an older format; the daemon converts it at its next save";
        return false;
    }
    Json::CharReaderBuilder builder;
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value root;
    std::string parse_error;
    if (!reader->parse(text.data() + 2, text.data() + text.size(), &root, &parse_error) ||
        !(root.isArray() || root.isNull())) {
        *error = "the stored list does not parse: " + parse_error;
        return false;
    }
    for (const Json::Value& entry : root) {
        const Json::Value& item = entry.isObject() ? entry["item_data"] : Json::Value();
        if (!item.isObject() || item["dy_type"].asInt() != 0 || item["devstatus"].asInt() != 0)
            continue;
        AllowedDevice d{Usable(item["bt_mac"]), Usable(item["wifi_mac"]),
                        item["accessTime"].isIntegral() ? item["accessTime"].asInt64() : 0};
        if (!d.bt_mac.empty() || !d.wifi_mac.empty())
            devices->push_back(d);
    }
    return true;
}

}  // namespace quillon_platform
