#include "apps/user_spawn.h"

#include <errno.h>
#include <fcntl.h>
#include <grp.h>
#include <linux/capability.h>
#include <pwd.h>
#include <signal.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace host {
namespace apps {

namespace {

std::vector<char*> Pointers(const std::vector<std::string>& words) {
    std::vector<char*> pointers;
    for (const std::string& word : words)
        pointers.push_back(const_cast<char*>(word.c_str()));
    pointers.push_back(nullptr);
    return pointers;
}

bool FromEntry(const passwd* entry, SpawnUser* user, std::string* why) {
    user->name = entry->pw_name;
    user->uid = entry->pw_uid;
    user->gid = entry->pw_gid;
    user->home = entry->pw_dir ? entry->pw_dir : "/";
    int count = 64;
    for (int tries = 0; tries < 4; ++tries) {
        user->groups.assign(count, 0);
        int n = count;
        if (getgrouplist(entry->pw_name, entry->pw_gid, user->groups.data(), &n) >= 0) {
            user->groups.resize(n);
            return true;
        }
        count = n > count ? n : count * 4;
    }
    *why = "too many groups for user " + user->name;
    return false;
}

template <typename Key, typename Lookup>
bool Resolve(Key key, Lookup lookup, const std::string& shown, SpawnUser* user, std::string* why) {
    std::vector<char> buffer(16384);
    passwd entry;
    passwd* found = nullptr;
    int rc = lookup(key, &entry, buffer.data(), buffer.size(), &found);
    if (rc != 0 || !found) {
        *why = "no user " + shown;
        return false;
    }
    return FromEntry(found, user, why);
}

// In the child between fork and exec: only async-signal-safe calls from here on.
bool SwitchUser(const SpawnUser& user) {
    // A launcher running as a service user holds its capabilities as ambient ones: those
    // would survive the exec, so they go first.
    prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_CLEAR_ALL, 0, 0, 0);
    prctl(PR_SET_KEEPCAPS, 0, 0, 0, 0);
    if (setgroups(user.groups.size(), user.groups.data()) != 0 ||
        setresgid(user.gid, user.gid, user.gid) != 0 ||
        setresuid(user.uid, user.uid, user.uid) != 0)
        return false;
    // From a non-root launcher the switch keeps the permitted set: empty it.
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct data[_LINUX_CAPABILITY_U32S_3] = {};
    if (syscall(SYS_capset, &header, data) != 0)
        return false;
    if (user.uid != 0 && (setresuid(0, 0, 0) == 0 || getuid() != user.uid)) {
        errno = EPERM;
        return false;
    }
    return true;
}

[[noreturn]] void BecomeAndExec(const char* executable, char* const* argv, char* const* envp,
                                const SpawnUser* user, int report) {
    sigset_t none;
    sigemptyset(&none);
    struct sigaction dfl {};
    dfl.sa_handler = SIG_DFL;
    for (int sig = 1; sig < NSIG; ++sig)
        if (sig != SIGKILL && sig != SIGSTOP)
            sigaction(sig, &dfl, nullptr);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    if (!user || SwitchUser(*user))
        execve(executable, argv, envp);
    int error = errno;
    ssize_t ignored = write(report, &error, sizeof error);
    (void)ignored;
    _exit(127);
}

}  // namespace

bool ResolveUser(const std::string& name, SpawnUser* user, std::string* why) {
    return Resolve(name.c_str(), getpwnam_r, "'" + name + "'", user, why);
}

bool ResolveUser(uid_t uid, SpawnUser* user, std::string* why) {
    return Resolve(uid, getpwuid_r, "with uid " + std::to_string(uid), user, why);
}

std::vector<std::string> OverrideEnv(std::vector<std::string> env,
                                     const std::vector<std::string>& overrides) {
    for (const std::string& entry : overrides) {
        const std::string key = entry.substr(0, entry.find('=') + 1);
        bool replaced = false;
        for (std::string& current : env)
            if (current.compare(0, key.size(), key) == 0) {
                current = entry;
                replaced = true;
            }
        if (!replaced)
            env.push_back(entry);
    }
    return env;
}

int SpawnApp(const std::string& executable, const std::vector<std::string>& argv,
             const std::vector<std::string>& env, const SpawnUser* user, pid_t* pid) {
    std::vector<char*> args = Pointers(argv);
    std::vector<char*> envp = Pointers(env);
    if (!user) {
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
        rc = posix_spawn(pid, executable.c_str(), nullptr, &attr, args.data(), envp.data());
        posix_spawnattr_destroy(&attr);
        return rc;
    }
    // The child reports a failed switch or exec through the pipe; a successful exec closes it.
    int report[2];
    if (pipe2(report, O_CLOEXEC) != 0)
        return errno;
    pid_t child = fork();
    if (child < 0) {
        int error = errno;
        close(report[0]);
        close(report[1]);
        return error;
    }
    if (child == 0) {
        close(report[0]);
        BecomeAndExec(executable.c_str(), args.data(), envp.data(), user, report[1]);
    }
    close(report[1]);
    int error = 0;
    ssize_t got;
    while ((got = read(report[0], &error, sizeof error)) < 0 && errno == EINTR) {
    }
    close(report[0]);
    if (got == static_cast<ssize_t>(sizeof error)) {
        while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
        }
        return error != 0 ? error : EIO;
    }
    *pid = child;
    return 0;
}

}  // namespace apps
}  // namespace host
