// The host app manager: registered apps launched with their bundle as arguments, the
// running-app records that other processes (a restarted daemon, quillon-platform) read,
// termination, and app death reported on the default main context.
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "aul.h"
#include "bundle.h"
#include "host_test_support.h"

namespace fs = std::filesystem;

using host_test::ReadFile;
using host_test::Tool;

namespace {

constexpr const char* kUxAppId = "org.nuvak.quillon-ux";

struct Deaths {
    std::vector<int> pids;
    std::vector<std::string> names;  // the package name the listener could still look up
};

int RecordDeath(int pid, void* data) {
    auto* deaths = static_cast<Deaths*>(data);
    char name[256] = {};
    aul_app_get_pkgname_bypid(pid, name, sizeof(name));
    deaths->pids.push_back(pid);
    deaths->names.push_back(name);
    return 0;
}

struct Seen {
    int pid;
    std::string pkg_name;
    std::string appid;
    std::string app_path;
    bool operator<(const Seen& other) const { return pid < other.pid; }
};

int CollectApp(const aul_app_info* info, void* data) {
    static_cast<std::vector<Seen>*>(data)->push_back(
        {info->pid, info->pkg_name, info->appid, info->app_path});
    return 0;
}

// Field 22 of /proc/PID/stat, as the records keep it; 0 when there is no such process.
unsigned long long StartTime(int pid) {
    std::string stat = ReadFile("/proc/" + std::to_string(pid) + "/stat");
    if (stat.rfind(')') == std::string::npos)
        return 0;
    std::istringstream fields(stat.substr(stat.rfind(')') + 2));
    std::string field;
    for (int index = 3; index <= 22; ++index)
        fields >> field;
    return std::stoull(field);
}

// A pid no process can have.
int UnusedPid() {
    return std::stoi(ReadFile("/proc/sys/kernel/pid_max")) + 1;
}

class HostAppManager : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(aul_listen_app_dead_signal(RecordDeath, &deaths_), AUL_R_OK);
    }

    void TearDown() override {
        aul_listen_app_dead_signal(nullptr, nullptr);
        // Only apps still running as launched: an ended app's pid may belong to anyone now.
        for (const auto& [pid, start] : launched_)
            if (StartTime(pid) == start)
                kill(pid, SIGKILL);
    }

    // Writes an executable shell script under the root and returns its path.
    std::string Script(const std::string& name, const std::string& body) {
        const std::string path = root_ + "/" + name;
        std::ofstream(path) << "#!/bin/sh\n" << body << "\n";
        chmod(path.c_str(), 0755);
        return path;
    }

    void Register(const std::string& appid, const std::string& executable) {
        Tool({"register-app", appid, executable});
    }

    int Launch(const std::string& appid, bundle* b = nullptr) {
        int pid = aul_launch_app(appid.c_str(), b);
        if (pid > 0)
            launched_.emplace_back(pid, StartTime(pid));
        return pid;
    }

    bool WaitForDeath(int pid) {
        return host_test::RunLoopUntil([&] {
            for (int dead : deaths_.pids)
                if (dead == pid)
                    return true;
            return false;
        });
    }

    std::vector<Seen> RunningApps() {
        std::vector<Seen> seen;
        EXPECT_EQ(aul_app_get_running_app_info(CollectApp, &seen), AUL_R_OK);
        return seen;
    }

    bool HasRecord(int pid) const { return fs::exists(root_ + "/running/" + std::to_string(pid)); }

    host_test::TempRoot temp_;
    std::string root_ = temp_.path();
    Deaths deaths_;
    std::vector<std::pair<int, unsigned long long>> launched_;  // pid, start time
};

