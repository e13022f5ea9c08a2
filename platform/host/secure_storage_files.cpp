#include "secure_storage_files.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace host {
namespace secure {

int WriteAll(int fd, const uint8_t* data, size_t size) {
    size_t done = 0;
    while (done < size) {
        ssize_t n = write(fd, data + done, size - done);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return errno;
        }
        if (n == 0)
            return EIO;
        done += static_cast<size_t>(n);
    }
    return 0;
}

int ReadAll(int fd, size_t max, std::vector<uint8_t>* out) {
    out->clear();
    uint8_t chunk[8192];
    for (;;) {
        ssize_t n = read(fd, chunk, sizeof(chunk));
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return errno;
        }
        if (n == 0)
            return 0;
        if (out->size() + static_cast<size_t>(n) > max)
            return EFBIG;
        out->insert(out->end(), chunk, chunk + n);
    }
}

int FsyncDir(const std::string& dir) {
    int fd = open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        return errno;
    int rc = fsync(fd) == 0 ? 0 : errno;
    close(fd);
    return rc;
}

int ReplaceDurably(const std::string& dir, const std::string& name,
                   const std::vector<uint8_t>& bytes) {
    // Hidden, so that it can never be taken for an item (item names never start with '.').
    std::string tmp = dir + "/.tmp-XXXXXX";
    std::vector<char> path(tmp.begin(), tmp.end());
    path.push_back('\0');
    int fd = mkostemp(path.data(), O_CLOEXEC);
    if (fd < 0)
        return errno;

    int rc = WriteAll(fd, bytes.data(), bytes.size());
    if (rc == 0 && fsync(fd) != 0)
        rc = errno;
    if (close(fd) != 0 && rc == 0)
        rc = errno;
    if (rc == 0 && rename(path.data(), (dir + "/" + name).c_str()) != 0)
        rc = errno;
    if (rc != 0) {
        unlink(path.data());
        return rc;
    }
    return FsyncDir(dir);
}

std::string AsideName(const std::string& name, time_t when, int n) {
    struct tm utc;
    gmtime_r(&when, &utc);
    char stamp[32];
    strftime(stamp, sizeof(stamp), "%Y%m%dT%H%M%SZ", &utc);
    std::string out = name + ".corrupt-" + stamp;
    if (n > 0)
        out += "-" + std::to_string(n);
    return out;
}

bool IsAsideName(const std::string& entry) {
    size_t at = entry.rfind(".corrupt-");
    if (at == std::string::npos)
        return false;
    const std::string rest = entry.substr(at + 9);
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

int MoveAside(const std::string& dir, const std::string& name, std::string* aside) {
    const std::string from = dir + "/" + name;
    time_t now = time(nullptr);
    for (int n = 0; n < 1000; ++n) {
        std::string candidate = AsideName(name, now, n);
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
