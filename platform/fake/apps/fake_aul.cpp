// Application manager: a table of running apps (pid, package) that launches fill and
// terminations empty. App death is only reported when the test delivers it.
#include <algorithm>
#include <cstring>

#include "aul.h"
#include "common/fake_state.h"

using fake::detail::Callback;
using fake::detail::CallScope;
using fake::detail::Data;
using fake::detail::Num;
using fake::detail::Ptr;
using fake::detail::Text;

namespace {

using AppList = std::vector<std::pair<int, std::string>>;

AppList::iterator FindPid(AppList& apps, int pid) {
    return std::find_if(apps.begin(), apps.end(),
                        [pid](const auto& app) { return app.first == pid; });
}

void AddApp(Data& d, int pid, const std::string& pkg) {
    auto it = FindPid(d.running_apps, pid);
    if (it != d.running_apps.end()) {
        it->second = pkg;
    } else {
        d.running_apps.emplace_back(pid, pkg);
    }
}

}  // namespace

extern "C" {

int aul_launch_app(const char* appid, bundle* kb) {
    std::vector<std::string> args{Text(appid)};
    std::vector<std::pair<std::string, std::string>> entries;
    if (kb != nullptr) {
        entries = kb->entries;
    }
    for (const auto& entry : entries) {
        args.push_back(entry.first + "=" + entry.second);
    }
    CallScope call("aul_launch_app", std::move(args));
    Data& d = call.data();
    d.last_launch_bundle = entries;
    if (call.scripted()) {
        // A scripted pid launches the app under that pid; anything below 1 is a failure.
        int pid = *call.scripted();
        if (pid > 0 && appid != nullptr) {
            AddApp(d, pid, appid);
        }
        return pid;
    }
    if (appid == nullptr) {
        return AUL_R_EINVAL;
    }
    int pid = d.next_pid++;
    AddApp(d, pid, appid);
    return pid;
}

int aul_app_is_running(const char* appid) {
    CallScope call("aul_app_is_running", {Text(appid)});
    if (call.scripted()) {
        return *call.scripted();
    }
    if (appid == nullptr) {
        return 0;
    }
    const auto& apps = call.data().running_apps;
    return std::any_of(apps.begin(), apps.end(),
                       [appid](const auto& app) { return app.second == appid; })
               ? 1
               : 0;
}

int aul_app_get_running_app_info(aul_app_info_iter_fn iter_fn, void* user_param) {
    CallScope call("aul_app_get_running_app_info", {Callback(iter_fn), Ptr(user_param)});
    if (call.failed()) {
        return *call.scripted();
    }
    if (iter_fn == nullptr) {
        return AUL_R_EINVAL;
    }
    AppList apps = call.data().running_apps;
    call.Release();
    // The iterator may terminate apps, so it walks a copy.
    for (const auto& app : apps) {
        std::string pkg = app.second;
        std::string path = "/usr/apps/" + pkg + "/bin/" + pkg;
        std::string appid = pkg;
        aul_app_info info;
        info.pid = app.first;
        info.pkg_name = &pkg[0];
        info.app_path = &path[0];
        info.appid = &appid[0];
        if (iter_fn(&info, user_param) != 0) {
            break;
        }
    }
    return AUL_R_OK;
}

int aul_terminate_pid(int pid) {
    CallScope call("aul_terminate_pid", {Num(pid)});
    if (call.failed()) {
        return *call.scripted();
    }
    auto& apps = call.data().running_apps;
    auto it = FindPid(apps, pid);
    if (it == apps.end()) {
        return call.scripted() ? *call.scripted() : AUL_R_ESRCH;
    }
    apps.erase(it);
    return AUL_R_OK;
}

int aul_app_get_pkgname_bypid(int pid, char* pkgname, int len) {
    CallScope call("aul_app_get_pkgname_bypid", {Num(pid), Ptr(pkgname), Num(len)});
    if (call.failed()) {
        return *call.scripted();
    }
    if (pkgname == nullptr || len <= 0) {
        return AUL_R_EINVAL;
    }
    auto& apps = call.data().running_apps;
    auto it = FindPid(apps, pid);
    if (it == apps.end()) {
        return call.scripted() ? *call.scripted() : AUL_R_ERROR;
    }
    std::size_t n = std::min(it->second.size(), static_cast<std::size_t>(len - 1));
    std::memcpy(pkgname, it->second.data(), n);
    pkgname[n] = '\0';
    return AUL_R_OK;
}

int aul_listen_app_dead_signal(aul_app_dead_event_cb func, void* data) {
    CallScope call("aul_listen_app_dead_signal", {Callback(func), Ptr(data)});
    if (call.failed()) {
        return *call.scripted();
    }
    call.data().app_dead_cb = func;
    call.data().app_dead_data = data;
    return AUL_R_OK;
}

}  // extern "C"

namespace fake {

void AddRunningApp(int pid, const std::string& pkg) {
    auto& s = detail::GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    AddApp(s.data, pid, pkg);
}

void RemoveRunningApp(int pid) {
    auto& s = detail::GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    auto it = FindPid(s.data.running_apps, pid);
    if (it != s.data.running_apps.end()) {
        s.data.running_apps.erase(it);
    }
}

std::vector<std::pair<int, std::string>> RunningApps() {
    auto& s = detail::GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.data.running_apps;
}

std::vector<std::pair<std::string, std::string>> LastLaunchBundle() {
    auto& s = detail::GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.data.last_launch_bundle;
}

bool HasAppDeadListener() {
    auto& s = detail::GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.data.app_dead_cb != nullptr;
}

int DeliverAppDead(int pid) {
    aul_app_dead_event_cb cb;
    void* data;
    {
        auto& s = detail::GetState();
        std::lock_guard<std::mutex> lock(s.mutex);
        // A dead app no longer runs, whether or not anyone listens.
        auto it = FindPid(s.data.running_apps, pid);
        if (it != s.data.running_apps.end()) {
            s.data.running_apps.erase(it);
        }
        cb = s.data.app_dead_cb;
        data = s.data.app_dead_data;
    }
    return cb ? cb(pid, data) : -1;
}

}  // namespace fake
