#include "device_text.h"

#include <glib.h>

#include <utility>

namespace quillon_ux {

namespace {

std::string ValidUtf8(const std::string& text) {
    gchar* valid = g_utf8_make_valid(text.data(), static_cast<gssize>(text.size()));
    std::string result = valid;
    g_free(valid);
    return result;
}

}  // namespace

std::string DisplayName(const std::string& device_name) {
    std::string name = ValidUtf8(device_name);
    return name.empty() ? "Unknown device" : name;
}

std::string AddressLines(const std::string& bt_mac, const std::string& wifi_mac,
                         const std::string& p2p_mac) {
    const std::pair<const char*, const std::string*> addresses[] = {
        {"Bluetooth", &bt_mac},
        {"Wi-Fi", &wifi_mac},
        {"Wi-Fi Direct", &p2p_mac},
    };
    std::string lines;
    for (const auto& [label, value] : addresses) {
        if (value->empty() || *value == "0")
            continue;
        if (!lines.empty())
            lines += '\n';
        lines += std::string(label) + "  " + ValidUtf8(*value);
    }
    return lines;
}

}  // namespace quillon_ux
