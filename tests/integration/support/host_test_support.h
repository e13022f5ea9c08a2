// What the host-platform tests share: a platform root and a message bus of their own,
// quillon-platform and forked children run to their end, waits and file helpers.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "main_loop_wait.h"

typedef struct _GTestDBus GTestDBus;

namespace host_test {

// A fresh QUILLON_PLATFORM_ROOT for the life of the object, removed with everything in it.
class TempRoot {
public:
    TempRoot();
    ~TempRoot();
    TempRoot(const TempRoot&) = delete;
    TempRoot& operator=(const TempRoot&) = delete;
    const std::string& path() const { return path_; }

private:
    std::string path_;
};

// A private message bus that lets anyone own any name and call anything, standing in for
// the system bus: DBUS_SYSTEM_BUS_ADDRESS names it from construction on, and it ends with
// the object.
class PrivateBus {
public:
    PrivateBus();
    ~PrivateBus();
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;
    const std::string& address() const { return address_; }

private:
    GTestDBus* bus_;
    std::string address_;
};

struct ToolResult {
    int status = -1;  // the exit status, -1 when it did not exit normally
    std::string out;
    std::string err;
};

// quillon-platform ARGS on the current root, with `input` on its standard input.
ToolResult RunTool(const std::vector<std::string>& args, const std::string& input = "");
// The same, failing the test unless it exits 0; its standard output.
std::string Tool(const std::vector<std::string>& args);

// body() in a forked child; its exit status, -1 when it did not exit normally.
int InChild(const std::function<int()>& body);

std::string ReadFile(const std::string& path);
void WriteFile(const std::string& path, const std::string& bytes);
// The names in a directory, sorted; empty when it does not exist.
std::vector<std::string> Entries(const std::string& dir);
// The permission bits of a path, -1 when it is missing.
int Mode(const std::string& path);

}  // namespace host_test
