#include "apps/process_info.h"

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace host {
namespace proc {

namespace {

bool ReadFirstLine(const std::string& path, std::string* line) {
    std::ifstream in(path);
    return in && static_cast<bool>(std::getline(in, *line));
}

}  // namespace

bool ReadStat(int pid, ProcessStat* stat) {
    if (pid <= 0)
        return false;
    std::string line;
    if (!ReadFirstLine("/proc/" + std::to_string(pid) + "/stat", &line))
        return false;
    // The command name sits in parentheses and may itself hold blanks and ')'.
    size_t close = line.rfind(')');
    if (close == std::string::npos)
        return false;
    std::istringstream fields(line.substr(close + 1));
    // Fields 3 (state), 4 (parent) and 22 (start time) of proc(5).
    std::string field;
    ProcessStat parsed;
    for (int index = 3; index <= 22; ++index) {
        if (!(fields >> field))
            return false;
        char* end = nullptr;
        if (index == 3) {
            if (field.size() != 1)
                return false;
            parsed.state = field[0];
        } else if (index == 4) {
            parsed.parent = static_cast<int>(std::strtol(field.c_str(), &end, 10));
            if (*end != '\0')
                return false;
        } else if (index == 22) {
            parsed.start_time = std::strtoull(field.c_str(), &end, 10);
            if (*end != '\0')
                return false;
        }
    }
    *stat = parsed;
    return true;
}

bool IsAlive(int pid, unsigned long long start_time) {
    ProcessStat stat;
    if (!ReadStat(pid, &stat))
        return false;
    return stat.start_time == start_time && stat.state != 'Z' && stat.state != 'X' &&
           stat.state != 'x';
}

bool ReadComm(int pid, std::string* comm) {
    if (pid <= 0)
        return false;
    return ReadFirstLine("/proc/" + std::to_string(pid) + "/comm", comm);
}

}  // namespace proc
}  // namespace host
