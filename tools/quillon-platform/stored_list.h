// The daemon's stored device list as the tools read it: the secure-storage item under the
// daemon's credential, and the allowed devices that the wake tables must hold.
#pragma once

#include <string>
#include <vector>

#include "ss_manager.h"

namespace quillon_platform {

ss_credential_s DaemonCredential();

// The item's text, or false with *error.
bool ReadDaemonItem(const std::string& item, std::string* text, std::string* error);

struct AllowedDevice {
    std::string bt_mac;    // empty when the device has no usable Bluetooth address
    std::string wifi_mac;  // empty when it has no usable Wi-Fi address
    int64_t access_time = 0;
};

// The allowed devices of the normal list in the stored list (version 2), or false with *error.
bool ReadAllowedDevices(std::vector<AllowedDevice>* devices, std::string* error);

}  // namespace quillon_platform
