// Power manager, product feature flags and the always-on voice state.
#include "aov.h"
#include "common/fake_state.h"
#include "device_power.h"
#include "system_info.h"

using fake::detail::Callback;
using fake::detail::CallScope;
using fake::detail::Ptr;
using fake::detail::Text;

extern "C" {

int device_power_subscribe_standby(device_power_standby_cb cb, void* user_data) {
    CallScope call("device_power_subscribe_standby", {Callback(cb), Ptr(user_data)});
    if (call.failed()) {
        return *call.scripted();
    }
    if (cb == nullptr) {
        return DEVICE_ERROR_INVALID_PARAMETER;
    }
    call.data().standby_listeners.push_back({cb, user_data});
    return DEVICE_ERROR_NONE;
}

int device_power_unsubscribe_standby(device_power_standby_cb cb) {
    CallScope call("device_power_unsubscribe_standby", {Callback(cb)});
    if (call.failed()) {
        return *call.scripted();
    }
    auto& listeners = call.data().standby_listeners;
    std::size_t before = listeners.size();
    for (auto it = listeners.begin(); it != listeners.end();) {
        it = (it->cb == cb) ? listeners.erase(it) : it + 1;
    }
    if (listeners.size() == before) {
        return call.scripted() ? *call.scripted() : DEVICE_ERROR_INVALID_PARAMETER;
    }
    return DEVICE_ERROR_NONE;
}

int device_power_get_state(void) {
    CallScope call("device_power_get_state", {});
    return call.scripted() ? *call.scripted() : call.data().power_state;
}

int system_info_get_custom_bool(const char* key, bool* value) {
    CallScope call("system_info_get_custom_bool", {Text(key), Ptr(value)});
    if (call.failed()) {
        return *call.scripted();
    }
    if (key == nullptr || value == nullptr) {
        return SYSTEM_INFO_ERROR_INVALID_PARAMETER;
    }
    auto it = call.data().feature_flags.find(key);
    *value = (it != call.data().feature_flags.end()) && it->second;
    return SYSTEM_INFO_ERROR_NONE;
}

bool AOVSystemDataIsAOVActivated(void) {
    CallScope call("AOVSystemDataIsAOVActivated", {});
    if (call.failed()) {
        return false;
    }
    return call.data().voice_active;
}

}  // extern "C"

namespace fake {

void SetPowerState(int state) {
    auto& s = detail::GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.data.power_state = state;
}

bool HasStandbyCallback() {
    auto& s = detail::GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    return !s.data.standby_listeners.empty();
}

int DeliverStandby(int type) {
    std::vector<detail::StandbyListener> listeners;
    {
        auto& s = detail::GetState();
        std::lock_guard<std::mutex> lock(s.mutex);
        listeners = s.data.standby_listeners;
    }
    int result = -1;
    for (const auto& l : listeners) {
        result = l.cb(type, l.user_data);
    }
    return result;
}

void SetFeatureFlag(const std::string& key, bool value) {
    auto& s = detail::GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.data.feature_flags[key] = value;
}

void SetVoiceActive(bool active) {
    auto& s = detail::GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.data.voice_active = active;
}

}  // namespace fake
