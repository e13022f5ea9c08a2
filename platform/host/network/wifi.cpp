// Wi-Fi manager: the state of NetworkManager's Wi-Fi device, delivered to the registered
// callback on the default main context whenever it changes.
#include "wifi.h"

#include <glib.h>

#include <cstdint>
#include <mutex>
#include <vector>

#include "network/nm_monitor.h"
#include "network/ssid_text.h"

using host::network::Monitor;
using host::network::NetworkView;
using host::network::PlatformConnection;

// What the callback's access-point handle holds: the SSID when the state changed.
struct wifi_ap_s {
    std::vector<uint8_t> ssid;
};

namespace {

struct WifiState {
    std::mutex setup;  // serialises initialising, deinitialising and (un)registering
    std::mutex lock;   // guards the members below; never held across the callback
    bool initialized = false;
    wifi_connection_state_changed_cb callback = nullptr;
    void* user_data = nullptr;
    // Each registration and unregistration counts up; a delivery queued for an earlier
    // one is dropped.
    unsigned generation = 0;
    // The last state the callback was given, or found when it was registered, and what
    // the security of the connection was judged from then.
    wifi_connection_state_e reported = WIFI_CONNECTION_STATE_DISCONNECTED;
    PlatformConnection judged;
};

// Never destroyed: a delivery may still be dispatched while static objects go away.
WifiState& State() {
    static WifiState* state = new WifiState();
    return *state;
}

struct Delivery {
    unsigned generation;
    wifi_connection_state_e state;
    wifi_ap_s ap;
    bool has_ap;
};

// Called with state.lock held; deliveries queued before are dropped.
void Register(WifiState& state, wifi_connection_state_changed_cb callback, void* user_data) {
    state.callback = callback;
    state.user_data = user_data;
    ++state.generation;
}

gboolean Deliver(gpointer data) {
    Delivery& delivery = *static_cast<Delivery*>(data);
    WifiState& state = State();
    wifi_connection_state_changed_cb callback = nullptr;
    void* user_data = nullptr;
    {
        std::lock_guard<std::mutex> hold(state.lock);
        if (delivery.generation != state.generation)
            return G_SOURCE_REMOVE;
        callback = state.callback;
        user_data = state.user_data;
    }
    if (callback != nullptr) {
        callback(delivery.state, delivery.has_ap ? &delivery.ap : nullptr, user_data);
    }
    return G_SOURCE_REMOVE;
}

bool SameJudgement(const PlatformConnection& a, const PlatformConnection& b) {
    return a.type == b.type && a.wifi_security_known == b.wifi_security_known &&
           a.wifi.security == b.wifi.security && a.wifi.encryption == b.wifi.encryption;
}

// The monitor's listener, on its thread. While connected, a change of what the security is
// judged from (the primary connection's kind, its access point's flags) is delivered as
// connected again, so that the client judges anew: an Ethernet cable plugged in beside a
// secure Wi-Fi makes the Wi-Fi no longer the connection, and NetworkManager may name its
// primary connection only after the device is activated.
void OnView(const NetworkView& view) {
    WifiState& state = State();
    std::lock_guard<std::mutex> hold(state.lock);
    const wifi_connection_state_e now = host::network::WifiStateOf(view);
    const PlatformConnection judged = host::network::PlatformConnectionOf(view);
    const bool rejudge =
        now == WIFI_CONNECTION_STATE_CONNECTED && !SameJudgement(judged, state.judged);
    state.judged = judged;
    if (state.callback == nullptr || (now == state.reported && !rejudge))
        return;
    state.reported = now;
    auto* delivery = new Delivery{state.generation, now, wifi_ap_s{view.wifi_ap.ssid},
                                  !view.wifi_ap.path.empty()};
    GSource* source = g_idle_source_new();
    g_source_set_callback(source, Deliver, delivery,
                          [](gpointer data) { delete static_cast<Delivery*>(data); });
    g_source_attach(source, g_main_context_default());
    g_source_unref(source);
}

}  // namespace

extern "C" int wifi_initialize(void) {
    WifiState& state = State();
    std::lock_guard<std::mutex> setup(state.setup);
    if (state.initialized)
        return WIFI_ERROR_NONE;
    Monitor& monitor = Monitor::Instance();
    monitor.SetListener(OnView);
    monitor.Acquire();
    // Without a system bus nothing will ever be known; NetworkManager itself may still come.
    if (monitor.View().presence == host::network::Presence::kNoBus) {
        monitor.Release();
        return WIFI_ERROR_OPERATION_FAILED;
    }
    std::lock_guard<std::mutex> hold(state.lock);
    state.initialized = true;
    return WIFI_ERROR_NONE;
}

extern "C" int wifi_deinitialize(void) {
    WifiState& state = State();
    std::lock_guard<std::mutex> setup(state.setup);
    {
        std::lock_guard<std::mutex> hold(state.lock);
        if (!state.initialized)
            return WIFI_ERROR_OPERATION_FAILED;
        state.initialized = false;
        Register(state, nullptr, nullptr);
    }
    Monitor::Instance().Release();
    return WIFI_ERROR_NONE;
}

extern "C" int wifi_set_connection_state_changed_cb(wifi_connection_state_changed_cb callback,
                                                    void* user_data) {
    if (callback == nullptr)
        return WIFI_ERROR_INVALID_PARAMETER;
    WifiState& state = State();
    std::lock_guard<std::mutex> setup(state.setup);
    std::lock_guard<std::mutex> hold(state.lock);
    if (!state.initialized)
        return WIFI_ERROR_OPERATION_FAILED;
    Register(state, callback, user_data);
    // Changes count from now. The view is read under the lock, so a change published
    // meanwhile reaches the listener after this and is compared with what is read here.
    const NetworkView view = Monitor::Instance().View();
    state.reported = host::network::WifiStateOf(view);
    state.judged = host::network::PlatformConnectionOf(view);
    return WIFI_ERROR_NONE;
}

extern "C" int wifi_unset_connection_state_changed_cb(void) {
    WifiState& state = State();
    std::lock_guard<std::mutex> setup(state.setup);
    std::lock_guard<std::mutex> hold(state.lock);
    if (!state.initialized)
        return WIFI_ERROR_OPERATION_FAILED;
    Register(state, nullptr, nullptr);
    return WIFI_ERROR_NONE;
}

extern "C" int wifi_ap_get_essid(wifi_ap_h ap, char** essid) {
    if (essid != nullptr)
        *essid = nullptr;
    if (ap == nullptr || essid == nullptr)
        return WIFI_ERROR_INVALID_PARAMETER;
    *essid = g_strdup(host::network::SsidText(ap->ssid).c_str());
    return WIFI_ERROR_NONE;
}
