// One record per running app under $QUILLON_PLATFORM_ROOT/running, named after its pid, so
// that any process (a restarted daemon, quillon-platform) sees apps it did not launch.
// A record whose process is gone, or whose pid now belongs to a process with another start
// time, is stale: readers ignore it and remove it.
#pragma once

#include <string>
#include <vector>

namespace host {
namespace apps {

struct RunningApp {
    int pid = 0;
    std::string appid;
    std::string pkg_name;
    std::string executable;
    unsigned long long start_time = 0;  // the process's start time in /proc (clock ticks)
    int launcher = 0;                   // pid of the process that launched it
};

// Writes (or replaces) running/PID.
bool WriteRecord(const RunningApp& app);

// The records of live apps, sorted by pid; stale and damaged records are removed.
std::vector<RunningApp> LiveRecords();

// The live record of pid; a stale one is removed.
bool FindLiveRecord(int pid, RunningApp* app);

// Removes running/PID when it still describes the process that started at start_time.
void RemoveRecord(int pid, unsigned long long start_time);

// The record's file content, and back; exposed for the tests of the format.
std::string FormatRecord(const RunningApp& app);
bool ParseRecord(const std::string& content, int pid, RunningApp* app);

}  // namespace apps
}  // namespace host
