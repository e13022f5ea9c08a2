// Pure pieces of the host log, kept apart from the writing so tests can check the text.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <string>

namespace host {

// The lowest dlog level that is written for a QUILLON_LOG_LEVEL value ("debug", "info",
// "warn", "error"); unset or unknown values mean "info" (*known, when given, says which).
int LogThreshold(const char* level_name, bool* known = nullptr);

// Appends "2026-11-23T21:30:05.123Z ": the UTC time of a line on stderr, to the millisecond,
// and a blank.
void AppendLineTime(std::string* out);

// 'V', 'D', 'I', 'W', 'E', 'F', or '?' for a level outside those.
char LevelLetter(int prio);

// A message is cut at this many bytes, as platform loggers do: a whole device list in one
// line would cost megabytes per request. What is cut is said at the end.
constexpr size_t kMaxMessageBytes = 4096;

// printf-style formatting, formatted once; a longer message keeps its first
// kMaxMessageBytes (back to a character boundary) followed by "…[N bytes cut]".
std::string FormatMessage(const char* fmt, va_list args);

// Appends "I/PXM_CORE: message\n": one line whatever the message holds, so readers can
// split the stream on line feeds (trailing line feeds dropped, inner ones written as "\n").
void AppendLogLine(std::string* out, int prio, const char* tag, const std::string& message);

}  // namespace host
