#include "common/platform_root.h"

#include <errno.h>
#include <sys/stat.h>

#include <cstdlib>

namespace host {

std::string PlatformRoot() {
    const char* root = std::getenv("QUILLON_PLATFORM_ROOT");
    return (root && *root) ? std::string(root) : std::string("/var/lib/quillon");
}

static bool MakeDirs(const std::string& path) {
    std::string partial;
    size_t pos = 0;
    while (pos != std::string::npos) {
        pos = path.find('/', pos + 1);
        partial = path.substr(0, pos);
        if (partial.empty())
            continue;
        if (mkdir(partial.c_str(), 0700) != 0 && errno != EEXIST)
            return false;
    }
    return true;
}

std::string PlatformDir(const std::string& sub) {
    std::string dir = PlatformRoot() + "/" + sub;
    return MakeDirs(dir) ? dir : std::string();
}

}  // namespace host
