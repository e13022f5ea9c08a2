#include "host_test_support.h"

#include <fcntl.h>
#include <glib.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "main_loop_wait.h"

namespace fs = std::filesystem;

namespace host_test {

TempRoot::TempRoot() {
    char pattern[] = "/tmp/quillon-host-XXXXXX";
    if (mkdtemp(pattern) == nullptr) {
        ADD_FAILURE() << "mkdtemp failed";
        return;
    }
    path_ = pattern;
    setenv("QUILLON_PLATFORM_ROOT", path_.c_str(), 1);
}

TempRoot::~TempRoot() {
    std::error_code ignored;
    if (!path_.empty()) {
        fs::remove_all(path_, ignored);
    }
}

PrivateBus::PrivateBus(const std::string& dir) {
    const std::string config = dir + "/bus.conf";
    WriteFile(config, "<busconfig><type>session</type><listen>unix:path=" + dir +
                          "/bus</listen><auth>EXTERNAL</auth><policy context=\"default\">"
                          "<allow send_destination=\"*\" eavesdrop=\"true\"/>"
                          "<allow eavesdrop=\"true\"/><allow own=\"*\"/></policy></busconfig>");
    std::string config_arg = "--config-file=" + config;
    std::vector<char*> argv = {const_cast<char*>("dbus-daemon"), &config_arg[0],
                               const_cast<char*>("--nofork"),
                               const_cast<char*>("--print-address=1"), nullptr};
    gint out_fd = -1;
    GError* error = nullptr;
    GPid pid = 0;
    if (!g_spawn_async_with_pipes(nullptr, argv.data(), nullptr, G_SPAWN_SEARCH_PATH, nullptr,
                                  nullptr, &pid, nullptr, &out_fd, nullptr, &error)) {
        ADD_FAILURE() << "dbus-daemon: " << (error ? error->message : "");
        g_clear_error(&error);
        return;
    }
    pid_ = pid;
    // dbus-daemon prints its address once it listens; the read waits for that line.
    char c = 0;
    while (read(out_fd, &c, 1) == 1 && c != '\n')
        address_ += c;
    close(out_fd);
    EXPECT_FALSE(address_.empty()) << "dbus-daemon printed no address";
    setenv("DBUS_SYSTEM_BUS_ADDRESS", address_.c_str(), 1);
}

PrivateBus::~PrivateBus() {
    if (pid_ > 0) {
        kill(pid_, SIGTERM);
        waitpid(pid_, nullptr, 0);
    }
}

ToolResult RunTool(const std::vector<std::string>& args, const std::string& input) {
    ToolResult result;
    const char* bin = std::getenv("QUILLON_BIN_DIR");
    if (bin == nullptr) {
        ADD_FAILURE() << "QUILLON_BIN_DIR must name the build's bin directory";
        return result;
    }
    // The tool's streams go through files outside the platform root, which tests inspect.
    char scratch[] = "/tmp/quillon-tool-XXXXXX";
    if (mkdtemp(scratch) == nullptr) {
        ADD_FAILURE() << "mkdtemp failed";
        return result;
    }
    const std::string dir = scratch;
    WriteFile(dir + "/in", input);
    // Everything the child needs is made before the fork: it only opens, dups and execs.
    const std::string exe = std::string(bin) + "/quillon-platform";
    const std::string in = dir + "/in", out = dir + "/out", err = dir + "/err";
    std::vector<char*> argv{const_cast<char*>(exe.c_str())};
    for (const std::string& arg : args) {
        argv.push_back(const_cast<char*>(arg.c_str()));
    }
    argv.push_back(nullptr);
    pid_t pid = fork();
    if (pid == 0) {
        dup2(open(in.c_str(), O_RDONLY), 0);
        dup2(open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), 1);
        dup2(open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), 2);
        execv(exe.c_str(), argv.data());
        _exit(127);
    }
    int status = 0;
    if (pid > 0 && waitpid(pid, &status, 0) == pid && WIFEXITED(status)) {
        result.status = WEXITSTATUS(status);
    }
    result.out = ReadFile(out);
    result.err = ReadFile(err);
    std::error_code ignored;
    fs::remove_all(dir, ignored);
    return result;
}

std::string Tool(const std::vector<std::string>& args) {
    ToolResult result = RunTool(args);
    EXPECT_EQ(0, result.status) << "quillon-platform " << (args.empty() ? "" : args[0]) << ": "
                                << result.err;
    return result.out;
}

bool RunLoopUntil(const std::function<bool()>& done, unsigned timeout_ms) {
    return test_common::RunUntil(done, timeout_ms);
}

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void WriteFile(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

std::vector<std::string> Entries(const std::string& dir) {
    std::vector<std::string> names;
    std::error_code ec;
    for (const auto& entry : fs::directory_iterator(dir, ec)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace host_test
