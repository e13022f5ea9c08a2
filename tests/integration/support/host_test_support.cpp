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

std::string Text(GBytes* bytes) {
    gsize size = 0;
    const void* data = bytes != nullptr ? g_bytes_get_data(bytes, &size) : nullptr;
    return size > 0 ? std::string(static_cast<const char*>(data), size) : std::string();
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
    const char* bin = std::getenv("QUILLON_BIN_DIR");
    const std::string tool =
        std::string(bin != nullptr ? bin : "$QUILLON_BIN_DIR") + "/quillon-platform";
    std::vector<const char*> argv = {tool.c_str()};
    for (const std::string& arg : args)
        argv.push_back(arg.c_str());
    argv.push_back(nullptr);
    g_autoptr(GError) error = nullptr;
    g_autoptr(GSubprocess) child =
        g_subprocess_newv(argv.data(),
                          static_cast<GSubprocessFlags>(G_SUBPROCESS_FLAGS_STDIN_PIPE |
                                                        G_SUBPROCESS_FLAGS_STDOUT_PIPE |
                                                        G_SUBPROCESS_FLAGS_STDERR_PIPE),
                          &error);
    g_autoptr(GBytes) in = g_bytes_new(input.data(), input.size());
    g_autoptr(GBytes) out = nullptr;
    g_autoptr(GBytes) err = nullptr;
    if (child == nullptr || !g_subprocess_communicate(child, in, nullptr, &out, &err, &error)) {
        ADD_FAILURE() << tool << ": " << error->message;
        return ToolResult();
    }
    return {g_subprocess_get_if_exited(child) ? g_subprocess_get_exit_status(child) : -1, Text(out),
            Text(err)};
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
    return pid > 0 && waitpid(pid, &status, 0) == pid && WIFEXITED(status) ? WEXITSTATUS(status)
                                                                           : -1;
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
