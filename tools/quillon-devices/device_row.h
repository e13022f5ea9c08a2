// One device in the window's list: icon, name (plain text), the addresses that are set, the
// verdict in words and colour, and whether TV-initiated mirroring is on.
#pragma once

#include <gtk/gtk.h>

#include <string>

#include "stored_device.h"

namespace quillon_devices {

struct DeviceRow {
    StoredDevice device;
    GtkWidget* row = nullptr;  // a GtkListBoxRow
    GtkWidget* name = nullptr;
    GtkWidget* addresses = nullptr;
    GtkWidget* verdict = nullptr;
    GtkWidget* mirroring = nullptr;
    const char* icon = nullptr;
};

DeviceRow MakeDeviceRow(const StoredDevice& device);

// The row's words read back from its labels, on one line: what a person sees (tests and
// logs rely on it).
std::string DescribeRow(const DeviceRow& row);

}  // namespace quillon_devices
