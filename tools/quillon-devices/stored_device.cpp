#include "stored_device.h"

#include <glib.h>

namespace quillon_devices {

namespace {

bool ValidAddress(const std::string& mac) {
    return mac.size() == 17 && mac != "00:00:00:00:00:00" && mac != "00-00-00-00-00-00";
}

}  // namespace

std::vector<StoredDevice> ReadDeviceList(GVariant* reply, bool reverse) {
    std::vector<StoredDevice> devices;
    GVariantIter* elements = nullptr;
    gint32 count = 0;
    g_variant_get(reply, "(a(ssssiiiiiiss)i)", &elements, &count);
    const gchar *name, *bt, *wifi, *p2p, *zel_id, *mirroring_id;
    gint32 devtype, devicon, status, mirroring, no_ux, ux_always;
    while (g_variant_iter_next(elements, "(&s&s&s&siiiiii&s&s)", &name, &bt, &wifi, &p2p, &devtype,
                               &devicon, &status, &mirroring, &no_ux, &ux_always, &zel_id,
                               &mirroring_id)) {
        devices.push_back({name, bt, wifi, p2p, devtype, devicon, status, mirroring, reverse});
    }
    g_variant_iter_free(elements);
    return devices;
}

bool LookupAddress(const StoredDevice& device, std::string* mac, int* ind) {
    const std::string* addresses[] = {&device.bt_mac, &device.wifi_mac, &device.p2p_mac};
    for (int i = 0; i < 3; ++i) {
        if (ValidAddress(*addresses[i])) {
            *mac = *addresses[i];
            *ind = i + 1;
            return true;
        }
    }
    return false;
}

std::string Identity(const StoredDevice& device) {
    gchar* folded = g_ascii_strup(((device.reverse ? "reverse " : "normal ") + device.bt_mac + " " +
                                   device.wifi_mac + " " + device.p2p_mac)
                                      .c_str(),
                                  -1);
    std::string identity = folded;
    g_free(folded);
    return identity;
}

std::string VerdictWord(int status) {
    switch (status) {
        case 0:
            return "allowed";
        case 1:
            return "blocked";
        case 2:
            return "undecided";
        default:
            return "unknown (" + std::to_string(status) + ")";
    }
}

const char* VerdictStyle(int status) {
    switch (status) {
        case 0:
            return "quillon-allowed";
        case 1:
            return "quillon-blocked";
        default:
            return "quillon-undecided";
    }
}

}  // namespace quillon_devices
