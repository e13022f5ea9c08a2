// The registered apps: app id -> executable, one file per app under
// $QUILLON_PLATFORM_ROOT/apps, named after the id. Its first line is the executable's path;
// optional lines after it say how to launch it: "user=NAME" (run as that user),
// "session=1" (run as the user of the active graphical session, with its display),
// "env=KEY=VALUE" (one per variable the app needs). The
// installed package ships registrations in a vendor folder (<datadir>/quillon/apps, or
// $QUILLON_VENDOR_APPS_DIR; empty: none); a registration under the state root wins.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace host {
namespace apps {

// 1 to 255 characters of letters, digits, '.', '-' and '_', not starting with '.'
// ("org.nuvak.quillon-ux"), so an id is always a plain file name.
bool IsValidAppId(const std::string& appid);

struct Registration {
    std::string executable;        // absolute path
    std::string user;              // empty: the launcher's own user
    bool session = false;          // the active graphical session's user and display
    std::vector<std::string> env;  // "KEY=VALUE", set over the launcher's environment
};

// A user name or environment entry a registration may hold: no newline, a user name of
// 1 to 32 characters, an environment entry "KEY=VALUE" with a non-empty KEY without '='.
bool IsValidUserName(const std::string& user);
bool IsValidEnvEntry(const std::string& entry);

// Registers appid, replacing an earlier registration. The executable must be an absolute
// path; it need not exist yet (a launch fails until it does).
bool Register(const std::string& appid, const std::string& executable);
bool Register(const std::string& appid, const Registration& registration);

// The executable registered for appid; false when the id is invalid or not registered.
bool LookUp(const std::string& appid, std::string* executable);
bool LookUp(const std::string& appid, Registration* registration);

// Every registration as (appid, executable), sorted by id.
std::vector<std::pair<std::string, std::string>> Registrations();

}  // namespace apps
}  // namespace host
