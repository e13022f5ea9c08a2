// Starting an app's process: as the launcher's own user (posix_spawn), or as another user,
// dropping to it in the child between fork and exec so the app never holds root or a
// capability of the launcher's.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace host {
namespace apps {

struct SpawnUser {
    std::string name;
    uid_t uid = 0;
    gid_t gid = 0;
    std::string home;
    std::vector<gid_t> groups;  // supplementary, the user's own
};

// The user's ids and groups from the user database; false with *why when unknown.
bool ResolveUser(const std::string& name, SpawnUser* user, std::string* why);
bool ResolveUser(uid_t uid, SpawnUser* user, std::string* why);

// Starts executable with argv (argv[0] included) and the environment env ("KEY=VALUE"),
// signals at their defaults and none blocked. With user, the child takes the user's
// groups, gid and uid and drops every capability (ambient, permitted, effective) before
// the exec. 0 and *pid, or the errno of what failed (the fork, the switch or the exec).
int SpawnApp(const std::string& executable, const std::vector<std::string>& argv,
             const std::vector<std::string>& env, const SpawnUser* user, pid_t* pid);

// env with each entry of overrides set over the entry of the same key.
std::vector<std::string> OverrideEnv(std::vector<std::string> env,
                                     const std::vector<std::string>& overrides);

}  // namespace apps
}  // namespace host
