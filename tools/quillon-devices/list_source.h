// The daemon as the device list window follows it: its name on the system bus, its two
// signals, and both lists read again on each of them (and whenever the window asks). What
// the window shows is only ever what the daemon answered last.
#pragma once

#include <gio/gio.h>

#include <functional>
#include <string>
#include <vector>

#include "stored_device.h"

namespace quillon_devices {

class ListSource {
public:
    // The normal list's devices first, then the reverse list's.
    using OnList = std::function<void(const std::vector<StoredDevice>& devices)>;
    // No list to show: the daemon is not on the bus, or could not be read; one sentence.
    using OnUnavailable = std::function<void(const std::string& sentence)>;

    ListSource(OnList on_list, OnUnavailable on_unavailable);
    ~ListSource();
    ListSource(const ListSource&) = delete;
    ListSource& operator=(const ListSource&) = delete;

    // Connects to the system bus and starts following the daemon; false with *error when
    // there is no bus.
    bool Start(std::string* error);

    // Reads both lists again. A request during a reading makes one more reading after it,
    // so the last answer shown is never older than the request.
    void Refresh();

    GDBusConnection* bus() const { return bus_; }
    GCancellable* cancellable() const { return cancellable_; }

private:
    static void OnAppeared(GDBusConnection*, const gchar*, const gchar*, gpointer self);
    static void OnVanished(GDBusConnection*, const gchar*, gpointer self);
    static void OnSignal(GDBusConnection*, const gchar*, const gchar*, const gchar*,
                         const gchar* signal, GVariant*, gpointer self);
    void ReadReverse(std::vector<StoredDevice> devices);
    void Finish();

    OnList on_list_;
    OnUnavailable on_unavailable_;
    GDBusConnection* bus_ = nullptr;
    GCancellable* cancellable_ = nullptr;
    guint watch_ = 0;
    guint subscription_ = 0;
    bool present_ = false;
    bool reading_ = false;
    bool read_again_ = false;
};

}  // namespace quillon_devices
