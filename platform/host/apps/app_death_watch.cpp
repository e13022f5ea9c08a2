#include "apps/app_death_watch.h"

#include <errno.h>
#include <glib-unix.h>
#include <glib.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <map>
#include <mutex>

#include "apps/process_info.h"
#include "common/missing_service.h"
#include "dlog.h"

namespace host {
namespace apps {

namespace {

struct Watched {
    RunningApp app;
    bool child = false;
    int pidfd = -1;
};

struct WatchState {
    std::mutex lock;
    std::map<int, Watched> watched;
    aul_app_dead_event_cb cb = nullptr;
    void* data = nullptr;
};

// Never destroyed: a watch may still fire while static objects go away.
WatchState& State() {
    static WatchState* state = new WatchState();
    return *state;
}

void Reap(int pid) {
    int status = 0;
    while (waitpid(pid, &status, WNOHANG) < 0 && errno == EINTR) {
    }
}

// Runs on the default main context once the process has ended.
void ReportDeath(int pid, bool reaped_by_glib) {
    WatchState& state = State();
    Watched ended;
    {
        std::lock_guard<std::mutex> hold(state.lock);
        auto it = state.watched.find(pid);
        if (it == state.watched.end())
            return;
        ended = it->second;
    }
    RemoveRecord(pid, ended.app.start_time);
    aul_app_dead_event_cb cb = nullptr;
    void* data = nullptr;
    {
        std::lock_guard<std::mutex> hold(state.lock);
        cb = state.cb;
        data = state.data;
    }
    __dlog_print(LOG_ID_SYSTEM, DLOG_INFO, kHostLogTag, "host platform: app %s (%d) ended",
                 ended.app.appid.c_str(), pid);
    // The entry stays until the listener returned, so it can still name the app.
    if (cb)
        cb(pid, data);
    {
        std::lock_guard<std::mutex> hold(state.lock);
        auto it = state.watched.find(pid);
        if (it != state.watched.end() && it->second.app.start_time == ended.app.start_time) {
            if (it->second.pidfd >= 0)
                close(it->second.pidfd);
            state.watched.erase(it);
        }
    }
    // Reaped last: until then the pid cannot go to a new app that would find it watched.
    if (ended.child && !reaped_by_glib)
        Reap(pid);
}

gboolean OnPidfdReadable(gint fd, GIOCondition condition, gpointer user_data) {
    (void)fd;
    (void)condition;
    ReportDeath(GPOINTER_TO_INT(user_data), false);
    return G_SOURCE_REMOVE;
}

void OnChildExited(GPid pid, gint status, gpointer user_data) {
    (void)status;
    (void)user_data;
    ReportDeath(pid, true);
}

int OpenPidfd(int pid) {
#ifdef SYS_pidfd_open
    return static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
#else
    (void)pid;
    errno = ENOSYS;
    return -1;
#endif
}

}  // namespace

void Watch(const RunningApp& app, bool child) {
    WatchState& state = State();
    std::lock_guard<std::mutex> hold(state.lock);
    if (state.watched.count(app.pid))
        return;
    int pidfd = OpenPidfd(app.pid);
    proc::ProcessStat stat;
    if (pidfd >= 0 && proc::ReadStat(app.pid, &stat) && stat.start_time != app.start_time) {
        // The app ended and its pid went to another process before we held it.
        close(pidfd);
        RemoveRecord(app.pid, app.start_time);
        return;
    }
    GSource* source = nullptr;
    if (pidfd >= 0) {
        source = g_unix_fd_source_new(pidfd, G_IO_IN);
        g_source_set_callback(source, G_SOURCE_FUNC(OnPidfdReadable), GINT_TO_POINTER(app.pid),
                              nullptr);
    } else if (child) {
        // Kernels without pidfds: GLib's child watch reaps our own children instead.
        source = g_child_watch_source_new(app.pid);
        g_source_set_callback(source, G_SOURCE_FUNC(OnChildExited), nullptr, nullptr);
    } else {
        __dlog_print(LOG_ID_SYSTEM, DLOG_WARN, kHostLogTag,
                     "host platform: cannot watch app %s (%d): pidfd_open failed (%d)",
                     app.appid.c_str(), app.pid, errno);
        return;
    }
    state.watched[app.pid] = Watched{app, child, pidfd};
    g_source_attach(source, g_main_context_default());
    g_source_unref(source);
}

void WatchRecorded(const RunningApp& app) {
    proc::ProcessStat stat;
    Watch(app, proc::ReadStat(app.pid, &stat) && stat.parent == getpid());
}

void SetDeathListener(aul_app_dead_event_cb cb, void* data) {
    WatchState& state = State();
    {
        std::lock_guard<std::mutex> hold(state.lock);
        state.cb = cb;
        state.data = data;
    }
    if (!cb)
        return;
    // An app launched before we (re)started is ours to report too.
    for (const RunningApp& app : LiveRecords())
        WatchRecorded(app);
}

bool HasDeathListener() {
    WatchState& state = State();
    std::lock_guard<std::mutex> hold(state.lock);
    return state.cb != nullptr;
}

bool WatchedAppId(int pid, std::string* appid) {
    WatchState& state = State();
    std::lock_guard<std::mutex> hold(state.lock);
    auto it = state.watched.find(pid);
    if (it == state.watched.end())
        return false;
    *appid = it->second.app.appid;
    return true;
}

}  // namespace apps
}  // namespace host
