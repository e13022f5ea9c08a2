// A device as the daemon's list replies carry it, and what the window derives from it: the
// address the daemon finds it by, the verdict in words, who it is across two readings.
#pragma once

#include <gio/gio.h>

#include <string>
#include <vector>

namespace quillon_devices {

struct StoredDevice {
    std::string name;
    std::string bt_mac;
    std::string wifi_mac;
    std::string p2p_mac;
    int devtype = 0;
    int devicon = 0;
    int status = 0;     // 0 allowed, 1 denied, 2 undecided
    int mirroring = 0;  // TV-initiated mirroring, non-zero when on
    bool reverse = false;
};

// The elements of a pxm_get_list or pxm_get_list_reverse reply, "(a(ssssiiiiiiss)i)".
std::vector<StoredDevice> ReadDeviceList(GVariant* reply, bool reverse);

// The first address the daemon accepts (17 characters, not all zero) and its IND: 1
// Bluetooth, 2 Wi-Fi, 3 Wi-Fi Direct. False when the device has none, so nothing can
// address it.
bool LookupAddress(const StoredDevice& device, std::string* mac, int* ind);

// The same device in a later reading: its list and its addresses (names may change).
std::string Identity(const StoredDevice& device);

// "allowed", "blocked", "undecided", or "unknown (N)"; and the colour's style class.
std::string VerdictWord(int status);
const char* VerdictStyle(int status);

}  // namespace quillon_devices
