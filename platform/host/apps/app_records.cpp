#include "apps/app_records.h"

#include <unistd.h>
#include <climits>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <sstream>

#include "apps/app_files.h"
#include "apps/process_info.h"
#include "common/platform_root.h"

namespace host {
namespace apps {

namespace {

std::string RecordsDir() {
    return PlatformRoot() + "/running";
}

std::string RecordPath(int pid) {
    return RecordsDir() + "/" + std::to_string(pid);
}

// A pid as a record's file name: decimal digits only, no sign, no leading zero.
bool ParsePidName(const std::string& name, int* pid) {
    if (name.empty() || name.size() > 9 || name[0] == '0' ||
        !std::all_of(name.begin(), name.end(), [](char c) { return c >= '0' && c <= '9'; }))
        return false;
    *pid = std::atoi(name.c_str());
    return *pid > 0;
}

bool ParseNumber(const std::string& text, unsigned long long* number) {
    if (text.empty() || text[0] < '0' || text[0] > '9')
        return false;
    errno = 0;
    char* end = nullptr;
    *number = std::strtoull(text.c_str(), &end, 10);
    return errno == 0 && *end == '\0';
}

// Removes the record unless it changed since `seen` was read: a launcher may just have
// written a fresh record for a reused pid.
void RemoveIfUnchanged(int pid, const std::string& seen) {
    std::string now;
    if (ReadSmallFile(RecordPath(pid), &now) && now == seen)
        unlink(RecordPath(pid).c_str());
}

// Reads running/PID; live: *app filled, true. Stale or damaged: removed, false.
bool ReadLive(int pid, RunningApp* app) {
    std::string content;
    if (!ReadSmallFile(RecordPath(pid), &content))
        return false;
    RunningApp parsed;
    if (!ParseRecord(content, pid, &parsed) || !proc::IsAlive(pid, parsed.start_time)) {
        RemoveIfUnchanged(pid, content);
        return false;
    }
    *app = parsed;
    return true;
}

}  // namespace

std::string FormatRecord(const RunningApp& app) {
    std::ostringstream out;
    out << "appid=" << app.appid << "\n"
        << "pkg=" << app.pkg_name << "\n"
        << "exec=" << app.executable << "\n"
        << "start=" << app.start_time << "\n"
        << "launcher=" << app.launcher << "\n";
    return out.str();
}

bool ParseRecord(const std::string& content, int pid, RunningApp* app) {
    RunningApp parsed;
    parsed.pid = pid;
    bool has_start = false;
    std::istringstream lines(content);
    std::string line;
    while (std::getline(lines, line)) {
        size_t equals = line.find('=');
        if (equals == std::string::npos)
            return false;
        std::string key = line.substr(0, equals);
        std::string value = line.substr(equals + 1);
        unsigned long long number = 0;
        if (key == "appid") {
            parsed.appid = value;
        } else if (key == "pkg") {
            parsed.pkg_name = value;
        } else if (key == "exec") {
            parsed.executable = value;
        } else if (key == "start") {
            if (!ParseNumber(value, &number))
                return false;
            parsed.start_time = number;
            has_start = true;
        } else if (key == "launcher") {
            // A pid: anything beyond an int is damage, not a number to wrap.
            if (!ParseNumber(value, &number) || number > static_cast<unsigned long long>(INT_MAX))
                return false;
            parsed.launcher = static_cast<int>(number);
        }
        // Other keys belong to a newer writer; they do not make the record unusable.
    }
    if (parsed.appid.empty() || !has_start)
        return false;
    if (parsed.pkg_name.empty())
        parsed.pkg_name = parsed.appid;
    *app = parsed;
    return true;
}

bool WriteRecord(const RunningApp& app) {
    if (app.pid <= 0 || app.appid.empty())
        return false;
    std::string dir = PlatformDir("running");
    return !dir.empty() && WriteFileAtomically(dir, std::to_string(app.pid), FormatRecord(app));
}

std::vector<RunningApp> LiveRecords() {
    std::vector<RunningApp> live;
    for (const std::string& name : ListDirectory(RecordsDir())) {
        int pid = 0;
        RunningApp app;
        if (ParsePidName(name, &pid) && ReadLive(pid, &app))
            live.push_back(app);
    }
    std::sort(live.begin(), live.end(),
              [](const RunningApp& a, const RunningApp& b) { return a.pid < b.pid; });
    return live;
}

bool FindLiveRecord(int pid, RunningApp* app) {
    return pid > 0 && ReadLive(pid, app);
}

void RemoveRecord(int pid, unsigned long long start_time) {
    std::string content;
    RunningApp recorded;
    if (pid > 0 && ReadSmallFile(RecordPath(pid), &content) &&
        ParseRecord(content, pid, &recorded) && recorded.start_time == start_time)
        RemoveIfUnchanged(pid, content);
}

}  // namespace apps
}  // namespace host
