#include "network/nm_monitor.h"

#include <atomic>
#include <chrono>
#include <cstring>

#include "common/missing_service.h"
#include "dlog.h"
#include "network/nm_dbus.h"
#include "network/nm_reader.h"

namespace host::network {

namespace {

// Properties whose change can change the view; anything else (signal strength, addresses,
// statistics) is not worth a read.
constexpr const char* kWatchedProperties[] = {
    "PrimaryConnection",
    "PrimaryConnectionType",
    "Devices",
    "ActiveConnection",
    "ActiveAccessPoint",
    "SpecificObject",
    "State",
    "Flags",
    "WpaFlags",
    "RsnFlags",
    "Ssid",
};

bool IsWatched(const char* property) {
    for (const char* watched : kWatchedProperties) {
        if (std::strcmp(watched, property) == 0)
            return true;
    }
    return false;
}

bool NamesWatchedProperty(GVariant* changed, GVariant* invalidated) {
    GVariantIter iter;
    const gchar* name = nullptr;
    g_variant_iter_init(&iter, changed);
    while (g_variant_iter_next(&iter, "{&sv}", &name, nullptr)) {
        if (IsWatched(name))
            return true;
    }
    if (invalidated == nullptr)
        return false;
    g_variant_iter_init(&iter, invalidated);
    while (g_variant_iter_next(&iter, "&s", &name)) {
        if (IsWatched(name))
            return true;
    }
    return false;
}

// Device and manager state changes, devices coming and going, and property changes both
// in the standard form ("(sa{sv}as)") and in NetworkManager's older one ("(a{sv})").
bool Matters(const gchar* signal, GVariant* parameters) {
    if (std::strcmp(signal, "StateChanged") == 0 || std::strcmp(signal, "DeviceAdded") == 0 ||
        std::strcmp(signal, "DeviceRemoved") == 0)
        return true;
    if (std::strcmp(signal, "PropertiesChanged") != 0)
        return false;
    bool matters = false;
    if (g_variant_is_of_type(parameters, G_VARIANT_TYPE("(sa{sv}as)"))) {
        GVariant* changed = g_variant_get_child_value(parameters, 1);
        GVariant* invalidated = g_variant_get_child_value(parameters, 2);
        matters = NamesWatchedProperty(changed, invalidated);
        g_variant_unref(changed);
        g_variant_unref(invalidated);
    } else if (g_variant_is_of_type(parameters, G_VARIANT_TYPE("(a{sv})"))) {
        GVariant* changed = g_variant_get_child_value(parameters, 0);
        matters = NamesWatchedProperty(changed, nullptr);
        g_variant_unref(changed);
    }
    return matters;
}

gboolean QuitLoop(gpointer loop) {
    g_main_loop_quit(static_cast<GMainLoop*>(loop));
    return G_SOURCE_REMOVE;
}

void Attach(GMainContext* context, GSourceFunc function, gpointer data) {
    GSource* source = g_idle_source_new();
    g_source_set_callback(source, function, data, nullptr);
    g_source_attach(source, context);
    g_source_unref(source);
}

}  // namespace

Monitor& Monitor::Instance() {
    // Never destroyed: the daemon's exit-time teardown may still release it.
    static Monitor* monitor = new Monitor();
    return *monitor;
}

void Monitor::Acquire() {
    std::lock_guard<std::mutex> life(life_);
    if (users_++ == 0) {
        context_ = g_main_context_new();
        loop_ = g_main_loop_new(context_, FALSE);
        cancel_ = g_cancellable_new();
        present_ = false;
        absence_logged_ = false;
        silence_logged_ = false;
        refresh_pending_ = false;
        thread_ = std::thread([this] { Run(); });
    }
    std::unique_lock<std::mutex> hold(lock_);
    settled_changed_.wait_for(hold, std::chrono::milliseconds(kSettleMs),
                              [this] { return settled_; });
}

void Monitor::Release() {
    std::lock_guard<std::mutex> life(life_);
    if (users_ == 0 || --users_ > 0)
        return;
    // A read in flight returns at once; the loop ends at its next turn.
    g_cancellable_cancel(cancel_);
    Attach(context_, QuitLoop, loop_);
    thread_.join();
    g_main_loop_unref(loop_);
    g_main_context_unref(context_);
    g_object_unref(cancel_);
    loop_ = nullptr;
    context_ = nullptr;
    cancel_ = nullptr;
    std::lock_guard<std::mutex> hold(lock_);
    view_ = NetworkView();
    settled_ = false;
}

NetworkView Monitor::View() const {
    std::lock_guard<std::mutex> hold(lock_);
    return view_;
}

void Monitor::SetListener(Listener listener) {
    std::lock_guard<std::mutex> hold(lock_);
    listener_ = listener;
}

void Monitor::Run() {
    g_main_context_push_thread_default(context_);
    GError* error = nullptr;
    GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SYSTEM, cancel_, &error);
    if (bus == nullptr) {
        // Said once: without Wi-Fi initialised every connection_create looks again.
        static std::atomic<bool> said{false};
        if (!g_cancellable_is_cancelled(cancel_) && !said.exchange(true)) {
            __dlog_print(LOG_ID_SYSTEM, DLOG_WARN, kHostLogTag,
                         "host platform: no system bus for NetworkManager (%s); Wi-Fi counts "
                         "as disconnected",
                         error != nullptr ? error->message : "unknown error");
        }
        g_clear_error(&error);
        NetworkView view;
        view.presence = Presence::kNoBus;
        Publish(view);
    } else {
        bus_ = bus;
        // Subscribing first: whatever NetworkManager signals once it is found brings a read.
        guint subscription =
            g_dbus_connection_signal_subscribe(bus, kNmName, nullptr, nullptr, nullptr, nullptr,
                                               G_DBUS_SIGNAL_FLAGS_NONE, OnSignal, this, nullptr);
        guint watch = g_bus_watch_name_on_connection(bus, kNmName, G_BUS_NAME_WATCHER_FLAGS_NONE,
                                                     OnAppeared, OnVanished, this, nullptr);
        g_main_loop_run(loop_);
        g_bus_unwatch_name(watch);
        g_dbus_connection_signal_unsubscribe(bus, subscription);
        // What is still queued here runs here, with the reads already cancelled.
        while (g_main_context_iteration(context_, FALSE)) {
        }
        bus_ = nullptr;
        g_object_unref(bus);
    }
    g_main_context_pop_thread_default(context_);
}

