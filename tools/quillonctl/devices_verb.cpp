#include "devices_verb.h"

#include <glib.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "exit_status.h"

namespace quillonctl {

namespace {

constexpr const char* kProgram = "quillon-devices";

// Beside quillonctl first: the build tree and an installation keep the tools together, and
// PATH may name another installation.
std::string FindProgram() {
    gchar* self = g_file_read_link("/proc/self/exe", nullptr);
    if (self) {
        gchar* folder = g_path_get_dirname(self);
        gchar* beside = g_build_filename(folder, kProgram, nullptr);
        std::string found = g_file_test(beside, G_FILE_TEST_IS_EXECUTABLE) ? beside : "";
        g_free(beside);
        g_free(folder);
        g_free(self);
        if (!found.empty())
            return found;
    }
    gchar* in_path = g_find_program_in_path(kProgram);
    std::string found = in_path ? in_path : "";
    g_free(in_path);
    return found;
}

bool Set(const char* name) {
    const char* value = g_getenv(name);
    return value && *value;
}

}  // namespace

int RunDevicesVerb(const Options& options) {
    if (!options.positionals.empty()) {
        std::fprintf(stderr, "quillonctl: devices takes no arguments\n");
        return kExitUsage;
    }
    const std::string program = FindProgram();
    if (program.empty()) {
        std::fprintf(stderr,
                     "quillonctl: %s is not installed (looked beside quillonctl and in "
                     "PATH)\n",
                     kProgram);
        return kExitNegative;
    }
    if (!Set("DISPLAY") && !Set("WAYLAND_DISPLAY")) {
        std::printf("%s\n", program.c_str());
        std::fprintf(stderr,
                     "quillonctl: no display (DISPLAY and WAYLAND_DISPLAY are unset): run %s "
                     "on the TV's screen\n",
                     program.c_str());
        return kExitOk;
    }
    std::fflush(stdout);
    execl(program.c_str(), program.c_str(), static_cast<char*>(nullptr));
    std::fprintf(stderr, "quillonctl: cannot run %s: %s\n", program.c_str(), std::strerror(errno));
    return kExitNegative;
}

}  // namespace quillonctl