TEST_F(HostAppManager, LaunchPassesTheBundleAsArgumentsAndReportsTheEndOnTheLoop) {
    const std::string out = root_ + "/args.txt";
    setenv("QUILLON_TEST_OUT", out.c_str(), 1);
    // The script records its arguments and one inherited variable, then ends by itself.
    Register(kUxAppId,
             Script("record-args.sh",
                    "for arg in \"$@\"; do printf '%s\\n' \"$arg\"; done > "
                    "\"$QUILLON_TEST_OUT.tmp\"\n"
                    "printf 'env=%s\\n' \"$QUILLON_TEST_OUT\" >> \"$QUILLON_TEST_OUT.tmp\"\n"
                    "mv \"$QUILLON_TEST_OUT.tmp\" \"$QUILLON_TEST_OUT\""));
    bundle* b = bundle_create();
    bundle_add(b, "DEVICENAME", "My Phone");
    bundle_add(b, "BTMAC", "AA:BB:CC:DD:EE:FF");
    bundle_add(b, "MIRRORINGID", "");
    bundle_add(b, "ZELID", "a=b c");
    int pid = Launch(kUxAppId, b);
    bundle_free(b);
    ASSERT_GT(pid, 0);

    // Ended but not yet reaped (the loop has not run): no longer running.
    siginfo_t info{};
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT), 0);
    EXPECT_EQ(aul_app_is_running(kUxAppId), 0);
    EXPECT_TRUE(deaths_.pids.empty());

    ASSERT_TRUE(WaitForDeath(pid));
    EXPECT_EQ(ReadFile(out),
              "--DEVICENAME=My Phone\n--BTMAC=AA:BB:CC:DD:EE:FF\n--MIRRORINGID=\n"
              "--ZELID=a=b c\nenv=" +
                  out + "\n");
    // The listener could still name the app; reported once; reaped; its record gone.
    ASSERT_EQ(deaths_.pids, std::vector<int>{pid});
    EXPECT_EQ(deaths_.names, std::vector<std::string>{kUxAppId});
    errno = 0;
    EXPECT_EQ(waitpid(pid, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
    EXPECT_FALSE(HasRecord(pid));
    EXPECT_EQ(aul_app_is_running(kUxAppId), 0);

    // Without a bundle the app gets no arguments at all.
    pid = Launch(kUxAppId);
    ASSERT_GT(pid, 0);
    ASSERT_TRUE(WaitForDeath(pid));
    EXPECT_EQ(ReadFile(out), "env=" + out + "\n");
}

TEST_F(HostAppManager, LaunchFailuresHaveTheirOwnCodesAndLeaveNoRecord) {
    EXPECT_EQ(Launch("org.example.unregistered"), AUL_R_ENOAPP);

    Register("org.example.missing", root_ + "/no-such-file");
    EXPECT_EQ(Launch("org.example.missing"), AUL_R_ENOLAUNCH);

    const std::string plain = Script("not-executable.sh", "exit 0");
    chmod(plain.c_str(), 0644);
    Register("org.example.plain", plain);
    EXPECT_EQ(Launch("org.example.plain"), AUL_R_ENOLAUNCH);

    Register("org.example.directory", root_);
    EXPECT_EQ(Launch("org.example.directory"), AUL_R_ENOLAUNCH);

    EXPECT_EQ(aul_launch_app(nullptr, nullptr), AUL_R_EINVAL);
    EXPECT_EQ(aul_launch_app("../escape", nullptr), AUL_R_EINVAL);

    std::error_code ec;
    const bool has_records =
        fs::exists(root_ + "/running") && !fs::is_empty(root_ + "/running", ec);
    EXPECT_FALSE(has_records);
    EXPECT_TRUE(RunningApps().empty());
}

TEST_F(HostAppManager, RunningAppsAreFoundNamedAndTerminated) {
    const std::string sleeper = Script("sleeper.sh", "exec sleep 600");
    Register(kUxAppId, sleeper);
    Register("org.example.other", sleeper);
    const int ux = Launch(kUxAppId);
    const int other = Launch("org.example.other");
    ASSERT_GT(ux, 0);
    ASSERT_GT(other, 0);

    EXPECT_EQ(aul_app_is_running(kUxAppId), 1);
    EXPECT_EQ(aul_app_is_running("org.example.other"), 1);
    EXPECT_EQ(aul_app_is_running("org.example.idle"), 0);
    EXPECT_EQ(aul_app_is_running(nullptr), 0);

    std::vector<Seen> seen = RunningApps();
    std::sort(seen.begin(), seen.end());
    ASSERT_EQ(seen.size(), 2u);
    const Seen& first = seen[0].pid == ux ? seen[0] : seen[1];
    const Seen& second = seen[0].pid == ux ? seen[1] : seen[0];
    EXPECT_EQ(first.pid, ux);
    EXPECT_EQ(first.appid, kUxAppId);
    EXPECT_EQ(first.pkg_name, kUxAppId);
    EXPECT_EQ(first.app_path, sleeper);
    EXPECT_EQ(second.pid, other);
    EXPECT_EQ(second.appid, "org.example.other");

    // A callback that returns non-zero ends the enumeration.
    int calls = 0;
    EXPECT_EQ(aul_app_get_running_app_info(
                  [](const aul_app_info*, void* data) {
                      ++*static_cast<int*>(data);
                      return 1;
                  },
                  &calls),
              AUL_R_OK);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(aul_app_get_running_app_info(nullptr, nullptr), AUL_R_EINVAL);

    char name[256] = {};
    EXPECT_EQ(aul_app_get_pkgname_bypid(ux, name, sizeof(name)), AUL_R_OK);
    EXPECT_STREQ(name, kUxAppId);
    char shortname[5] = {};
    EXPECT_EQ(aul_app_get_pkgname_bypid(ux, shortname, sizeof(shortname)), AUL_R_OK);
    EXPECT_STREQ(shortname, "org.");
    // Any other process is named by its command name; a missing one not at all.
    EXPECT_EQ(aul_app_get_pkgname_bypid(getpid(), name, sizeof(name)), AUL_R_OK);
    std::string comm = ReadFile("/proc/self/comm");
    EXPECT_EQ(name + std::string("\n"), comm);
    std::strcpy(name, "stale");
    EXPECT_EQ(aul_app_get_pkgname_bypid(UnusedPid(), name, sizeof(name)), AUL_R_ESRCH);
    EXPECT_STREQ(name, "");

    EXPECT_EQ(aul_terminate_pid(ux), AUL_R_OK);
    ASSERT_TRUE(WaitForDeath(ux));
    EXPECT_EQ(deaths_.pids, std::vector<int>{ux});
    EXPECT_EQ(deaths_.names, std::vector<std::string>{kUxAppId});
    EXPECT_EQ(aul_app_is_running(kUxAppId), 0);
    EXPECT_EQ(aul_app_is_running("org.example.other"), 1);
    seen = RunningApps();
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].pid, other);

    EXPECT_EQ(aul_terminate_pid(UnusedPid()), AUL_R_ESRCH);
    EXPECT_EQ(aul_terminate_pid(0), AUL_R_EINVAL);
    EXPECT_EQ(aul_terminate_pid(other), AUL_R_OK);
    ASSERT_TRUE(WaitForDeath(other));
    EXPECT_EQ(deaths_.pids, (std::vector<int>{ux, other}));
    EXPECT_TRUE(RunningApps().empty());
}

