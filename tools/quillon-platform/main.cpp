// quillon-platform: inspects and drives the host platform (settings, and whatever the
// other command files register).
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "command.h"

using quillon_platform::AllCommands;
using quillon_platform::Command;

namespace {

void PrintUsage(FILE* out) {
    std::fprintf(out,
                 "usage: quillon-platform COMMAND [ARGUMENTS]\n"
                 "Inspects and drives the host platform under $QUILLON_PLATFORM_ROOT.\n\n"
                 "commands:\n");
    for (const Command& command : AllCommands())
        std::fprintf(out, "  %-36s %s\n", command.usage, command.summary);
    std::fprintf(out,
                 "\nexit status: 0 done, 1 failed or not found, 2 bad command line "
                 "(nothing changed)\n");
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        PrintUsage(stdout);
        return quillon_platform::kExitOk;
    }
    std::string name = argv[1];
    if (name == "--version" && argc == 2) {
        std::printf("quillon-platform %s\n", QUILLON_VERSION);
        return quillon_platform::kExitOk;
    }
    if (name == "--help" || name == "-h" || name == "help") {
        PrintUsage(stdout);
        return quillon_platform::kExitOk;
    }
    const Command* command = quillon_platform::FindCommand(name);
    if (!command) {
        std::fprintf(stderr, "quillon-platform: unknown command '%s'\n\n", name.c_str());
        PrintUsage(stderr);
        return quillon_platform::kExitBadInput;
    }
    std::vector<std::string> args(argv + 2, argv + argc);
    int status = command->run(*command, args);
    std::fflush(stdout);
    return status;
}
