// The platform log on a Linux host: one line per call on stderr, or structured fields
// when stderr is connected to the journal.
#define SD_JOURNAL_SUPPRESS_LOCATION  // this file's location would only mislead readers
#include <errno.h>
#include <sys/stat.h>
#include <syslog.h>
#include <systemd/sd-journal.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>

#include "dlog.h"
#include "log/log_format.h"
#include "log/log_writer.h"

namespace {

// JOURNAL_STREAM is inherited by children whose stderr may be elsewhere, so it only
// counts when it names the device and inode stderr really has.
bool StderrIsJournal() {
    const char* stream = std::getenv("JOURNAL_STREAM");
    if (!stream || !*stream)
        return false;
    unsigned long long device = 0, inode = 0;
    if (std::sscanf(stream, "%llu:%llu", &device, &inode) != 2)
        return false;
    struct stat st;
    if (fstat(STDERR_FILENO, &st) != 0)
        return false;
    if (static_cast<unsigned long long>(st.st_dev) != device ||
        static_cast<unsigned long long>(st.st_ino) != inode)
        return false;
    // Without journald's socket sd_journal_send drops the message and still reports success.
    // Asked once: the socket does not come and go while we run.
    static const bool socket_usable = access("/run/systemd/journal/socket", W_OK) == 0;
    return socket_usable;
}

int SyslogPriority(int prio) {
    if (prio >= DLOG_FATAL)
        return LOG_CRIT;
    if (prio == DLOG_ERROR)
        return LOG_ERR;
    if (prio == DLOG_WARN)
        return LOG_WARNING;
    if (prio == DLOG_INFO)
        return LOG_INFO;
    return LOG_DEBUG;
}

// One line on stderr: its time, then the line. WARN and worse are written before the call
// returns; the rest goes out with the log's next batch.
int WriteLine(int prio, const char* tag, const std::string& message) {
    std::string line;
    line.reserve(message.size() + 64);
    host::AppendLineTime(&line);
    host::AppendLogLine(&line, prio, tag, message);
    return host::log::Write(line, prio >= DLOG_WARN);
}

// Says once per unknown value which words QUILLON_LOG_LEVEL takes.
void WarnUnknownLevel(const char* value) {
    static std::mutex lock;
    static std::string warned;
    {
        std::lock_guard<std::mutex> hold(lock);
        if (warned == value)
            return;
        warned = value;
    }
    WriteLine(DLOG_WARN, "QUILLON_HOST",
              std::string("QUILLON_LOG_LEVEL '") + value +
                  "' is not one of debug, info, warn, error; using info");
}

}  // namespace

extern "C" int __dlog_print(log_id_t log_id, int prio, const char* tag, const char* fmt, ...) {
    (void)log_id;
    if (!fmt)
        return -EINVAL;
    const char* level = std::getenv("QUILLON_LOG_LEVEL");
    bool known = true;
    int threshold = host::LogThreshold(level, &known);
    if (!known)
        WarnUnknownLevel(level);
    if (prio == DLOG_SILENT || prio < threshold)
        return 0;
    if (!tag)
        tag = "";

    va_list args;
    va_start(args, fmt);
    std::string message = host::FormatMessage(fmt, args);
    va_end(args);

    if (StderrIsJournal()) {
        // Lines queued for stderr before this one go first.
        host::log::Flush();
        int rc = sd_journal_send("MESSAGE=%s", message.c_str(), "PRIORITY=%d", SyslogPriority(prio),
                                 "SYSLOG_IDENTIFIER=quillon", "QUILLON_TAG=%s", tag, NULL);
        if (rc >= 0)
            return static_cast<int>(message.size());
        // The journal refused: a line on stderr still reaches it through the stream.
    }
    // The journal keeps its own time; a line on stderr carries it.
    return WriteLine(prio, tag, message);
}
