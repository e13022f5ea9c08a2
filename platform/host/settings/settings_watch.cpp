// Settings change callbacks: inotify on the settings directory, so changes made by any
// process reach them, dispatched on the default GLib main context (the daemon's loop).
#include <errno.h>
#include <glib-unix.h>
#include <glib.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <mutex>
#include <string>
#include <vector>

#include "settings/settings_key.h"
#include "settings/settings_keynode.h"
#include "settings/settings_store.h"
#include "vconf.h"

namespace {

struct Listener {
    std::string key;
    vconf_callback_fn cb;
    void* user_data;
    unsigned long id;
};

// Only a rename into place or a finished write makes a new value; a removed key has
// no value to report.
constexpr uint32_t kWatchMask = IN_MOVED_TO | IN_CLOSE_WRITE;

struct WatchState {
    std::mutex lock;
    std::vector<Listener> listeners;
    unsigned long next_id = 1;
    int fd = -1;
    int wd = -1;
    std::string dir;
};

// Never destroyed: a callback may still be dispatched while static objects go away.
WatchState& State() {
    static WatchState* state = new WatchState();
    return *state;
}

std::vector<unsigned long> ListenerIds(WatchState& state, const std::string& key) {
    std::lock_guard<std::mutex> hold(state.lock);
    std::vector<unsigned long> ids;
    for (const auto& listener : state.listeners)
        if (listener.key == key)
            ids.push_back(listener.id);
    return ids;
}

void Deliver(WatchState& state, const std::string& key) {
    std::vector<unsigned long> ids = ListenerIds(state, key);
    if (ids.empty())
        return;
    _keynode_t node;
    node.name = key;
    // The value as it is now; a key removed again before we got here has none to report.
    if (!host::settings::Read(key, &node.value))
        return;
    for (unsigned long id : ids) {
        vconf_callback_fn cb = nullptr;
        void* user_data = nullptr;
        {
            // A callback may have removed a later one; that one must not run.
            std::lock_guard<std::mutex> hold(state.lock);
            auto it = std::find_if(state.listeners.begin(), state.listeners.end(),
                                   [id](const Listener& l) { return l.id == id; });
            if (it == state.listeners.end())
                continue;
            cb = it->cb;
            user_data = it->user_data;
        }
        cb(&node, user_data);
    }
}

void AddOnce(std::vector<std::string>* keys, const std::string& key) {
    if (std::find(keys->begin(), keys->end(), key) == keys->end())
        keys->push_back(key);
}

// Reads every pending event; a key changed several times in one batch is reported once,
// with its latest value.
std::vector<std::string> ChangedKeys(WatchState& state) {
    std::vector<std::string> keys;
    bool overflow = false;
    int fd, wd;
    {
        std::lock_guard<std::mutex> hold(state.lock);
        fd = state.fd;
        wd = state.wd;
    }
    alignas(struct inotify_event) char buffer[16 * (sizeof(struct inotify_event) + NAME_MAX + 1)];
    for (;;) {
        ssize_t n = read(fd, buffer, sizeof(buffer));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        for (char* p = buffer; p < buffer + n;) {
            auto* event = reinterpret_cast<struct inotify_event*>(p);
            p += sizeof(struct inotify_event) + event->len;
            if (event->mask & IN_Q_OVERFLOW)
                overflow = true;
            if (event->mask & IN_IGNORED) {
                std::lock_guard<std::mutex> hold(state.lock);
                if (state.wd == event->wd) {
                    state.wd = -1;
                    state.dir.clear();
                }
            }
            std::string key;
            if (event->wd == wd && (event->mask & kWatchMask) && event->len > 0 &&
                host::settings::FileNameToKey(event->name, &key))
                AddOnce(&keys, key);
        }
    }
    if (overflow) {
        // Events were lost: report every watched key with its current value.
        std::lock_guard<std::mutex> hold(state.lock);
        for (const auto& listener : state.listeners)
            AddOnce(&keys, listener.key);
    }
    return keys;
}

gboolean OnInotifyReadable(gint fd, GIOCondition condition, gpointer user_data) {
    (void)fd;
    (void)condition;
    WatchState& state = *static_cast<WatchState*>(user_data);
    for (const std::string& key : ChangedKeys(state))
        Deliver(state, key);
    return G_SOURCE_CONTINUE;
}

// Called with the state locked. One inotify descriptor per process; the watch follows
// the settings directory of the current platform root.
bool EnsureWatchLocked(WatchState& state, const std::string& dir) {
    if (state.fd < 0) {
        state.fd = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
        if (state.fd < 0)
            return false;
        GSource* source = g_unix_fd_source_new(state.fd, G_IO_IN);
        g_source_set_callback(source, G_SOURCE_FUNC(OnInotifyReadable), &state, nullptr);
        g_source_attach(source, g_main_context_default());
        g_source_unref(source);
    }
    if (state.wd >= 0 && state.dir == dir)
        return true;
    if (state.wd >= 0)
        inotify_rm_watch(state.fd, state.wd);
    state.wd = inotify_add_watch(state.fd, dir.c_str(), kWatchMask | IN_ONLYDIR);
    state.dir = state.wd >= 0 ? dir : std::string();
    return state.wd >= 0;
}

}  // namespace

extern "C" int vconf_notify_key_changed(const char* key, vconf_callback_fn cb, void* user_data) {
    if (!cb || !host::settings::IsValidKey(key))
        return VCONF_ERROR;
    // Created here so that a key nobody has written yet can already be watched.
    std::string dir = host::settings::EnsureDirectory();
    if (dir.empty())
        return VCONF_ERROR;
    WatchState& state = State();
    std::lock_guard<std::mutex> hold(state.lock);
    if (!EnsureWatchLocked(state, dir))
        return VCONF_ERROR;
    for (auto& listener : state.listeners) {
        if (listener.key == key && listener.cb == cb) {
            // One registration per key and function, as callers remove them by that pair.
            listener.user_data = user_data;
            return VCONF_OK;
        }
    }
    state.listeners.push_back(Listener{key, cb, user_data, state.next_id++});
    return VCONF_OK;
}

extern "C" int vconf_ignore_key_changed(const char* key, vconf_callback_fn cb) {
    if (!key || !cb)
        return VCONF_ERROR;
    WatchState& state = State();
    std::lock_guard<std::mutex> hold(state.lock);
    auto it = std::find_if(state.listeners.begin(), state.listeners.end(),
                           [&](const Listener& l) { return l.key == key && l.cb == cb; });
    if (it == state.listeners.end())
        return VCONF_ERROR;
    state.listeners.erase(it);
    return VCONF_OK;
}
