// Control surface of the fake platform: what a unit test scripts, inspects and delivers.
// Every platform function of platform/include is implemented by the fake; each call is
// journaled with its arguments, and its result comes from the script (see SetResult).
// All of it is thread-safe; callbacks are always called without the fake's lock held.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "wifi.h"

namespace fake {

struct Call {
    std::string fn;                 // the platform function's name, e.g. "vconf_set_int"
    std::vector<std::string> args;  // each argument as text: decimal for numbers, the text
                                    // for strings, "(null)" for a null pointer
};

struct LogLine {
    int level;         // DLOG_INFO, DLOG_WARN, DLOG_ERROR...
    std::string tag;   // "PXM_CORE", "PXM_LOG"
    std::string text;  // the formatted message, prefix included
};

// Back to a clean platform: no settings, empty journal and log, no scripted results, no
// registered callbacks, system clock, no running apps, empty storage and tables.
void Reset();

// Seeds the settings a freshly installed TV has: factory reset 0, access notification 1,
// request option 0, wizard mode "".
void SeedDefaultSettings();

// ---- scripted results --------------------------------------------------------------
// A queued result is used once, in order; then the standing result; then the default
// (success, or the state the fake keeps: a stored setting, a stored item...).
// How a scripted value acts:
// - Status results (0 = success): a non-zero value is returned and the call has no
//   effect (nothing stored, no out value written, no callback registered). A scripted 0
//   does what the call does by default, but reports success even where the fake's state
//   would fail it (e.g. vconf_get_int of a missing key returns 0, *intval untouched).
// - Value results (aul_app_is_running, device_power_get_state, bundle_get_count,
//   vconf_keynode_get_type/_int/_bool): the value is returned as is.
// - aul_launch_app: a value > 0 is the pid of a successful launch (the app then runs
//   under it); a value < 1 is a failure. The launch bundle is remembered either way.
// - vconf_get_str, bundle_create: non-zero means failure, NULL is returned.
// - AOVSystemDataIsAOVActivated: non-zero means failure, false is returned.
// - bundle_free frees the bundle whatever the script says.
// Not scripted: __dlog_print, void functions and the other text/pointer results
// (vconf_keynode_get_name/_str, bundle_get_val).
void SetResult(const std::string& fn, int value);
void QueueResult(const std::string& fn, int value);
void ClearResult(const std::string& fn);

// ---- journal ---------------------------------------------------------------------
// Every platform call except __dlog_print (see Logs) is journaled with one argument text
// per C parameter, in order: numbers in decimal, strings as they are, "(null)" for any
// null pointer and "(ptr)" for any other pointer that is not text (handles, out
// parameters, callbacks, user data). ss_write's data is the text of its size bytes.
// aul_launch_app is the exception: the appid, then "KEY=VALUE" per bundle entry in order.
// A call and its effect are recorded together: once a call is in the journal, its effect
// (a stored item, a table entry) is visible too.
std::vector<Call> Calls();
std::vector<Call> Calls(const std::string& fn);
std::size_t CallCount(const std::string& fn);
// The names of all journaled calls, in order, optionally only those in `only`.
std::vector<std::string> CallNames(const std::vector<std::string>& only = {});
// Waits until fn has been called at least count times in all; false on timeout.
bool WaitForCalls(const std::string& fn, std::size_t count, int timeout_ms = 5000);
void ClearJournal();

// ---- log -------------------------------------------------------------------------
// Every __dlog_print line is captured and also written to stderr.
std::vector<LogLine> Logs();
// True when a captured line contains text; level and tag narrow the search when given.
bool HasLog(const std::string& text, int level = -1, const std::string& tag = "");
std::size_t CountLogs(const std::string& text);
// Index of the first line containing text at or after `from`, or -1.
long FindLog(const std::string& text, std::size_t from = 0);
// Waits until a line containing text has been captured; false on timeout.
bool WaitForLog(const std::string& text, int timeout_ms = 5000);
void ClearLogs();

// ---- settings (vconf) ------------------------------------------------------------
// Set*/Unset change the store silently; Change* store and then call every callback
// registered for the key, on the calling thread, as the platform would. The daemon's own
// vconf_set_* store silently too. vconf_get_* of a missing key or another type fails.
// GetInt also reads a bool key (0 or 1).
void SetInt(const std::string& key, int value);
void SetBool(const std::string& key, bool value);
void SetStr(const std::string& key, const std::string& value);
void Unset(const std::string& key);
std::optional<int> GetInt(const std::string& key);
std::optional<std::string> GetStr(const std::string& key);
void ChangeInt(const std::string& key, int value);
void ChangeStr(const std::string& key, const std::string& value);
void ChangeBool(const std::string& key, bool value);
std::size_t VconfListenerCount(const std::string& key);

// ---- real-time clock -------------------------------------------------------------
void SetRealtime(long sec, long nsec);
void UseSystemClock();

// ---- secure storage --------------------------------------------------------------
// The plain text ss_write stored under item, if any.
std::optional<std::string> SecureItem(const std::string& item);
void SetSecureItem(const std::string& item, const std::string& text);
// The credential passed with the most recent ss_* call.
std::vector<unsigned int> LastCredential();

// ---- Wi-Fi and connection ----------------------------------------------------------
// What connection_get_type / _get_wifi_security_type / _get_wifi_encryption_type report
// (default: disconnected, 0, 0). The essid defaults to "FakeAP".
void SetConnection(int type, int security, int encryption);
void SetEssid(const std::string& essid);
bool HasWifiCallback();
void DeliverWifiState(int state, wifi_ap_h ap = nullptr);

// ---- power, feature flags, voice --------------------------------------------------
// Defaults: power state 0, every feature flag false, voice inactive.
// DeliverStandby calls every subscribed callback and returns the last one's result, or -1
// when none is subscribed.
void SetPowerState(int state);
bool HasStandbyCallback();
int DeliverStandby(int type);
void SetFeatureFlag(const std::string& key, bool value);
void SetVoiceActive(bool active);

// ---- applications ------------------------------------------------------------------
// aul_launch_app succeeds by default with pids 4001, 4002... and makes the app running
// (package name = appid). aul_terminate_pid only removes the app: app death reaches the
// listener when the test calls DeliverAppDead, which also removes the app.
void AddRunningApp(int pid, const std::string& pkg);
void RemoveRunningApp(int pid);
std::vector<std::pair<int, std::string>> RunningApps();
// The entries of the bundle given to the most recent aul_launch_app, in order.
std::vector<std::pair<std::string, std::string>> LastLaunchBundle();
bool HasAppDeadListener();
// Calls the registered app-dead listener; returns its result (or -1 when none).
int DeliverAppDead(int pid);

// ---- wake-up tables ----------------------------------------------------------------
// The fake keeps both tables: addresses in the Bluetooth headless table and the
// Wake-on-WLAN waker table (deleting an absent address fails with *_NOT_FOUND).
std::vector<std::string> HeadlessTable();
std::vector<std::string> WakerTable();

// ---- backup service ----------------------------------------------------------------
// Both register functions hand out handles 1, 2, ... from one counter. Deliver* call every
// registered callback of the kind; a null data gives the callback a null bnr_resp_data_s*.
bool HasBnrTriggerCallback();
bool HasBnrResponseCallback();
void DeliverBnrTrigger(int trigger);
// data may be null; otherwise it is passed as bnr_resp_data_s::data.
void DeliverBnrResponse(int response, const char* data);
// What bnr_backup sent, in order.
std::vector<std::string> BackupPayloads();

// ---- watchdog ----------------------------------------------------------------------
// Successful smart_deadlock_watchdog_notify calls.
std::size_t WatchdogPings();

}  // namespace fake
