#include "apps/app_registry.h"

#include <algorithm>

#include "apps/app_files.h"
#include "common/platform_root.h"

namespace host {
namespace apps {

namespace {

std::string RegistryDir() {
    return PlatformRoot() + "/apps";
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
    if (!IsValidAppId(appid))
        return false;
    std::string content;
    if (!ReadSmallFile(RegistryDir() + "/" + appid, &content))
        return false;
    if (!content.empty() && content.back() == '\n')
        content.pop_back();
    // Anything but one absolute path was not written by Register().
    if (content.empty() || content[0] != '/' || content.find('\n') != std::string::npos)
        return false;
    *executable = content;
    return true;
}

std::vector<std::pair<std::string, std::string>> Registrations() {
    std::vector<std::pair<std::string, std::string>> found;
    for (const std::string& name : ListDirectory(RegistryDir())) {
        std::string executable;
        if (LookUp(name, &executable))
            found.emplace_back(name, executable);
    }
    std::sort(found.begin(), found.end());
    return found;
}

}  // namespace apps
}  // namespace host
