// Counts the flushes of a process, by thread, for the bus benchmarks (LD_PRELOAD).
//
//   QUILLON_BENCH_SYNC_LOG  a file that gets one byte per fsync, fdatasync, syncfs or
//                           sync_file_range: 'M' when the main thread called it, 'O' for any
//                           other thread
//
// The benchmark compares the file's counts before and after a batch of calls. Every call goes
// on to the C library unchanged.
#define _GNU_SOURCE
#include <dlfcn.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <unistd.h>

static int g_log = -1;

// Opened before the program runs, so that no thread races to open it.
__attribute__((constructor)) static void OpenLog(void) {
    const char* path = getenv("QUILLON_BENCH_SYNC_LOG");
    if (path)
        g_log = open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
}

static void Note(void) {
    if (g_log < 0)
        return;
    const char mark = syscall(SYS_gettid) == getpid() ? 'M' : 'O';
    ssize_t ignored = write(g_log, &mark, 1);
    (void)ignored;
}

static void* Next(const char* name) {
    void* next = dlsym(RTLD_NEXT, name);
    if (next == NULL)
        abort();
    return next;
}

int fsync(int fd) {
    static int (*next)(int);
    if (!next)
        next = (int (*)(int))Next("fsync");
    Note();
    return next(fd);
}

int fdatasync(int fd) {
    static int (*next)(int);
    if (!next)
        next = (int (*)(int))Next("fdatasync");
    Note();
    return next(fd);
}

int syncfs(int fd) {
    static int (*next)(int);
    if (!next)
        next = (int (*)(int))Next("syncfs");
    Note();
    return next(fd);
}

int sync_file_range(int fd, off64_t offset, off64_t nbytes, unsigned int flags) {
    static int (*next)(int, off64_t, off64_t, unsigned int);
    if (!next)
        next = (int (*)(int, off64_t, off64_t, unsigned int))Next("sync_file_range");
    Note();
    return next(fd, offset, nbytes, flags);
}
