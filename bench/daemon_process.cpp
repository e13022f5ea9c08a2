#include "daemon_process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <set>

extern char** environ;

namespace bench {

pid_t StartProcess(const std::string& program, const std::vector<std::string>& env,
                   const std::string& log) {
    auto name_of = [](const std::string& entry) { return entry.substr(0, entry.find('=')); };
    std::set<std::string> overridden;
    for (const std::string& add : env) {
        overridden.insert(name_of(add));
    }
    std::vector<std::string> entries;
    for (char** e = environ; *e != nullptr; ++e) {
        if (overridden.count(name_of(*e)) == 0) {
            entries.push_back(*e);
        }
    }
    entries.insert(entries.end(), env.begin(), env.end());
    std::vector<char*> envp;
    for (std::string& entry : entries) {
        envp.push_back(&entry[0]);
    }
    envp.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (!log.empty()) {
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, log.c_str(),
                                         O_WRONLY | O_CREAT | O_APPEND, 0600);
    }
    std::string path = program;
    char* argv[] = {&path[0], nullptr};
    pid_t pid = -1;
    int rc = posix_spawn(&pid, path.c_str(), &actions, nullptr, argv, envp.data());
    posix_spawn_file_actions_destroy(&actions);
    return rc == 0 ? pid : -1;
}

bool StopProcess(pid_t pid, int timeout_ms) {
    if (pid <= 0) {
        return false;
    }
    kill(pid, SIGTERM);
    const gint64 until = g_get_monotonic_time() + static_cast<gint64>(timeout_ms) * 1000;
    while (g_get_monotonic_time() < until) {
        int status = 0;
        if (waitpid(pid, &status, WNOHANG) == pid) {
            return true;
        }
        g_usleep(2000);
    }
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    return false;
}

bool RunTool(const std::vector<std::string>& argv, std::string* out) {
    std::vector<char*> args;
    std::vector<std::string> copies = argv;
    for (std::string& arg : copies) {
        args.push_back(&arg[0]);
    }
    args.push_back(nullptr);
    gchar* standard_output = nullptr;
    gint status = 0;
    GError* error = nullptr;
    // Without `out` the tool's chatter is dropped; its failure still shows in the result.
    bool ran = g_spawn_sync(
        nullptr, args.data(), nullptr,
        static_cast<GSpawnFlags>(G_SPAWN_SEARCH_PATH | (out ? 0 : G_SPAWN_STDOUT_TO_DEV_NULL)),
        nullptr, nullptr, out ? &standard_output : nullptr, nullptr, &status, &error);
    if (!ran) {
        g_error_free(error);
        return false;
    }
    if (out != nullptr) {
        *out = standard_output ? standard_output : "";
        g_free(standard_output);
    }
    return g_spawn_check_wait_status(status, nullptr);
}

bool WaitForAnswer(GDBusConnection* connection, int timeout_ms) {
    const gint64 until = g_get_monotonic_time() + static_cast<gint64>(timeout_ms) * 1000;
    while (g_get_monotonic_time() < until) {
        GVariant* reply = g_dbus_connection_call_sync(
            connection, "org.nuvak.quillon", "/org/nuvak/quillon", "org.nuvak.quillon.GetInterface",
            "pxm_get_status", g_variant_new("(si)", "B0:C1:00:00:01:02", 2), G_VARIANT_TYPE("(i)"),
            G_DBUS_CALL_FLAGS_NO_AUTO_START, 5000, nullptr, nullptr);
        if (reply != nullptr) {
            g_variant_unref(reply);
            return true;
        }
        g_usleep(1000);
    }
    return false;
}

}  // namespace bench
