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
using Texts = std::vector<std::string>;

namespace {

constexpr const char* kUxAppId = "org.nuvak.quillon-ux";

// Each death as "pid name", with the package name the listener could still look up.
int RecordDeath(int pid, void* deaths) {
    char name[256] = {};
    aul_app_get_pkgname_bypid(pid, name, sizeof(name));
    static_cast<Texts*>(deaths)->push_back(std::to_string(pid) + " " + name);
    return 0;
}

// The running apps as "pid appid pkg path", by pid.
Texts RunningApps() {
    Texts seen;
    EXPECT_EQ(aul_app_get_running_app_info(
                  [](const aul_app_info* info, void* data) {
                      static_cast<Texts*>(data)->push_back(std::to_string(info->pid) + " " +
                                                           info->appid + " " + info->pkg_name +
                                                           " " + info->app_path);
                      return 0;
                  },
                  &seen),
              AUL_R_OK);
    std::sort(seen.begin(), seen.end());
    return seen;
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
        // The package ships registrations; those made under the state root win over them.
        fs::create_directories(vendor_);
        host_test::WriteFile(vendor_ + "/" + kUxAppId, "/usr/bin/quillon-ux\n");
        host_test::WriteFile(vendor_ + "/org.example.shipped", "/usr/bin/shipped\n");
        setenv("QUILLON_VENDOR_APPS_DIR", vendor_.c_str(), 1);
        host_test::WriteFile(sleeper_, "#!/bin/sh\nexec sleep 600\n");
        chmod(sleeper_.c_str(), 0755);
        Tool({"register-app", kUxAppId, sleeper_});
        Tool({"register-app", "org.example.other", sleeper_});
    }
    void TearDown() override {
        aul_listen_app_dead_signal(nullptr, nullptr);
        // Only apps still running as launched: an ended app's pid may belong to anyone now.
        for (const auto& [pid, start] : launched_)
            if (StartTime(pid) == start)
                kill(pid, SIGKILL);
    }
    int Launch(const std::string& appid, bundle* b = nullptr) {
        return Launched(aul_launch_app(appid.c_str(), b));
    }
    int Launched(int pid) {
        if (pid > 0)
            launched_.emplace_back(pid, StartTime(pid));
        return pid;
    }
    bool WaitForDeaths(size_t count) {
        return test_common::RunUntil([&] { return deaths_.size() >= count; });
    }
    bool HasRecord(int pid) const { return fs::exists(root_ + "/running/" + std::to_string(pid)); }
    host_test::TempRoot temp_;
    std::string root_ = temp_.path();
    std::string sleeper_ = root_ + "/sleeper.sh";
    std::string vendor_ = root_ + "/vendor-apps";
    Texts deaths_;
    std::vector<std::pair<int, unsigned long long>> launched_;  // pid, start time
};

TEST_F(HostAppManager, LaunchPassesTheBundleAsArgumentsAndReportsTheEndOnTheLoop) {
    const std::string out = root_ + "/args.txt", script = root_ + "/record-args.sh";
    setenv("QUILLON_TEST_OUT", out.c_str(), 1);
    // The script records its arguments where an inherited variable says, then ends by itself.
    host_test::WriteFile(script, "#!/bin/sh\nprintf '%s\\n' \"$@\" > \"$QUILLON_TEST_OUT\"\n");
    chmod(script.c_str(), 0755);
    Tool({"register-app", kUxAppId, script});
    bundle* b = bundle_create();
    for (const auto& [key, value] : std::vector<std::pair<const char*, const char*>>{
             {"DEVICENAME", "My Phone"}, {"MIRRORINGID", ""}, {"ZELID", "a=b c"}})
        bundle_add(b, key, value);
    int pid = Launch(kUxAppId, b);
    bundle_free(b);
    ASSERT_GT(pid, 0);
    // Ended but not yet reaped (the loop has not run): no longer running.
    siginfo_t info{};
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT), 0);
    EXPECT_EQ(aul_app_is_running(kUxAppId), 0);
    EXPECT_TRUE(deaths_.empty());
    ASSERT_TRUE(WaitForDeaths(1));
    EXPECT_EQ(ReadFile(out), "--DEVICENAME=My Phone\n--MIRRORINGID=\n--ZELID=a=b c\n");
    // The listener could still name the app; reported once; reaped; its record gone.
    EXPECT_EQ(deaths_, Texts{std::to_string(pid) + " " + kUxAppId});
    EXPECT_TRUE(waitpid(pid, nullptr, WNOHANG) == -1 && errno == ECHILD);
    EXPECT_FALSE(HasRecord(pid));
    // Failures have their own codes and leave no record.
    host_test::WriteFile(root_ + "/plain.sh", "exit 0\n");
    for (const std::string& executable : {root_ + "/no-such-file", root_ + "/plain.sh", root_}) {
        Tool({"register-app", "org.example.broken", executable});
        EXPECT_EQ(Launch("org.example.broken"), AUL_R_ENOLAUNCH) << executable;
    }
    EXPECT_EQ(Launch("org.example.unregistered"), AUL_R_ENOAPP);
    EXPECT_TRUE(host_test::Entries(root_ + "/running").empty());
}

