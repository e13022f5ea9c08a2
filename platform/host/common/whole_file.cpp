#include "common/whole_file.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "common/missing_service.h"
#include "dlog.h"

namespace host {

namespace {

template <typename Bytes>
int ReadInto(int fd, size_t max, Bytes* out) {
    out->clear();
    char chunk[8192];
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

}  // namespace

int WriteAll(int fd, const void* data, size_t size) {
    const char* bytes = static_cast<const char*>(data);
    size_t done = 0;
    while (done < size) {
        ssize_t n = write(fd, bytes + done, size - done);
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

int ReadAll(int fd, size_t max, std::string* out) {
    return ReadInto(fd, max, out);
}

int ReadAll(int fd, size_t max, std::vector<uint8_t>* out) {
    return ReadInto(fd, max, out);
}

bool ReadSmallFile(const std::string& path, size_t max, std::string* content) {
    int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    int rc = ReadAll(fd, max, content);
    close(fd);
    return rc == 0;
}

int FsyncDir(const std::string& dir) {
    int fd = open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        return errno;
    int rc = fsync(fd) == 0 ? 0 : errno;
    close(fd);
    return rc;
}

int ReplaceFile(const std::string& dir, const std::string& name, const void* data, size_t size,
                bool sync_file) {
    // The writer's pid in the name tells a later start which leftovers nobody will rename.
    std::string temp = dir + "/" + kTempPrefix + std::to_string(getpid()) + "-XXXXXX";
    int fd = mkostemp(&temp[0], O_CLOEXEC);
    if (fd < 0)
        return errno;
    int rc = WriteAll(fd, data, size);
    if (rc == 0 && sync_file && fsync(fd) != 0)
        rc = errno;
    if (close(fd) != 0 && rc == 0)
        rc = errno;
    if (rc == 0 && rename(temp.c_str(), (dir + "/" + name).c_str()) != 0)
        rc = errno;
    if (rc != 0)
        unlink(temp.c_str());
    return rc;
}

int RemoveStaleTemps(const std::string& dir) {
    DIR* d = opendir(dir.c_str());
    if (d == nullptr)
        return 0;
    const size_t prefix = std::strlen(kTempPrefix);
    int removed = 0;
    while (struct dirent* e = readdir(d)) {
        if (std::strncmp(e->d_name, kTempPrefix, prefix) != 0)
            continue;
        // ".tmp-<pid>-XXXXXX"; older builds wrote ".tmp-XXXXXX", which no live writer uses.
        char* end = nullptr;
        long pid = std::strtol(e->d_name + prefix, &end, 10);
        bool tagged = end != e->d_name + prefix && *end == '-' && pid > 0;
        if (tagged && (pid == getpid() || kill(static_cast<pid_t>(pid), 0) == 0 || errno != ESRCH))
            continue;
        if (unlinkat(dirfd(d), e->d_name, 0) == 0)
            ++removed;
    }
    closedir(d);
    if (removed > 0) {
        __dlog_print(LOG_ID_SYSTEM, DLOG_WARN, kHostLogTag,
                     "removed %d temporary file(s) of killed writers from %s", removed,
                     dir.c_str());
    }
    return removed;
}

}  // namespace host
