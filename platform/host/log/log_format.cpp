#include "log/log_format.h"

#include <pthread.h>
#include <stdio_ext.h>

#include <cstdio>
#include <cstring>
#include <ctime>
#include <new>

#include "dlog.h"

namespace host {

int LogThreshold(const char* level_name, bool* known) {
    struct Level {
        const char* name;
        int threshold;
    };
    static const Level kLevels[] = {
        {"debug", DLOG_VERBOSE}, {"info", DLOG_INFO}, {"warn", DLOG_WARN}, {"error", DLOG_ERROR}};
    if (known != nullptr)
        *known = level_name == nullptr || *level_name == '\0';
    if (level_name == nullptr)
        return DLOG_INFO;
    for (const Level& level : kLevels) {
        if (std::strcmp(level_name, level.name) == 0) {
            if (known != nullptr)
                *known = true;
            return level.threshold;
        }
    }
    return DLOG_INFO;
}

void AppendLineTime(std::string* out) {
    // The date and time change once a second: each thread formats them once per second.
    thread_local time_t formatted_second = -1;
    thread_local char seconds[32] = "?";
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    if (now.tv_sec != formatted_second) {
        struct tm utc;
        if (gmtime_r(&now.tv_sec, &utc) != nullptr &&
            std::strftime(seconds, sizeof(seconds), "%Y-%m-%dT%H:%M:%S", &utc) > 0) {
            formatted_second = now.tv_sec;
        } else {
            std::strcpy(seconds, "?");
        }
    }
    const int ms = static_cast<int>(now.tv_nsec / 1000000) % 1000;
    const char fraction[] = {'.',
                             static_cast<char>('0' + ms / 100),
                             static_cast<char>('0' + ms / 10 % 10),
                             static_cast<char>('0' + ms % 10),
                             'Z',
                             ' '};
    out->append(seconds);
    out->append(fraction, sizeof(fraction));
}

char LevelLetter(int prio) {
    switch (prio) {
        case DLOG_VERBOSE:
            return 'V';
        case DLOG_DEBUG:
            return 'D';
        case DLOG_INFO:
            return 'I';
        case DLOG_WARN:
            return 'W';
        case DLOG_ERROR:
            return 'E';
        case DLOG_FATAL:
            return 'F';
        default:
            return '?';
    }
}

namespace {

// Where a thread formats its messages: a stream whose writes keep the first bytes and count
// the rest. vsnprintf would walk the part past its buffer a few bytes at a time (about a
// millisecond for a 400 KB list in a message); a stream hands it over in one piece.
struct Formatter {
    FILE* stream = nullptr;
    char kept[kMaxMessageBytes + 4];  // the three bytes beyond the cap show a split character
    size_t total = 0;
    char buffer[8192];
};

ssize_t Keep(void* cookie, const char* data, size_t size) {
    Formatter* f = static_cast<Formatter*>(cookie);
    if (f->total < sizeof(f->kept)) {
        const size_t room = sizeof(f->kept) - f->total;
        std::memcpy(f->kept + f->total, data, size < room ? size : room);
    }
    f->total += size;
    return static_cast<ssize_t>(size);
}

void DropFormatter(void* data) {
    Formatter* f = static_cast<Formatter*>(data);
    std::fclose(f->stream);
    delete f;
}

// The calling thread's formatter, made on its first message; null when none can be made.
Formatter* ThreadFormatter() {
    static pthread_key_t key;
    static const bool keyed = pthread_key_create(&key, DropFormatter) == 0;
    if (!keyed)
        return nullptr;
    Formatter* f = static_cast<Formatter*>(pthread_getspecific(key));
    if (f != nullptr)
        return f;
    f = new (std::nothrow) Formatter();
    if (f == nullptr)
        return nullptr;
    cookie_io_functions_t io = {nullptr, Keep, nullptr, nullptr};
    f->stream = fopencookie(f, "w", io);
    if (f->stream == nullptr || setvbuf(f->stream, f->buffer, _IOFBF, sizeof(f->buffer)) != 0 ||
        pthread_setspecific(key, f) != 0) {
        if (f->stream != nullptr)
            std::fclose(f->stream);
        delete f;
        return nullptr;
    }
    // Only this thread ever uses it.
    __fsetlocking(f->stream, FSETLOCKING_BYCALLER);
    return f;
}

}  // namespace

std::string FormatMessage(const char* fmt, va_list args) {
    // Formatted once: the text past the cap is counted but never kept.
    const char* text;
    size_t total;
    char fallback[kMaxMessageBytes + 4];
    Formatter* f = ThreadFormatter();
    if (f != nullptr) {
        f->total = 0;
        if (std::vfprintf(f->stream, fmt, args) < 0 || std::fflush(f->stream) != 0) {
            std::clearerr(f->stream);
            return std::string();
        }
        text = f->kept;
        total = f->total;
    } else {
        int needed = std::vsnprintf(fallback, sizeof(fallback), fmt, args);
        if (needed < 0)
            return std::string();
        text = fallback;
        total = static_cast<size_t>(needed);
    }
    if (total <= kMaxMessageBytes)
        return std::string(text, total);
    // Cut on a character boundary, never inside a UTF-8 sequence.
    size_t keep = kMaxMessageBytes;
    while (keep > 0 && (static_cast<unsigned char>(text[keep]) & 0xC0) == 0x80)
        --keep;
    return std::string(text, keep) + "\xE2\x80\xA6[" + std::to_string(total - keep) + " bytes cut]";
}

void AppendLogLine(std::string* out, int prio, const char* tag, const std::string& message) {
    size_t end = message.size();
    while (end > 0 && (message[end - 1] == '\n' || message[end - 1] == '\r'))
        --end;
    out->push_back(LevelLetter(prio));
    out->push_back('/');
    out->append(tag ? tag : "");
    out->append(": ");
    const char* text = message.data();
    const char* stop = text + end;
    while (text < stop) {
        const char* feed = static_cast<const char*>(std::memchr(text, '\n', stop - text));
        if (feed == nullptr) {
            out->append(text, stop);
            break;
        }
        out->append(text, feed);
        out->append("\\n");
        text = feed + 1;
    }
    out->push_back('\n');
}

}  // namespace host
