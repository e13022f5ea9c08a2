#include "apps/app_files.h"

#include <dirent.h>

#include "common/whole_file.h"

namespace host {
namespace apps {

namespace {
// A registry entry is one path, a record a few lines.
constexpr size_t kMaxFileSize = 64 * 1024;
}  // namespace

bool WriteFileAtomically(const std::string& dir, const std::string& name,
                         const std::string& content) {
    return ReplaceFile(dir, name, content.data(), content.size(), false) == 0;
}

bool ReadSmallFile(const std::string& path, std::string* content) {
    return host::ReadSmallFile(path, kMaxFileSize, content);
}

std::vector<std::string> ListDirectory(const std::string& dir) {
    std::vector<std::string> names;
    DIR* handle = opendir(dir.c_str());
    if (!handle)
        return names;
    while (struct dirent* entry = readdir(handle)) {
        if (entry->d_name[0] != '.')
            names.emplace_back(entry->d_name);
    }
    closedir(handle);
    return names;
}

}  // namespace apps
}  // namespace host
