// App manager commands: register an app's executable, and list the registered apps and
// the apps running now (from the records every launcher leaves under the root).
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "apps/app_records.h"
#include "apps/app_registry.h"
#include "command.h"

namespace quillon_platform {

namespace {

std::string Absolute(const std::string& path) {
    if (!path.empty() && path[0] == '/')
        return path;
    char* cwd = getcwd(nullptr, 0);
    if (!cwd)
        return std::string();
    std::string absolute = std::string(cwd) + "/" + path;
    free(cwd);
    return absolute;
}

int RunRegisterApp(const Command& self, const std::vector<std::string>& all_args) {
    // The two positional words, then the launch options in any order.
    std::vector<std::string> args;
    host::apps::Registration registration;
    for (size_t i = 0; i < all_args.size(); ++i) {
        const std::string& word = all_args[i];
        if (word == "--session") {
            registration.session = true;
        } else if (word == "--user" || word == "--env") {
            if (i + 1 == all_args.size())
                return BadInput(self, word + " needs a value");
            const std::string& value = all_args[++i];
            if (word == "--user" && !host::apps::IsValidUserName(value))
                return BadInput(self, "invalid user name '" + value + "'");
            if (word == "--env" && !host::apps::IsValidEnvEntry(value))
                return BadInput(self, "--env takes KEY=VALUE, not '" + value + "'");
            if (word == "--user")
                registration.user = value;
            else
                registration.env.push_back(value);
        } else {
            args.push_back(word);
        }
    }
    int status = kExitOk;
    if (!ExpectArgs(self, args, 2, &status))
        return status;
    if (!host::apps::IsValidAppId(args[0]))
        return BadInput(self, "invalid app id '" + args[0] +
                                  "' (letters, digits, '.', '-', '_'; not starting with '.')");
    if (args[1].empty() || args[1].find('\n') != std::string::npos)
        return BadInput(self, "invalid executable path");
    std::string executable = Absolute(args[1]);
    if (executable.empty()) {
        std::fprintf(stderr, "quillon-platform: cannot resolve '%s'\n", args[1].c_str());
        return kExitFailed;
    }
    struct stat info;
    if (stat(executable.c_str(), &info) != 0 || !S_ISREG(info.st_mode) ||
        access(executable.c_str(), X_OK) != 0)
        // Registering before building is fine; a launch fails until the file is there.
        std::fprintf(stderr, "quillon-platform: warning: '%s' is not an executable file\n",
                     executable.c_str());
    registration.executable = executable;
    if (!host::apps::Register(args[0], registration)) {
        std::fprintf(stderr, "quillon-platform: could not register '%s'\n", args[0].c_str());
        return kExitFailed;
    }
    return kExitOk;
}

int RunApps(const Command& self, const std::vector<std::string>& args) {
    int status = kExitOk;
    if (!ExpectArgs(self, args, 0, &status))
        return status;
    for (const auto& [appid, executable] : host::apps::Registrations())
        std::printf("registered\t%s\t%s\n", appid.c_str(), executable.c_str());
    for (const auto& app : host::apps::LiveRecords())
        std::printf("running\t%d\t%s\t%s\n", app.pid, app.appid.c_str(), app.executable.c_str());
    return kExitOk;
}

const CommandRegistrar kRegistrar({
    {"register-app", "register-app APPID EXECUTABLE [--user NAME] [--session] [--env KEY=VALUE]...",
     "register (or replace) the executable of an app id; it runs as user NAME, or as the user "
     "of the active graphical session (--session, with its display), with the given "
     "environment set over the launcher's",
     RunRegisterApp},
    {"apps", "apps", "list registered and running apps, one per line, tab-separated", RunApps},
});

}  // namespace

}  // namespace quillon_platform
