// Launching a registered app: posix_spawn of its executable with the bundle's entries as
// "--KEY=VALUE" arguments in the bundle's order, in our environment.
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "apps/app_death_watch.h"
#include "apps/app_records.h"
#include "apps/app_registry.h"
#include "apps/process_info.h"
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

// The app starts with default signal dispositions and nothing blocked, whatever the
// launcher did with its own signals.
int Spawn(const std::string& executable, const std::vector<std::string>& words, pid_t* pid) {
    std::vector<char*> argv;
    for (const std::string& word : words)
        argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    posix_spawnattr_t attr;
    int rc = posix_spawnattr_init(&attr);
    if (rc != 0)
        return rc;
    sigset_t none, all;
    sigemptyset(&none);
    sigfillset(&all);
    sigdelset(&all, SIGKILL);
    sigdelset(&all, SIGSTOP);
    posix_spawnattr_setsigmask(&attr, &none);
    posix_spawnattr_setsigdefault(&attr, &all);
    posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    rc = posix_spawn(pid, executable.c_str(), nullptr, &attr, argv.data(), environ);
    posix_spawnattr_destroy(&attr);
    return rc;
}

}  // namespace

extern "C" int aul_launch_app(const char* appid, bundle* kb) {
    if (!appid || !host::apps::IsValidAppId(appid))
        return AUL_R_EINVAL;
    std::string executable;
    if (!host::apps::LookUp(appid, &executable)) {
        __dlog_print(LOG_ID_SYSTEM, DLOG_WARN, host::kHostLogTag,
                     "host platform: no app registered as %s", appid);
        return AUL_R_ENOAPP;
    }
    if (!IsExecutableFile(executable)) {
        __dlog_print(LOG_ID_SYSTEM, DLOG_WARN, host::kHostLogTag,
                     "host platform: cannot launch %s: %s is not an executable file", appid,
                     executable.c_str());
        return AUL_R_ENOLAUNCH;
    }
    std::vector<std::string> words{executable};
    bundle_iterate(kb, AddArgument, &words);
    pid_t pid = 0;
    int rc = Spawn(executable, words, &pid);
    if (rc != 0) {
        __dlog_print(LOG_ID_SYSTEM, DLOG_WARN, host::kHostLogTag,
                     "host platform: cannot launch %s (%s): %s", appid, executable.c_str(),
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
                 "host platform: launched %s as %d (%s)", appid, pid, executable.c_str());
    return pid;
}
