#include "apps/app_registry.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

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

bool HasPrefix(const std::string& text, const char* prefix, std::string* rest) {
    size_t length = std::strlen(prefix);
    if (text.compare(0, length, prefix) != 0)
        return false;
    *rest = text.substr(length);
    return true;
}

// Anything Register() would not have written is no registration at all.
bool LookUpIn(const std::string& dir, const std::string& appid, Registration* registration) {
    std::string content;
    if (dir.empty() || !ReadSmallFile(dir + "/" + appid, &content))
        return false;
    if (!content.empty() && content.back() == '\n')
        content.pop_back();
    Registration found;
    size_t start = 0;
    for (bool first = true; start <= content.size(); first = false) {
        size_t end = content.find('\n', start);
        if (end == std::string::npos)
            end = content.size();
        std::string line = content.substr(start, end - start), value;
        start = end + 1;
        if (first) {
            if (line.empty() || line[0] != '/')
                return false;
            found.executable = line;
        } else if (HasPrefix(line, "user=", &value) && IsValidUserName(value)) {
            found.user = value;
        } else if (line == "session=1") {
            found.session = true;
        } else if (HasPrefix(line, "env=", &value) && IsValidEnvEntry(value)) {
            found.env.push_back(value);
        } else {
            return false;
        }
    }
    *registration = found;
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

bool IsValidUserName(const std::string& user) {
    return !user.empty() && user.size() <= 32 && user[0] != '-' &&
           user.find_first_of("\n:/ \t") == std::string::npos;
}

bool IsValidEnvEntry(const std::string& entry) {
    size_t equals = entry.find('=');
    return equals != std::string::npos && equals > 0 && entry.find('\n') == std::string::npos &&
           entry.find('\0') == std::string::npos;
}

bool Register(const std::string& appid, const std::string& executable) {
    Registration registration;
    registration.executable = executable;
    return Register(appid, registration);
}

bool Register(const std::string& appid, const Registration& registration) {
    const std::string& executable = registration.executable;
    if (!IsValidAppId(appid) || executable.empty() || executable[0] != '/' ||
        executable.find('\n') != std::string::npos ||
        (!registration.user.empty() && !IsValidUserName(registration.user)) ||
        !std::all_of(registration.env.begin(), registration.env.end(), IsValidEnvEntry))
        return false;
    std::string content = executable + "\n";
    if (!registration.user.empty())
        content += "user=" + registration.user + "\n";
    if (registration.session)
        content += "session=1\n";
    for (const std::string& entry : registration.env)
        content += "env=" + entry + "\n";
    std::string dir = PlatformDir("apps");
    return !dir.empty() && WriteFileAtomically(dir, appid, content);
}

bool LookUp(const std::string& appid, Registration* registration) {
    return IsValidAppId(appid) && (LookUpIn(RegistryDir(), appid, registration) ||
                                   LookUpIn(VendorDir(), appid, registration));
}

bool LookUp(const std::string& appid, std::string* executable) {
    Registration registration;
    if (!LookUp(appid, &registration))
        return false;
    *executable = registration.executable;
    return true;
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
