#include "secure_storage/secure_storage_files.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace host {
namespace secure {

int ReplaceDurably(const std::string& dir, const std::string& name,
                   const std::vector<uint8_t>& bytes) {
    // The temporary name is hidden, so it is never taken for an item (item names never
    // start with '.').
    int rc = ReplaceFile(dir, name, bytes.data(), bytes.size(), true);
    return rc != 0 ? rc : FsyncDir(dir);
}

std::string AsideName(const std::string& name, const char* why, time_t when, int n) {
    struct tm utc;
    gmtime_r(&when, &utc);
    char stamp[32];
    strftime(stamp, sizeof(stamp), "%Y%m%dT%H%M%SZ", &utc);
    std::string out = name + "." + why + "-" + stamp;
    if (n > 0)
        out += "-" + std::to_string(n);
    return out;
}

bool IsAsideName(const std::string& entry) {
    std::string rest;
    for (const char* why : {kCorrupt, kUnreadable}) {
        const std::string marker = std::string(".") + why + "-";
        size_t at = entry.rfind(marker);
        if (at != std::string::npos)
            rest = entry.substr(at + marker.size());
    }
    // YYYYMMDDTHHMMSSZ, then optionally -N.
    if (rest.size() < 16)
        return false;
    for (size_t i = 0; i < 16; ++i) {
        char c = rest[i];
        bool ok = (i == 8) ? c == 'T' : (i == 15) ? c == 'Z' : (c >= '0' && c <= '9');
        if (!ok)
            return false;
    }
    if (rest.size() == 16)
        return true;
    if (rest[16] != '-' || rest.size() == 17)
        return false;
    for (size_t i = 17; i < rest.size(); ++i) {
        if (rest[i] < '0' || rest[i] > '9')
            return false;
    }
    return true;
}

int MoveAside(const std::string& dir, const std::string& name, const char* why,
              std::string* aside) {
    const std::string from = dir + "/" + name;
    time_t now = time(nullptr);
    for (int n = 0; n < 1000; ++n) {
        std::string candidate = AsideName(name, why, now, n);
        const std::string to = dir + "/" + candidate;
        // Never replaces an earlier aside file: each one may be the only copy of some damage.
        if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) {
            *aside = candidate;
            return FsyncDir(dir);
        }
        if (errno == EEXIST)
            continue;
        if (errno != EINVAL && errno != ENOSYS)
            return errno;
        // A file system without RENAME_NOREPLACE: link refuses an existing name too.
        if (link(from.c_str(), to.c_str()) != 0) {
            if (errno == EEXIST)
                continue;
            return errno;
        }
        if (unlink(from.c_str()) != 0)
            return errno;
        *aside = candidate;
        return FsyncDir(dir);
    }
    return EEXIST;
}

ExclusiveFileLock::ExclusiveFileLock(const std::string& path) {
    fd_ = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd_ < 0)
        return;
    while (flock(fd_, LOCK_EX) != 0) {
        if (errno == EINTR)
            continue;
        close(fd_);
        fd_ = -1;
        return;
    }
}

ExclusiveFileLock::~ExclusiveFileLock() {
    if (fd_ >= 0)
        close(fd_);  // closing releases the flock
}

}  // namespace secure
}  // namespace host
