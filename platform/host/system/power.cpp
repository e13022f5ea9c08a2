// Power manager: the power state from a settings key; standby (instant-off) events from
// writes of the standby key and from logind's PrepareForSleep(true), delivered to the
// subscribers on the default main context (see host_setting_keys.h).
#include <gio/gio.h>

#include <algorithm>
#include <mutex>
#include <vector>

#include "common/missing_service.h"
#include "device_power.h"
#include "dlog.h"
#include "system/host_setting_keys.h"
#include "vconf.h"

namespace {

struct Subscriber {
    device_power_standby_cb cb;
    void* user_data;
};

struct PowerState {
    std::mutex setup;  // serialises (un)subscribing, which may wait for the system bus
    std::mutex lock;   // guards subscribers; held only briefly, never across a callback
    std::vector<Subscriber> subscribers;
    bool key_watched = false;
    GDBusConnection* bus = nullptr;
    guint sleep_subscription = 0;
};

// Never destroyed: an event may still be dispatched while static objects go away.
PowerState& State() {
    static PowerState* state = new PowerState();
    return *state;
}

void Deliver(int type) {
    PowerState& state = State();
    std::vector<Subscriber> subscribers;
    {
        std::lock_guard<std::mutex> hold(state.lock);
        subscribers = state.subscribers;
    }
    for (const Subscriber& subscriber : subscribers) {
        {
            // One callback may unsubscribe a later one; that one must not run.
            std::lock_guard<std::mutex> hold(state.lock);
            auto it = std::find_if(state.subscribers.begin(), state.subscribers.end(),
                                   [&](const Subscriber& s) { return s.cb == subscriber.cb; });
            if (it == state.subscribers.end())
                continue;
        }
        subscriber.cb(type, subscriber.user_data);
    }
}

void OnStandbyKey(keynode_t* node, void* user_data) {
    (void)user_data;
    int type = vconf_keynode_get_type(node) == VCONF_TYPE_INT ? vconf_keynode_get_int(node)
                                                              : host::kSleepStandbyType;
    Deliver(type);
}

gboolean DeliverSleep(gpointer user_data) {
    (void)user_data;
    Deliver(host::kSleepStandbyType);
    return G_SOURCE_REMOVE;
}

void OnPrepareForSleep(GDBusConnection* connection, const gchar* sender, const gchar* path,
                       const gchar* interface, const gchar* signal, GVariant* parameters,
                       gpointer user_data) {
    (void)connection;
    (void)sender;
    (void)path;
    (void)interface;
    (void)signal;
    (void)user_data;
    if (!g_variant_is_of_type(parameters, G_VARIANT_TYPE("(b)")))
        return;
    gboolean starting = FALSE;
    g_variant_get(parameters, "(b)", &starting);
    // Only going to sleep is a standby; waking up is not.
    if (starting)
        g_main_context_invoke(g_main_context_default(), DeliverSleep, nullptr);
}

// Called with state.setup held.
void WatchLogind(PowerState& state) {
    GError* error = nullptr;
    state.bus = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
    if (!state.bus) {
        __dlog_print(LOG_ID_SYSTEM, DLOG_INFO, host::kHostLogTag,
                     "host platform: no system bus for logind (%s); standby only from %s",
                     error ? error->message : "unknown error", host::kStandbyKey);
        g_clear_error(&error);
        return;
    }
    // Subscribing needs no logind yet: its signals arrive once it runs.
    state.sleep_subscription = g_dbus_connection_signal_subscribe(
        state.bus, "org.freedesktop.login1", "org.freedesktop.login1.Manager", "PrepareForSleep",
        "/org/freedesktop/login1", nullptr, G_DBUS_SIGNAL_FLAGS_NONE, OnPrepareForSleep, nullptr,
        nullptr);
}

// Called with state.setup held.
void StopWatching(PowerState& state) {
    if (state.key_watched)
        vconf_ignore_key_changed(host::kStandbyKey, OnStandbyKey);
    state.key_watched = false;
    if (state.bus) {
        if (state.sleep_subscription)
            g_dbus_connection_signal_unsubscribe(state.bus, state.sleep_subscription);
        g_object_unref(state.bus);
    }
    state.bus = nullptr;
    state.sleep_subscription = 0;
}

}  // namespace

extern "C" int device_power_subscribe_standby(device_power_standby_cb cb, void* user_data) {
    if (!cb)
        return DEVICE_ERROR_INVALID_PARAMETER;
    PowerState& state = State();
    std::lock_guard<std::mutex> setup(state.setup);
    if (!state.key_watched) {
        if (vconf_notify_key_changed(host::kStandbyKey, OnStandbyKey, nullptr) != VCONF_OK)
            return DEVICE_ERROR_OPERATION_FAILED;
        state.key_watched = true;
        WatchLogind(state);
    }
    std::lock_guard<std::mutex> hold(state.lock);
    for (Subscriber& subscriber : state.subscribers) {
        if (subscriber.cb == cb) {
            // Callers unsubscribe by function, so a function is subscribed once.
            subscriber.user_data = user_data;
            return DEVICE_ERROR_NONE;
        }
    }
    state.subscribers.push_back(Subscriber{cb, user_data});
    return DEVICE_ERROR_NONE;
}

extern "C" int device_power_unsubscribe_standby(device_power_standby_cb cb) {
    PowerState& state = State();
    std::lock_guard<std::mutex> setup(state.setup);
    bool now_empty = false;
    {
        std::lock_guard<std::mutex> hold(state.lock);
        auto it = std::find_if(state.subscribers.begin(), state.subscribers.end(),
                               [cb](const Subscriber& s) { return s.cb == cb; });
        if (!cb || it == state.subscribers.end())
            return DEVICE_ERROR_INVALID_PARAMETER;
        state.subscribers.erase(it);
        now_empty = state.subscribers.empty();
    }
    if (now_empty)
        StopWatching(state);
    return DEVICE_ERROR_NONE;
}

extern "C" int device_power_get_state(void) {
    int power_state = DEVICE_POWER_STATE_NORMAL;
    if (vconf_get_int(host::kPowerStateKey, &power_state) != VCONF_OK)
        return DEVICE_POWER_STATE_NORMAL;
    return power_state;
}
