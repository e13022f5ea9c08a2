// quillonctl: the Quillon daemon's bus methods and signals from a shell, for people and
// scripts (--json, documented exit statuses).
#include <cstdio>
#include <string>
#include <vector>

#include "backup_verbs.h"
#include "commands.h"
#include "devices_verb.h"
#include "exit_status.h"
#include "monitor.h"
#include "options.h"
#include "usage.h"

int main(int argc, char** argv) {
    using namespace quillonctl;
    std::vector<std::string> args(argv + 1, argv + argc);
    Options options;
    std::string error;
    if (!ParseOptions(args, &options, &error)) {
        std::fprintf(stderr, "quillonctl: %s\n(quillonctl --help lists the commands)\n",
                     error.c_str());
        return kExitUsage;
    }
    if (options.help) {
        PrintUsage();
        return kExitOk;
    }
    if (options.version) {
        std::printf("quillonctl %s\n", QUILLON_VERSION);
        return kExitOk;
    }
    if (options.command.empty()) {
        std::fprintf(stderr, "quillonctl: no command\n(quillonctl --help lists the commands)\n");
        return kExitUsage;
    }
    if (options.command == "monitor") {
        return RunMonitor(options);
    }
    if (options.command == "devices") {
        return RunDevicesVerb(options);
    }
    if (options.command == "backup" || options.command == "restore") {
        return RunBackupVerb(options);
    }
    const Command* command = FindMethodCommand(options.command);
    if (command == nullptr) {
        std::fprintf(stderr,
                     "quillonctl: unknown command '%s'\n(quillonctl --help lists the commands)\n",
                     options.command.c_str());
        return kExitUsage;
    }
    return RunMethodCommand(*command, options);
}
