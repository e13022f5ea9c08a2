// A device's texts as a person sees them, in the prompt and in the device list.
#pragma once

#include <string>

namespace quillon_ux {

// The device's name as plain text: invalid UTF-8 replaced, never interpreted as markup by
// the caller (labels get it with gtk_label_set_text). "Unknown device" when empty.
std::string DisplayName(const std::string& device_name);

// One line per address that is set (not "0" or empty): "Bluetooth  AA:BB:...".
std::string AddressLines(const std::string& bt_mac, const std::string& wifi_mac,
                         const std::string& p2p_mac);

}  // namespace quillon_ux
