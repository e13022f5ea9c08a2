#include "app_files.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

namespace host {
namespace apps {

namespace {
// A registry entry is one path, a record a few lines.
constexpr size_t kMaxFileSize = 64 * 1024;
}  // namespace

bool WriteFileAtomically(const std::string& dir, const std::string& name,
                         const std::string& content) {
    std::string temp = dir + "/.tmp-XXXXXX";
    int fd = mkostemp(&temp[0], O_CLOEXEC);
    if (fd < 0)
        return false;
    bool ok = true;
    size_t done = 0;
    while (ok && done < content.size()) {
        ssize_t n = write(fd, content.data() + done, content.size() - done);
        if (n < 0 && errno == EINTR)
            continue;
        ok = n > 0;
        if (ok)
            done += static_cast<size_t>(n);
    }
    ok = (close(fd) == 0) && ok;
    if (ok)
        ok = rename(temp.c_str(), (dir + "/" + name).c_str()) == 0;
    if (!ok)
        unlink(temp.c_str());
    return ok;
}

bool ReadSmallFile(const std::string& path, std::string* content) {
    int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    content->clear();
    char buffer[4096];
    bool ok = true;
    for (;;) {
        ssize_t n = read(fd, buffer, sizeof(buffer));
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 || content->size() + static_cast<size_t>(n) > kMaxFileSize) {
            ok = false;
            break;
        }
        if (n == 0)
            break;
        content->append(buffer, static_cast<size_t>(n));
    }
    close(fd);
    return ok;
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
