#include "log/log_format.h"

#include <cstdio>
#include <cstring>
#include <ctime>
#include <vector>

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

std::string LineTime() {
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    struct tm utc;
    char text[64] = "?";
    if (gmtime_r(&now.tv_sec, &utc) != nullptr) {
        char seconds[32];
        std::strftime(seconds, sizeof(seconds), "%Y-%m-%dT%H:%M:%S", &utc);
        std::snprintf(text, sizeof(text), "%s.%03dZ", seconds,
                      static_cast<int>(now.tv_nsec / 1000000) % 1000);
    }
    return text;
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

std::string FormatMessage(const char* fmt, va_list args) {
    // One pass: the text past the cap is counted by vsnprintf but never kept. The three
    // bytes beyond the cap show whether the cut falls inside a character.
    char text[kMaxMessageBytes + 4];
    int needed = std::vsnprintf(text, sizeof(text), fmt, args);
    if (needed < 0)
        return std::string();
    size_t total = static_cast<size_t>(needed);
    if (total <= kMaxMessageBytes)
        return std::string(text, total);
    // Cut on a character boundary, never inside a UTF-8 sequence.
    size_t keep = kMaxMessageBytes;
    while (keep > 0 && (static_cast<unsigned char>(text[keep]) & 0xC0) == 0x80)
        --keep;
    return std::string(text, keep) + "\xE2\x80\xA6[" + std::to_string(total - keep) + " bytes cut]";
}

std::string FormatLogLine(int prio, const char* tag, const std::string& message) {
    size_t end = message.size();
    while (end > 0 && (message[end - 1] == '\n' || message[end - 1] == '\r'))
        --end;
    std::string line;
    line.reserve(end + 32);
    line += LevelLetter(prio);
    line += '/';
    line += tag ? tag : "";
    line += ": ";
    for (size_t i = 0; i < end; ++i) {
        if (message[i] == '\n')
            line += "\\n";
        else
            line += message[i];
    }
    line += '\n';
    return line;
}

}  // namespace host
