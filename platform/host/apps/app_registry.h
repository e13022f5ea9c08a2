// The registered apps: app id -> executable, one file per app under
// $QUILLON_PLATFORM_ROOT/apps, named after the id and holding the executable's path. The
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

// Registers appid, replacing an earlier registration. The executable must be an absolute
// path; it need not exist yet (a launch fails until it does).
bool Register(const std::string& appid, const std::string& executable);

// The executable registered for appid; false when the id is invalid or not registered.
bool LookUp(const std::string& appid, std::string* executable);

// Every registration as (appid, executable), sorted by id.
std::vector<std::pair<std::string, std::string>> Registrations();

}  // namespace apps
}  // namespace host
