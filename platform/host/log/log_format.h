// Pure pieces of the host log, kept apart from the writing so tests can check the text.
#pragma once

#include <cstdarg>
#include <string>

namespace host {

// The lowest dlog level that is written for a QUILLON_LOG_LEVEL value ("debug", "info",
// "warn", "error"); unset or unknown values mean "info".
int LogThreshold(const char* level_name);

// 'V', 'D', 'I', 'W', 'E', 'F', or '?' for a level outside those.
char LevelLetter(int prio);

// printf-style formatting of any length.
std::string FormatMessage(const char* fmt, va_list args);

// "I/PXM_CORE: message\n": one line whatever the message holds, so readers can split the
// stream on line feeds (trailing line feeds dropped, inner ones written as "\n").
std::string FormatLogLine(int prio, const char* tag, const std::string& message);

}  // namespace host
