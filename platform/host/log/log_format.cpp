#include "log/log_format.h"

#include <cstdio>
#include <cstring>
#include <vector>

#include "dlog.h"

namespace host {

int LogThreshold(const char* level_name) {
    if (!level_name)
        return DLOG_INFO;
    if (std::strcmp(level_name, "debug") == 0)
        return DLOG_VERBOSE;
    if (std::strcmp(level_name, "warn") == 0)
        return DLOG_WARN;
    if (std::strcmp(level_name, "error") == 0)
        return DLOG_ERROR;
    return DLOG_INFO;
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
    char small[512];
    va_list copy;
    va_copy(copy, args);
    int needed = std::vsnprintf(small, sizeof(small), fmt, copy);
    va_end(copy);
    if (needed < 0)
        return std::string();
    if (static_cast<size_t>(needed) < sizeof(small))
        return std::string(small, needed);
    std::vector<char> large(static_cast<size_t>(needed) + 1);
    std::vsnprintf(large.data(), large.size(), fmt, args);
    return std::string(large.data(), static_cast<size_t>(needed));
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