TEST_F(HostAppManager, AppsLaunchedByAnotherProcessAreFoundWatchedNamedAndTerminated) {
    // This process is the daemon after a restart: it listens only once it is up again.
    ASSERT_EQ(aul_listen_app_dead_signal(nullptr, nullptr), AUL_R_OK);
    // The daemon before the restart launched two apps and went away; they outlive it.
    ASSERT_EQ(0, host_test::InChild([] {
                  return (aul_launch_app(kUxAppId, nullptr) <= 0) +
                         (aul_launch_app("org.example.other", nullptr) <= 0);
              }));
    // Their pids, from the records it left read as plain files.
    int app = 0, other = 0;
    for (const std::string& pid : host_test::Entries(root_ + "/running"))
        (ReadFile(root_ + "/running/" + pid).find(kUxAppId) != std::string::npos ? app : other) =
            Launched(std::stoi(pid));
    ASSERT_TRUE(app > 0 && other > 0);
    // Listening is enough to hear of their end: nothing else has looked at them yet.
    ASSERT_EQ(aul_listen_app_dead_signal(RecordDeath, &deaths_), AUL_R_OK);
    ASSERT_EQ(kill(other, SIGTERM), 0);
    ASSERT_TRUE(WaitForDeaths(1));
    EXPECT_EQ(deaths_, Texts{std::to_string(other) + " org.example.other"});
    EXPECT_FALSE(HasRecord(other));
    // This process (the restarted daemon) sees it, as does quillon-platform.
    EXPECT_EQ(RunningApps(),
              Texts{std::to_string(app) + " " + kUxAppId + " " + kUxAppId + " " + sleeper_});
    EXPECT_EQ(aul_app_is_running(kUxAppId), 1);
    EXPECT_EQ(aul_app_is_running("org.example.other"), 0);
    char name[256] = {};
    EXPECT_EQ(aul_app_get_pkgname_bypid(app, name, sizeof(name)), AUL_R_OK);
    EXPECT_STREQ(name, kUxAppId);
    // Any other process is named by its command name; a missing one not at all.
    EXPECT_EQ(aul_app_get_pkgname_bypid(getpid(), name, sizeof(name)), AUL_R_OK);
    EXPECT_EQ(name + std::string("\n"), ReadFile("/proc/self/comm"));
    std::strcpy(name, "stale");
    EXPECT_EQ(aul_app_get_pkgname_bypid(UnusedPid(), name, sizeof(name)), AUL_R_ESRCH);
    EXPECT_STREQ(name, "");
    EXPECT_EQ(aul_terminate_pid(UnusedPid()), AUL_R_ESRCH);
    EXPECT_EQ(Tool({"apps"}),
              "registered\torg.example.other\t" + sleeper_ +
                  "\nregistered\torg.example.shipped\t/usr/bin/shipped\nregistered\t" + kUxAppId +
                  "\t" + sleeper_ + "\nrunning\t" + std::to_string(app) + "\t" + kUxAppId + "\t" +
                  sleeper_ + "\n");
    // Its end is reported although this process did not start it.
    EXPECT_EQ(aul_terminate_pid(app), AUL_R_OK);
    ASSERT_TRUE(WaitForDeaths(2));
    EXPECT_EQ(deaths_.back(), std::to_string(app) + " " + kUxAppId);
    EXPECT_FALSE(HasRecord(app));
    EXPECT_EQ(Tool({"apps"}).find("running"), std::string::npos);
}

TEST_F(HostAppManager, StaleAndDamagedRecordsAreIgnoredAndRemoved) {
    ASSERT_TRUE(fs::create_directories(root_ + "/running"));
    auto write_record = [&](int pid, const std::string& appid, const std::string& more) {
        host_test::WriteFile(root_ + "/running/" + std::to_string(pid),
                             "appid=" + appid + "\nexec=/bin/true\n" + more);
    };
    const int self = getpid();
    const std::string start = "start=" + std::to_string(StartTime(self)) + "\n";
    // A process that has ended, and a pid now used by another process (this one, with another
    // start time), and a record without a start time, which cannot be checked.
    for (const auto& [pid, more] : std::vector<std::pair<int, std::string>>{
             {UnusedPid(), start},
             {self, "start=" + std::to_string(StartTime(self) + 1) + "\n"},
             {self, "launcher=1\n"}}) {
        write_record(pid, "org.example.stale", more);
        EXPECT_EQ(aul_app_is_running("org.example.stale"), 0) << more;
        EXPECT_TRUE(RunningApps().empty());
        EXPECT_FALSE(HasRecord(pid)) << more;
    }
    // The same record with the right start time is a live app (a pkg line may be absent).
    write_record(self, "org.example.alive", start + "launcher=1\n");
    EXPECT_EQ(aul_app_is_running("org.example.alive"), 1);
    EXPECT_EQ(RunningApps(), Texts{std::to_string(self) + " org.example.alive org.example.alive "
                                                          "/bin/true"});
    EXPECT_TRUE(HasRecord(self));
}

}  // namespace
