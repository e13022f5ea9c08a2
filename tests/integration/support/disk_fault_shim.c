// A full or failing disk for one directory, preloaded into the daemon (LD_PRELOAD) by the
// integration tests.
//
//   QUILLON_DISK_FAULT_DIR     files under this directory (absolute, no symbolic links) fail
//   QUILLON_DISK_FAULT_SWITCH  ... while this file exists
//
// The switch file's content says how: an errno name (ENOSPC, the default, or EIO), then the
// calls that fail, separated by blanks (when none are named, all of those below: the ones the
// daemon and its libraries call). "EIO fsync fdatasync" is a disk that takes the data and
// loses it at the flush. Everything else goes to the C library untouched, so the switch can
// be flipped while the process runs.
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <sys/uio.h>
#include <unistd.h>

static void* Next(const char* name) {
    void* next = dlsym(RTLD_NEXT, name);
    if (next == NULL) {
        static const char message[] = "disk_fault_shim: a C library call is missing\n";
        syscall(SYS_write, 2, message, sizeof(message) - 1);  // not through ourselves
        abort();
    }
    return next;
}

// The errno value `call` must fail with now, or 0 when it goes through.
static int FaultFor(const char* call) {
    const char* switch_path = getenv("QUILLON_DISK_FAULT_SWITCH");
    if (switch_path == NULL || access(switch_path, F_OK) != 0)
        return 0;
    char spec[256] = "";
    int fd = open(switch_path, O_RDONLY | O_CLOEXEC);
    if (fd >= 0) {
        ssize_t n = read(fd, spec, sizeof(spec) - 1);
        spec[n > 0 ? n : 0] = '\0';
        close(fd);
    }
    int code = ENOSPC;
    int named = 0, listed = 0;
    for (char *save = NULL, *word = strtok_r(spec, " \t\n", &save); word != NULL;
         word = strtok_r(NULL, " \t\n", &save)) {
        if (strcmp(word, "EIO") == 0) {
            code = EIO;
        } else if (strcmp(word, "ENOSPC") == 0) {
            code = ENOSPC;
        } else {
            named = 1;
            listed = listed || strcmp(word, call) == 0;
        }
    }
    return !named || listed ? code : 0;
}

static int UnderFaultDir(const char* path) {
    const char* dir = getenv("QUILLON_DISK_FAULT_DIR");
    if (dir == NULL || *dir == '\0' || path == NULL)
        return 0;
    size_t len = strlen(dir);
    return strncmp(path, dir, len) == 0 && (path[len] == '/' || path[len] == '\0');
}

static int FdUnderFaultDir(int fd) {
    char link[64], path[4096];
    snprintf(link, sizeof(link), "/proc/self/fd/%d", fd);
    ssize_t n = readlink(link, path, sizeof(path) - 1);
    if (n <= 0)
        return 0;
    path[n] = '\0';
    return UnderFaultDir(path);
}

// Opens a stand-in: resolves `next`, the call it stands in front of, and fails with the
// switch's errno when the switch is on and `under` (looked at only then) holds. A call that
// goes through finds errno as its caller left it.
#define STAND_IN_FOR(call, under)              \
    static __typeof__(&call) next;             \
    if (next == NULL) {                        \
        next = (__typeof__(&call))Next(#call); \
    }                                          \
    int errno_ = errno;                        \
    int code_ = FaultFor(#call);               \
    if (code_ != 0 && (under)) {               \
        errno = code_;                         \
        return -1;                             \
    }                                          \
    errno = errno_;

ssize_t write(int fd, const void* buf, size_t count) {
    STAND_IN_FOR(write, FdUnderFaultDir(fd))
    return next(fd, buf, count);
}

ssize_t writev(int fd, const struct iovec* iov, int iovcnt) {
    STAND_IN_FOR(writev, FdUnderFaultDir(fd))
    return next(fd, iov, iovcnt);
}

// SQLite writes its database and its write-ahead log with this one.
ssize_t pwrite64(int fd, const void* buf, size_t count, off64_t offset) {
    STAND_IN_FOR(pwrite64, FdUnderFaultDir(fd))
    return next(fd, buf, count, offset);
}

int fsync(int fd) {
    STAND_IN_FOR(fsync, FdUnderFaultDir(fd))
    return next(fd);
}

int fdatasync(int fd) {
    STAND_IN_FOR(fdatasync, FdUnderFaultDir(fd))
    return next(fd);
}

int rename(const char* from, const char* to) {
    STAND_IN_FOR(rename, UnderFaultDir(from) || UnderFaultDir(to))
    return next(from, to);
}

// Taken to name absolute paths, as every caller in the platform does.
int renameat2(int from_dir, const char* from, int to_dir, const char* to, unsigned int flags) {
    STAND_IN_FOR(renameat2, UnderFaultDir(from) || UnderFaultDir(to))
    return next(from_dir, from, to_dir, to, flags);
}
