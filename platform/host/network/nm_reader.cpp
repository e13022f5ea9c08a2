#include "network/nm_reader.h"

#include <memory>
#include <string>
#include <vector>

#include "network/nm_dbus.h"

namespace host::network {

namespace {

struct VariantUnref {
    void operator()(GVariant* value) const { g_variant_unref(value); }
};
using Variant = std::unique_ptr<GVariant, VariantUnref>;

// One interface's properties ("a{sv}"), or null.
Variant GetAll(GDBusConnection* bus, GCancellable* cancel, const std::string& path,
               const char* interface, GError** error) {
    GVariant* reply = g_dbus_connection_call_sync(
        bus, kNmName, path.c_str(), "org.freedesktop.DBus.Properties", "GetAll",
        g_variant_new("(s)", interface), G_VARIANT_TYPE("(a{sv})"), G_DBUS_CALL_FLAGS_NO_AUTO_START,
        kCallTimeoutMs, cancel, error);
    if (reply == nullptr)
        return nullptr;
    Variant properties(g_variant_get_child_value(reply, 0));
    g_variant_unref(reply);
    return properties;
}

// A property of the expected type, or null when it is missing or of another type.
Variant Lookup(const Variant& properties, const char* name, const GVariantType* type) {
    return Variant(g_variant_lookup_value(properties.get(), name, type));
}

// A string or object path; `fallback` when missing.
std::string Text(const Variant& properties, const char* name, const char* fallback = "") {
    Variant value = Lookup(properties, name, G_VARIANT_TYPE_OBJECT_PATH);
    if (!value)
        value = Lookup(properties, name, G_VARIANT_TYPE_STRING);
    return value ? g_variant_get_string(value.get(), nullptr) : fallback;
}

uint32_t Number(const Variant& properties, const char* name) {
    Variant value = Lookup(properties, name, G_VARIANT_TYPE_UINT32);
    return value ? g_variant_get_uint32(value.get()) : 0;
}

std::vector<std::string> Paths(const Variant& properties, const char* name) {
    std::vector<std::string> paths;
    Variant value = Lookup(properties, name, G_VARIANT_TYPE_OBJECT_PATH_ARRAY);
    if (!value)
        return paths;
    gsize count = 0;
    const gchar** items = g_variant_get_objv(value.get(), &count);
    paths.assign(items, items + count);
    g_free(items);
    return paths;
}

bool IsObject(const std::string& path) {
    return !path.empty() && path != kNoObject;
}

AccessPoint ReadAccessPoint(GDBusConnection* bus, GCancellable* cancel, const std::string& path) {
    AccessPoint ap;
    if (!IsObject(path))
        return ap;
    Variant properties = GetAll(bus, cancel, path, kAccessPointInterface, nullptr);
    if (!properties)
        return ap;
    ap.path = path;
    ap.flags = Number(properties, "Flags");
    ap.wpa_flags = Number(properties, "WpaFlags");
    ap.rsn_flags = Number(properties, "RsnFlags");
    Variant ssid = Lookup(properties, "Ssid", G_VARIANT_TYPE_BYTESTRING);
    if (ssid) {
        gsize size = 0;
        const auto* bytes = static_cast<const uint8_t*>(
            g_variant_get_fixed_array(ssid.get(), &size, sizeof(uint8_t)));
        ap.ssid.assign(bytes, bytes + size);
    }
    return ap;
}

struct WifiDevice {
    std::string path;
    std::string interface;
    uint32_t state = 0;
    std::string access_point;
};

std::vector<WifiDevice> ReadWifiDevices(GDBusConnection* bus, GCancellable* cancel,
                                        const std::vector<std::string>& devices) {
    std::vector<WifiDevice> wifi;
    for (const std::string& path : devices) {
        Variant device = GetAll(bus, cancel, path, kDeviceInterface, nullptr);
        if (!device || Number(device, "DeviceType") != kDeviceTypeWifi)
            continue;
        Variant wireless = GetAll(bus, cancel, path, kWirelessInterface, nullptr);
        wifi.push_back(WifiDevice{path, Text(device, "Interface"), Number(device, "State"),
                                  wireless ? Text(wireless, "ActiveAccessPoint") : ""});
    }
    return wifi;
}

// The primary connection's device when it is a Wi-Fi device, else the first activated
// one, else the first one.
const WifiDevice* FollowedDevice(const std::vector<WifiDevice>& wifi,
                                 const std::string& primary_device) {
    for (const WifiDevice& device : wifi) {
        if (device.path == primary_device)
            return &device;
    }
    for (const WifiDevice& device : wifi) {
        if (device.state == kDeviceActivated)
            return &device;
    }
    return wifi.empty() ? nullptr : &wifi.front();
}

}  // namespace

bool ReadView(GDBusConnection* bus, GCancellable* cancel, NetworkView* view, GError** error) {
    Variant manager = GetAll(bus, cancel, kNmPath, kNmInterface, error);
    if (!manager)
        return false;
    const std::string primary = Text(manager, "PrimaryConnection", kNoObject);
    view->primary_type = Text(manager, "PrimaryConnectionType");

    std::string primary_device;
    std::string specific_object;
    Variant active;
    if (IsObject(primary))
        active = GetAll(bus, cancel, primary, kActiveInterface, nullptr);
    if (active) {
        view->primary_id = Text(active, "Id");
        // Managers older than PrimaryConnectionType name the kind on the connection only.
        if (view->primary_type.empty())
            view->primary_type = Text(active, "Type");
        std::vector<std::string> devices = Paths(active, "Devices");
        if (!devices.empty())
            primary_device = devices.front();
        specific_object = Text(active, "SpecificObject");
    } else {
        view->primary_type.clear();
    }

    const std::vector<WifiDevice> wifi = ReadWifiDevices(bus, cancel, Paths(manager, "Devices"));
    const WifiDevice* followed = FollowedDevice(wifi, primary_device);
    if (followed != nullptr) {
        view->wifi_device = followed->path;
        view->wifi_interface = followed->interface;
        view->wifi_device_state = followed->state;
        view->wifi_ap = ReadAccessPoint(bus, cancel, followed->access_point);
    }

    if (ConnectionTypeFromNm(view->primary_type.c_str()) == CONNECTION_TYPE_WIFI &&
        followed != nullptr && followed->path == primary_device) {
        view->primary_device_state = followed->state;
        // The connection names its access point; the device's active one stands in when
        // it does not.
        const std::string ap = IsObject(specific_object) ? specific_object : followed->access_point;
        view->primary_ap =
            ap == view->wifi_ap.path ? view->wifi_ap : ReadAccessPoint(bus, cancel, ap);
    }
    return true;
}

}  // namespace host::network
