// The app manager's queries and controls over the running-app records: what runs, its
// package name, termination, and the app-death listener.
#include <errno.h>
#include <signal.h>

#include <cstring>
#include <string>
#include <vector>

#include "apps/app_death_watch.h"
#include "apps/app_records.h"
#include "apps/process_info.h"
#include "aul.h"

namespace {

// Live records, each also watched once a listener wants to hear of its end.
std::vector<host::apps::RunningApp> RunningApps() {
    std::vector<host::apps::RunningApp> apps = host::apps::LiveRecords();
    if (host::apps::HasDeathListener())
        for (const auto& app : apps)
            host::apps::WatchRecorded(app);
    return apps;
}

}  // namespace

extern "C" int aul_app_is_running(const char* appid) {
    if (!appid)
        return 0;
    for (const auto& app : RunningApps())
        if (app.appid == appid)
            return 1;
    return 0;
}

extern "C" int aul_app_get_running_app_info(aul_app_info_iter_fn iter_fn, void* user_param) {
    if (!iter_fn)
        return AUL_R_EINVAL;
    // Called without any lock held: a callback may terminate the app it is given.
    for (auto& app : RunningApps()) {
        aul_app_info info;
        info.pid = app.pid;
        info.pkg_name = &app.pkg_name[0];
        info.app_path = &app.executable[0];
        info.appid = &app.appid[0];
        if (iter_fn(&info, user_param) != 0)
            break;
    }
    return AUL_R_OK;
}

extern "C" int aul_terminate_pid(int pid) {
    if (pid <= 0)
        return AUL_R_EINVAL;
    if (kill(pid, SIGTERM) == 0)
        return AUL_R_OK;
    return errno == ESRCH ? AUL_R_ESRCH : AUL_R_ERROR;
}

extern "C" int aul_app_get_pkgname_bypid(int pid, char* pkgname, int len) {
    if (!pkgname || len <= 0)
        return AUL_R_EINVAL;
    pkgname[0] = '\0';
    if (pid <= 0)
        return AUL_R_EINVAL;
    std::string name;
    host::apps::RunningApp app;
    // A watched app is still named while its death is reported; any other process by its
    // command name.
    if (!host::apps::WatchedAppId(pid, &name)) {
        if (host::apps::FindLiveRecord(pid, &app))
            name = app.pkg_name;
        else if (!host::proc::ReadComm(pid, &name))
            return AUL_R_ESRCH;
    }
    size_t count = std::min(name.size(), static_cast<size_t>(len) - 1);
    std::memcpy(pkgname, name.data(), count);
    pkgname[count] = '\0';
    return AUL_R_OK;
}

extern "C" int aul_listen_app_dead_signal(aul_app_dead_event_cb func, void* data) {
    host::apps::SetDeathListener(func, data);
    return AUL_R_OK;
}
