// Platform log: every line is captured for the tests and also written to stderr, where
// death tests look for it.
#include <unistd.h>

#include <chrono>
#include <cstdarg>
#include <cstdio>

#include "common/fake_state.h"
#include "dlog.h"

namespace {

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

std::string Format(const char* fmt, va_list args) {
    va_list probe;
    va_copy(probe, args);
    int needed = std::vsnprintf(nullptr, 0, fmt, probe);
    va_end(probe);
    if (needed <= 0) {
        return std::string();
    }
    std::string text(static_cast<std::size_t>(needed) + 1, '\0');
    std::vsnprintf(&text[0], text.size(), fmt, args);
    text.resize(static_cast<std::size_t>(needed));
    return text;
}

bool Contains(const fake::LogLine& line, const std::string& text) {
    return line.text.find(text) != std::string::npos;
}

}  // namespace

extern "C" int __dlog_print(log_id_t log_id, int prio, const char* tag, const char* fmt, ...) {
    (void)log_id;
    if (fmt == nullptr) {
        return -1;
    }
    va_list args;
    va_start(args, fmt);
    std::string text = Format(fmt, args);
    va_end(args);
    std::string tag_text = tag ? tag : "";

    // One write per line so that lines of concurrent threads never interleave.
    std::string out = std::string(1, LevelLetter(prio)) + "/" + tag_text + ": " + text + "\n";
    ssize_t ignored = ::write(STDERR_FILENO, out.data(), out.size());
    (void)ignored;

    auto& s = fake::detail::GetState();
    {
        std::lock_guard<std::mutex> lock(s.mutex);
        s.data.logs.push_back(fake::LogLine{prio, tag_text, text});
    }
    s.journal_grew.notify_all();
    return static_cast<int>(text.size());
}

namespace fake {

using detail::GetState;

std::vector<LogLine> Logs() {
    auto& s = GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.data.logs;
}

bool HasLog(const std::string& text, int level, const std::string& tag) {
    auto& s = GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    for (const auto& line : s.data.logs) {
        if (Contains(line, text) && (level < 0 || line.level == level) &&
            (tag.empty() || line.tag == tag)) {
            return true;
        }
    }
    return false;
}

std::size_t CountLogs(const std::string& text) {
    auto& s = GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    std::size_t n = 0;
    for (const auto& line : s.data.logs) {
        n += Contains(line, text) ? 1 : 0;
    }
    return n;
}

long FindLog(const std::string& text, std::size_t from) {
    auto& s = GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    for (std::size_t i = from; i < s.data.logs.size(); ++i) {
        if (Contains(s.data.logs[i], text)) {
            return static_cast<long>(i);
        }
    }
    return -1;
}

bool WaitForLog(const std::string& text, int timeout_ms) {
    auto& s = GetState();
    std::unique_lock<std::mutex> lock(s.mutex);
    auto seen = [&] {
        for (const auto& line : s.data.logs) {
            if (Contains(line, text)) {
                return true;
            }
        }
        return false;
    };
    return s.journal_grew.wait_for(lock, std::chrono::milliseconds(timeout_ms), seen);
}

void ClearLogs() {
    auto& s = GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.data.logs.clear();
}

}  // namespace fake
