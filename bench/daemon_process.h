// The daemon and the platform tool as child processes of a benchmark: started with extra
// environment and their stderr in a file, stopped with SIGTERM (SIGKILL when that takes too
// long), and the platform tool run to completion with its output captured.
#pragma once

#include <gio/gio.h>
#include <sys/types.h>

#include <string>
#include <vector>

namespace bench {

// Starts `program` with the environment plus `env` (NAME=VALUE each) and stderr appended to
// `log` (or inherited when empty). -1 when it could not be started.
pid_t StartProcess(const std::string& program, const std::vector<std::string>& env,
                   const std::string& log);

// SIGTERM, then waits up to `timeout_ms` (SIGKILL after that). True when it exited by itself.
bool StopProcess(pid_t pid, int timeout_ms);

// Runs argv to completion; true when it exited 0. Its stdout goes to `out` when given.
bool RunTool(const std::vector<std::string>& argv, std::string* out = nullptr);

// Calls pxm_get_status until the daemon answers, however it answers; false when it did not
// within `timeout_ms`.
bool WaitForAnswer(GDBusConnection* connection, int timeout_ms);

}  // namespace bench