TEST_F(HostAppManager, AnAppLaunchedByAnotherProcessIsFoundWatchedAndNamed) {
    const std::string sleeper = Script("sleeper.sh", "exec sleep 600");
    Register(kUxAppId, sleeper);

    Register("org.example.other", sleeper);
    // This process is the daemon after a restart: it listens only once it is up again.
    ASSERT_EQ(aul_listen_app_dead_signal(nullptr, nullptr), AUL_R_OK);

    // The daemon before the restart launched two apps and went away; they outlive it.
    int pipe_fds[2];
    ASSERT_EQ(pipe(pipe_fds), 0);
    pid_t launcher = fork();
    ASSERT_GE(launcher, 0);
    if (launcher == 0) {
        int pids[2] = {aul_launch_app(kUxAppId, nullptr),
                       aul_launch_app("org.example.other", nullptr)};
        ssize_t written = write(pipe_fds[1], pids, sizeof(pids));
        _exit(written == sizeof(pids) ? 0 : 1);
    }
    close(pipe_fds[1]);
    int pids[2] = {0, 0};
    ASSERT_EQ(read(pipe_fds[0], pids, sizeof(pids)), static_cast<ssize_t>(sizeof(pids)));
    close(pipe_fds[0]);
    int status = 0;
    ASSERT_EQ(waitpid(launcher, &status, 0), launcher);
    const int app = pids[0];
    const int other = pids[1];
    ASSERT_GT(app, 0);
    ASSERT_GT(other, 0);
    launched_.emplace_back(app, StartTime(app));
    launched_.emplace_back(other, StartTime(other));

    // Listening is enough to hear of their end: nothing else has looked at them yet.
    ASSERT_EQ(aul_listen_app_dead_signal(RecordDeath, &deaths_), AUL_R_OK);
    ASSERT_EQ(kill(other, SIGTERM), 0);
    ASSERT_TRUE(WaitForDeath(other));
    EXPECT_EQ(deaths_.names, std::vector<std::string>{"org.example.other"});
    EXPECT_FALSE(HasRecord(other));

    // This process (the restarted daemon) sees it, as does quillon-platform.
    EXPECT_EQ(aul_app_is_running(kUxAppId), 1);
    std::vector<Seen> seen = RunningApps();
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].pid, app);
    EXPECT_EQ(seen[0].appid, kUxAppId);
    char name[256] = {};
    EXPECT_EQ(aul_app_get_pkgname_bypid(app, name, sizeof(name)), AUL_R_OK);
    EXPECT_STREQ(name, kUxAppId);
    const std::string listing = Tool({"apps"});
    EXPECT_NE(listing.find("registered\t" + std::string(kUxAppId) + "\t" + sleeper + "\n"),
              std::string::npos)
        << listing;
    EXPECT_NE(
        listing.find("running\t" + std::to_string(app) + "\t" + kUxAppId + "\t" + sleeper + "\n"),
        std::string::npos)
        << listing;

    // Its end is reported although this process did not start it.
    EXPECT_EQ(aul_terminate_pid(app), AUL_R_OK);
    ASSERT_TRUE(WaitForDeath(app));
    EXPECT_EQ(deaths_.names, (std::vector<std::string>{"org.example.other", kUxAppId}));
    EXPECT_FALSE(HasRecord(app));
    EXPECT_EQ(Tool({"apps"}).find("running"), std::string::npos);
}

