#include "host_test_support.h"

#include <gio/gio.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace fs = std::filesystem;

namespace host_test {

namespace {

int ExitStatus(int status) {
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string Quoted(const std::string& word) {
    std::string out = "'";
    for (char c : word)
        out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

}  // namespace

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
    if (!path_.empty())
        fs::remove_all(path_, ignored);
}

PrivateBus::PrivateBus() : bus_(g_test_dbus_new(G_TEST_DBUS_NONE)) {
    g_test_dbus_up(bus_);
    address_ = g_test_dbus_get_bus_address(bus_);
    setenv("DBUS_SYSTEM_BUS_ADDRESS", address_.c_str(), 1);
}

PrivateBus::~PrivateBus() {
    g_test_dbus_stop(bus_);
    g_object_unref(bus_);
}

ToolResult RunTool(const std::vector<std::string>& args, const std::string& input) {
    ToolResult result;
    const char* bin = std::getenv("QUILLON_BIN_DIR");
    char scratch[] = "/tmp/quillon-tool-XXXXXX";
    if (bin == nullptr || mkdtemp(scratch) == nullptr) {
        ADD_FAILURE() << "QUILLON_BIN_DIR must name the build's bin directory";
        return result;
    }
    // The streams go through files outside the platform root, which tests inspect.
    const std::string dir = scratch;
    WriteFile(dir + "/in", input);
    std::string command = Quoted(std::string(bin) + "/quillon-platform");
    for (const std::string& arg : args)
        command += " " + Quoted(arg);
    command += " <" + dir + "/in >" + dir + "/out 2>" + dir + "/err";
    result.status = ExitStatus(std::system(command.c_str()));
    result.out = ReadFile(dir + "/out");
    result.err = ReadFile(dir + "/err");
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

int InChild(const std::function<int()>& body) {
    pid_t pid = fork();
    if (pid == 0)
        _exit(body());
    int status = 0;
    return pid > 0 && waitpid(pid, &status, 0) == pid ? ExitStatus(status) : -1;
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
    for (const auto& entry : fs::directory_iterator(dir, ec))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

int Mode(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? static_cast<int>(st.st_mode & 07777) : -1;
}

}  // namespace host_test
