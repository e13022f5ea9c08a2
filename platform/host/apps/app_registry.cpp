#include "apps/app_registry.h"

#include <algorithm>
#include <cstdlib>

#include "apps/app_files.h"
#include "common/platform_root.h"

namespace host {
namespace apps {

namespace {

std::string RegistryDir() {
    return PlatformRoot() + "/apps";
}

// Registrations shipped with the installed package; the state root's win over them, so an
// operator can point an app elsewhere without touching the package's files.
std::string VendorDir() {
    const char* dir = std::getenv("QUILLON_VENDOR_APPS_DIR");
    return dir != nullptr ? dir : QUILLON_VENDOR_APPS_DIR;
}

bool LookUpIn(const std::string& dir, const std::string& appid, std::string* executable) {
    std::string content;
    if (dir.empty() || !ReadSmallFile(dir + "/" + appid, &content))
        return false;
    if (!content.empty() && content.back() == '\n')
        content.pop_back();
    // Anything but one absolute path was not written by Register().
    if (content.empty() || content[0] != '/' || content.find('\n') != std::string::npos)
        return false;
    *executable = content;
    return true;
}

}  // namespace

bool IsValidAppId(const std::string& appid) {
    if (appid.empty() || appid.size() > 255 || appid[0] == '.')
        return false;
    return std::all_of(appid.begin(), appid.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               c == '.' || c == '-' || c == '_';
    });
}

bool Register(const std::string& appid, const std::string& executable) {
    if (!IsValidAppId(appid) || executable.empty() || executable[0] != '/' ||
        executable.find('\n') != std::string::npos)
        return false;
    std::string dir = PlatformDir("apps");
    return !dir.empty() && WriteFileAtomically(dir, appid, executable + "\n");
}

bool LookUp(const std::string& appid, std::string* executable) {
    return IsValidAppId(appid) &&
           (LookUpIn(RegistryDir(), appid, executable) || LookUpIn(VendorDir(), appid, executable));
}

std::vector<std::pair<std::string, std::string>> Registrations() {
    std::vector<std::string> names = ListDirectory(RegistryDir());
    if (!VendorDir().empty()) {
        std::vector<std::string> vendor = ListDirectory(VendorDir());
        names.insert(names.end(), vendor.begin(), vendor.end());
    }
    std::sort(names.begin(), names.end());
    names.erase(std::unique(names.begin(), names.end()), names.end());
    std::vector<std::pair<std::string, std::string>> found;
    for (const std::string& name : names) {
        std::string executable;
        if (LookUp(name, &executable))
            found.emplace_back(name, executable);
    }
    return found;
}

}  // namespace apps
}  // namespace host
