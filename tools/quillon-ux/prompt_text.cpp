#include "prompt_text.h"

#include <glib.h>

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

std::string AddressLines(const PromptRequest& request) {
    const std::pair<const char*, const std::string*> addresses[] = {
        {"Bluetooth", &request.bt_mac},
        {"Wi-Fi", &request.wifi_mac},
        {"Wi-Fi Direct", &request.p2p_mac},
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

std::string CountdownText(int seconds_left) {
    return seconds_left == 1 ? "Closing in 1 second"
                             : "Closing in " + std::to_string(seconds_left) + " seconds";
}

}  // namespace quillon_ux
