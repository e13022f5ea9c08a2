// What /proc says about a process: enough to tell a live app from a dead one whose pid
// has been handed to someone else.
#pragma once

#include <string>

namespace host {
namespace proc {

struct ProcessStat {
    char state = '?';                   // 'R', 'S', 'Z', ...
    int parent = 0;                     // the parent's pid
    unsigned long long start_time = 0;  // clock ticks after boot; unique per pid at any time
};

// False when the process does not exist (any more) or its stat cannot be read.
bool ReadStat(int pid, ProcessStat* stat);

// True while pid names the process that started at start_time and has not ended: a zombie
// has ended, and another start time means the pid was reused.
bool IsAlive(int pid, unsigned long long start_time);

// The process's command name (/proc/PID/comm without its line feed).
bool ReadComm(int pid, std::string* comm);

}  // namespace proc
}  // namespace host
