// What the fake platform keeps between calls, and the entry helper every platform function
// goes through. One mutex guards all of it; it is never held while a registered callback
// runs, because callbacks call back into the fake.
#pragma once

#include <condition_variable>
#include <ctime>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "aul.h"
#include "bnr.h"
#include "bundle.h"
#include "device_power.h"
#include "fake_platform.h"
#include "vconf.h"
#include "wifi.h"

// The bundle is a plain ordered list of text entries.
struct _bundle_t {
    std::vector<std::pair<std::string, std::string>> entries;
};

// The node a settings callback receives; it lives on the delivering thread's stack.
struct _keynode_t {
    std::string name;
    int type = VCONF_TYPE_NONE;
    int ival = 0;
    std::string sval;
};

namespace fake::detail {

struct Setting {
    int type = VCONF_TYPE_NONE;  // VCONF_TYPE_INT, _BOOL or _STRING
    int ival = 0;
    std::string sval;
};

struct VconfListener {
    std::string key;
    vconf_callback_fn cb;
    void* user_data;
};

struct StandbyListener {
    device_power_standby_cb cb;
    void* user_data;
};

struct BnrTriggerListener {
    int handle;
    bnr_trigger_cb cb;
    void* user_data;
};

struct BnrResponseListener {
    int handle;
    bnr_response_cb cb;
    void* user_data;
};

// Everything Reset() puts back; a default-constructed Data is a clean platform.
struct Data {
    std::vector<Call> journal;
    std::vector<LogLine> logs;
    std::map<std::string, std::deque<int>> queued_results;
    std::map<std::string, int> standing_results;

    std::map<std::string, Setting> settings;
    std::vector<VconfListener> vconf_listeners;

    std::optional<timespec> realtime;

    std::map<std::string, std::string> secure_items;
    std::vector<unsigned int> last_credential;

    int connection_type = 0;
    int wifi_security = 0;
    int wifi_encryption = 0;
    std::string essid = "FakeAP";
    wifi_connection_state_changed_cb wifi_cb = nullptr;
    void* wifi_cb_data = nullptr;

    int power_state = 0;
    std::vector<StandbyListener> standby_listeners;
    std::map<std::string, bool> feature_flags;
    bool voice_active = false;

    std::vector<std::pair<int, std::string>> running_apps;
    int next_pid = 4001;
    std::vector<std::pair<std::string, std::string>> last_launch_bundle;
    aul_app_dead_event_cb app_dead_cb = nullptr;
    void* app_dead_data = nullptr;

    std::vector<std::string> headless_table;
    std::vector<std::string> waker_table;

    int next_bnr_handle = 1;
    std::vector<BnrTriggerListener> bnr_triggers;
    std::vector<BnrResponseListener> bnr_responses;
    std::vector<std::string> backup_payloads;

    std::size_t watchdog_pings = 0;
};

struct State {
    std::mutex mutex;
    std::condition_variable journal_grew;
    Data data;
};

// Never destroyed: detached save threads may still log while the process exits.
State& GetState();

// One platform call: takes the lock, journals the call and takes its scripted result.
// The lock is held until the scope ends or Release() is called, so a test that sees the
// call in the journal also sees its effect.
class CallScope {
public:
    // scriptable is false for functions whose result is not scripted (void, text results).
    CallScope(const char* fn, std::vector<std::string> args, bool scriptable = true);
    ~CallScope();
    CallScope(const CallScope&) = delete;
    CallScope& operator=(const CallScope&) = delete;

    // The scripted result, if the test queued or set one for this function.
    const std::optional<int>& scripted() const { return scripted_; }
    // True when a non-zero result was scripted: the call must then have no effect.
    bool failed() const { return scripted_.has_value() && *scripted_ != 0; }
    Data& data() { return state_.data; }
    // Drops the lock before a registered callback runs.
    void Release();

private:
    State& state_;
    std::unique_lock<std::mutex> lock_;
    std::optional<int> scripted_;
};

// Argument text for the journal.
std::string Text(const char* s);
std::string Ptr(const void* p);
std::string Num(long long v);
// Callback pointers, which do not convert to void*.
template <typename Fn>
std::string Callback(Fn fn) {
    return fn ? std::string("(ptr)") : std::string("(null)");
}

}  // namespace fake::detail
