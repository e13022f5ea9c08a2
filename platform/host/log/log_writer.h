// Lines on stderr, written in the order they were logged. A line that matters (WARN and
// worse) is on stderr, with every line before it, when Write returns; INFO and DEBUG lines
// are written by a thread of the log, so that a burst of them costs the logging thread no
// system call per line.
#pragma once

#include <string>

namespace host {
namespace log {

// Queues `line` (whole lines, each ending in a line feed). With `now`, or when too much is
// queued, writes it and everything queued before it first. The bytes taken, or -errno.
int Write(const std::string& line, bool now);

// Writes everything queued so far; at exit the log does this itself.
void Flush();

}  // namespace log
}  // namespace host
