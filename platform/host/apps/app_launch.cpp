// Launching a registered app with the bundle's entries as "--KEY=VALUE" arguments in the
// bundle's order: in our environment, or as the registration's user (or the active
// graphical session's) with its environment set over ours.
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "apps/app_death_watch.h"
#include "apps/app_records.h"
#include "apps/app_registry.h"
#include "apps/graphical_session.h"
#include "apps/process_info.h"
#include "apps/user_spawn.h"
#include "aul.h"
#include "common/missing_service.h"
#include "dlog.h"

extern char** environ;

namespace {

void AddArgument(const char* key, const char* val, void* data) {
    static_cast<std::vector<std::string>*>(data)->push_back(std::string("--") + key + "=" + val);
}

bool IsExecutableFile(const std::string& path) {
    struct stat info;
    return stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) &&
           access(path.c_str(), X_OK) == 0;
}

void Warn(const char* appid, const std::string& why) {
    __dlog_print(LOG_ID_SYSTEM, DLOG_WARN, host::kHostLogTag, "host platform: %s: %s", appid,
                 why.c_str());
}

// Who the app runs as and in which environment. False (logged) when the registration names
// a user that does not exist.
bool ChooseUser(const char* appid, const host::apps::Registration& registration,
                host::apps::SpawnUser* user, bool* as_user, std::vector<std::string>* env) {
    std::string why;
    *as_user = false;
    if (registration.session) {
        host::apps::GraphicalSession session;
        if (host::apps::FindGraphicalSession(&session, &why) &&
            host::apps::ResolveUser(session.uid, user, &why)) {
            *as_user = true;
            *env = host::apps::OverrideEnv(*env, session.env);
            __dlog_print(LOG_ID_SYSTEM, DLOG_INFO, host::kHostLogTag,
                         "host platform: %s goes to graphical session %s of %s (uid %u)", appid,
                         session.id.c_str(), user->name.c_str(), unsigned(user->uid));
        } else {
            Warn(appid, "no graphical session to launch it in (" + why + "); launching it as " +
                            (registration.user.empty() ? std::string("the launcher's user")
                                                       : "user " + registration.user));
        }
    }
    if (!*as_user && !registration.user.empty()) {
        if (!host::apps::ResolveUser(registration.user, user, &why)) {
            Warn(appid, "cannot launch it: " + why);
            return false;
        }
        *as_user = true;
    }
    if (*as_user)
        *env = host::apps::OverrideEnv(
            *env, {"HOME=" + user->home, "USER=" + user->name, "LOGNAME=" + user->name});
    *env = host::apps::OverrideEnv(*env, registration.env);
    return true;
}

}  // namespace

extern "C" int aul_launch_app(const char* appid, bundle* kb) {
    if (!appid || !host::apps::IsValidAppId(appid))
        return AUL_R_EINVAL;
    host::apps::Registration registration;
    if (!host::apps::LookUp(appid, &registration)) {
        __dlog_print(LOG_ID_SYSTEM, DLOG_WARN, host::kHostLogTag,
                     "host platform: no app registered as %s", appid);
        return AUL_R_ENOAPP;
    }
    const std::string& executable = registration.executable;
    if (!IsExecutableFile(executable)) {
        __dlog_print(LOG_ID_SYSTEM, DLOG_WARN, host::kHostLogTag,
                     "host platform: cannot launch %s: %s is not an executable file", appid,
                     executable.c_str());
        return AUL_R_ENOLAUNCH;
    }
    std::vector<std::string> words{executable};
    bundle_iterate(kb, AddArgument, &words);
    std::vector<std::string> env;
    for (char** entry = environ; *entry; ++entry)
        env.emplace_back(*entry);
    host::apps::SpawnUser user;
    bool as_user = false;
    if (!ChooseUser(appid, registration, &user, &as_user, &env))
        return AUL_R_ENOLAUNCH;
    pid_t pid = 0;
    int rc = host::apps::SpawnApp(executable, words, env, as_user ? &user : nullptr, &pid);
    if (rc != 0) {
        __dlog_print(LOG_ID_SYSTEM, DLOG_WARN, host::kHostLogTag,
                     "host platform: cannot launch %s (%s)%s%s: %s", appid, executable.c_str(),
                     as_user ? " as user " : "", as_user ? user.name.c_str() : "",
                     std::strerror(rc));
        return AUL_R_ENOLAUNCH;
    }

    host::apps::RunningApp app;
    app.pid = pid;
    app.appid = appid;
    app.pkg_name = appid;
    app.executable = executable;
    app.launcher = getpid();
    // The child is not reaped before Watch() below, so its stat stays readable.
    host::proc::ProcessStat stat;
    if (host::proc::ReadStat(pid, &stat))
        app.start_time = stat.start_time;
    if (!host::apps::WriteRecord(app))
        __dlog_print(LOG_ID_SYSTEM, DLOG_WARN, host::kHostLogTag,
                     "host platform: no record for %s (%d): other processes will not see it", appid,
                     pid);
    host::apps::Watch(app, true);
    __dlog_print(LOG_ID_SYSTEM, DLOG_INFO, host::kHostLogTag,
                 "host platform: launched %s as %d (%s)%s%s", appid, pid, executable.c_str(),
                 as_user ? " as user " : "", as_user ? user.name.c_str() : "");
    return pid;
}