TEST_F(HostAppManager, StaleAndDamagedRecordsAreIgnoredAndRemoved) {
    ASSERT_TRUE(fs::create_directories(root_ + "/running"));
    auto write_record = [&](int pid, const std::string& content) {
        std::ofstream(root_ + "/running/" + std::to_string(pid)) << content;
    };
    const int self = getpid();
    const unsigned long long start = StartTime(self);

    // A process that has ended (reaped), and a pid now used by another process (this one,
    // with another start time).
    pid_t ended = fork();
    ASSERT_GE(ended, 0);
    if (ended == 0)
        _exit(0);
    ASSERT_EQ(waitpid(ended, nullptr, 0), ended);
    write_record(ended, "appid=org.example.ended\npkg=org.example.ended\nexec=/bin/true\nstart=" +
                            std::to_string(StartTime(self)) + "\nlauncher=1\n");
    write_record(self, "appid=" + std::string(kUxAppId) + "\npkg=" + kUxAppId +
                           "\nexec=/bin/true\nstart=" + std::to_string(start + 1) +
                           "\nlauncher=1\n");
    EXPECT_EQ(aul_app_is_running(kUxAppId), 0);
    EXPECT_EQ(aul_app_is_running("org.example.ended"), 0);
    EXPECT_TRUE(RunningApps().empty());
    EXPECT_FALSE(HasRecord(ended));
    EXPECT_FALSE(HasRecord(self));

    // A record without a start time cannot be checked, so it is no record.
    write_record(self, "appid=org.example.damaged\nexec=/bin/true\n");
    EXPECT_EQ(aul_app_is_running("org.example.damaged"), 0);
    EXPECT_FALSE(HasRecord(self));

    // The same record with the right start time is a live app (a pkg line may be absent).
    write_record(self, "appid=org.example.alive\nexec=/bin/true\nstart=" + std::to_string(start) +
                           "\nlauncher=1\n");
    EXPECT_EQ(aul_app_is_running("org.example.alive"), 1);
    std::vector<Seen> seen = RunningApps();
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].pid, self);
    EXPECT_EQ(seen[0].pkg_name, "org.example.alive");
    EXPECT_TRUE(HasRecord(self));
}

}  // namespace