void Monitor::OnAppeared(GDBusConnection* /*bus*/, const gchar* /*name*/, const gchar* owner,
                         gpointer self) {
    auto* monitor = static_cast<Monitor*>(self);
    monitor->present_ = true;
    monitor->owner_ = owner;
    monitor->absence_logged_ = false;
    __dlog_print(LOG_ID_SYSTEM, DLOG_INFO, kHostLogTag,
                 "host platform: NetworkManager is on the system bus (%s)", owner);
    monitor->Refresh();
}

void Monitor::OnVanished(GDBusConnection* bus, const gchar* /*name*/, gpointer self) {
    auto* monitor = static_cast<Monitor*>(self);
    if (g_cancellable_is_cancelled(monitor->cancel_))
        return;
    const char* why = nullptr;
    if (bus == nullptr || g_dbus_connection_is_closed(bus)) {
        why = "the system bus closed; Wi-Fi counts as disconnected";
    } else if (monitor->present_) {
        why = "NetworkManager left the system bus; Wi-Fi counts as disconnected until it returns";
    } else if (!monitor->absence_logged_) {
        why =
            "NetworkManager is not on the system bus; Wi-Fi counts as disconnected until it "
            "appears";
    }
    if (why != nullptr)
        __dlog_print(LOG_ID_SYSTEM, DLOG_WARN, kHostLogTag, "host platform: %s", why);
    monitor->present_ = false;
    monitor->absence_logged_ = true;
    monitor->owner_.clear();
    monitor->Publish(NetworkView());
}

void Monitor::OnSignal(GDBusConnection* /*bus*/, const gchar* /*sender*/, const gchar* /*path*/,
                       const gchar* /*interface*/, const gchar* signal, GVariant* parameters,
                       gpointer self) {
    if (Matters(signal, parameters))
        static_cast<Monitor*>(self)->ScheduleRefresh();
}

// A burst of signals brings one read, after the last of them that is already queued.
void Monitor::ScheduleRefresh() {
    if (refresh_pending_)
        return;
    refresh_pending_ = true;
    Attach(
        context_,
        [](gpointer self) -> gboolean {
            static_cast<Monitor*>(self)->Refresh();
            return G_SOURCE_REMOVE;
        },
        this);
}

void Monitor::Refresh() {
    refresh_pending_ = false;
    if (!present_ || g_cancellable_is_cancelled(cancel_))
        return;
    NetworkView view;
    GError* error = nullptr;
    if (ReadView(bus_, cancel_, &view, &error)) {
        silence_logged_ = false;
        view.presence = Presence::kPresent;
    } else if (g_cancellable_is_cancelled(cancel_)) {
        g_clear_error(&error);  // the monitor is stopping
        return;
    } else {
        // Without an owner it is leaving, and its vanishing says so.
        const bool leaving = g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_SERVICE_UNKNOWN) ||
                             g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_NAME_HAS_NO_OWNER);
        if (!leaving && !silence_logged_) {
            __dlog_print(LOG_ID_SYSTEM, DLOG_WARN, kHostLogTag,
                         "host platform: NetworkManager did not answer (%s); Wi-Fi counts as "
                         "disconnected until it does",
                         error != nullptr ? error->message : "unknown error");
            silence_logged_ = true;
        }
        g_clear_error(&error);
        view = NetworkView();
        view.presence = Presence::kUnanswered;
    }
    view.owner = owner_;
    Publish(view);
}

void Monitor::Publish(const NetworkView& view) {
    Listener listener = nullptr;
    {
        std::lock_guard<std::mutex> hold(lock_);
        view_ = view;
        settled_ = true;
        listener = listener_;
    }
    settled_changed_.notify_all();
    if (listener != nullptr)
        listener(view);
}

}  // namespace host::network
