// Follows NetworkManager on the system bus from a thread of its own and keeps the latest
// NetworkView. Users hold the monitor with Acquire/Release: the first one starts the
// thread, the last one stops it. The view is read whenever NetworkManager appears on the
// bus or signals a change that matters; it is emptied when NetworkManager leaves.
#pragma once

#include <gio/gio.h>

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

#include "network/network_view.h"

namespace host::network {

// How long Acquire waits for the first view; start-up never waits longer for the network.
constexpr int kSettleMs = 2000;

class Monitor {
public:
    // Called on the monitor's thread with every view it publishes, one at a time, with no
    // lock of the monitor held.
    using Listener = void (*)(const NetworkView& view);

    static Monitor& Instance();

    // Starts following NetworkManager if nobody does yet, then waits (at most kSettleMs)
    // until the first view is known: read, NetworkManager absent, or no system bus.
    void Acquire();
    void Release();
    NetworkView View() const;
    void SetListener(Listener listener);

private:
    Monitor() = default;

    // The monitor's thread.
    void Run();
    void Refresh();
    void Publish(const NetworkView& view);
    void ScheduleRefresh();
    static void OnAppeared(GDBusConnection* bus, const gchar* name, const gchar* owner,
                           gpointer self);
    static void OnVanished(GDBusConnection* bus, const gchar* name, gpointer self);
    static void OnSignal(GDBusConnection* bus, const gchar* sender, const gchar* path,
                         const gchar* interface, const gchar* signal, GVariant* parameters,
                         gpointer self);

    std::mutex life_;  // serialises Acquire and Release; never taken on the monitor's thread
    int users_ = 0;
    std::thread thread_;
    // Made before the thread starts and freed after it ends.
    GMainContext* context_ = nullptr;
    GMainLoop* loop_ = nullptr;
    GCancellable* cancel_ = nullptr;

    mutable std::mutex lock_;  // guards the three below; a leaf lock
    NetworkView view_;
    bool settled_ = false;
    Listener listener_ = nullptr;
    std::condition_variable settled_changed_;

    // Only the monitor's thread touches these (reset before it starts).
    GDBusConnection* bus_ = nullptr;
    std::string owner_;
    bool present_ = false;
    bool absence_logged_ = false;
    bool silence_logged_ = false;
    bool refresh_pending_ = false;
};

}  // namespace host::network
