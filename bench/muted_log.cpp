// The fake platform keeps every log line in memory and copies it to stderr, which would be
// most of what a benchmark measures and would grow without bound. Linking this definition
// first keeps the fake's log member out of the program: each line is still formatted, as
// any logger must, then dropped.
#include <atomic>
#include <cstdarg>
#include <cstdio>

#include "dlog.h"
#include "muted_log.h"

namespace {
std::atomic<std::uint64_t> g_lines{0};
}  // namespace

extern "C" int __dlog_print(log_id_t log_id, int prio, const char* tag, const char* fmt, ...) {
    (void)log_id;
    (void)prio;
    (void)tag;
    if (fmt == nullptr) {
        return -1;
    }
    // A bounded line, as a platform logger keeps; vsnprintf still walks the whole text.
    char line[1024];
    va_list args;
    va_start(args, fmt);
    int written = std::vsnprintf(line, sizeof(line), fmt, args);
    va_end(args);
    g_lines.fetch_add(1, std::memory_order_relaxed);
    return written;
}

namespace bench {

std::uint64_t LogLineCount() {
    return g_lines.load(std::memory_order_relaxed);
}

}  // namespace bench
