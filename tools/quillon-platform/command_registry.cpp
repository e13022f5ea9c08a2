#include <algorithm>
#include <cstdio>
#include <cstring>

#include "command.h"

namespace quillon_platform {

namespace {
// Function-local, so registrars in other files may run before or after this file's
// static initialisation.
std::vector<Command>& Registry() {
    static std::vector<Command> commands;
    return commands;
}
}  // namespace

CommandRegistrar::CommandRegistrar(std::initializer_list<Command> commands) {
    for (const Command& command : commands)
        Registry().push_back(command);
}

std::vector<Command> AllCommands() {
    std::vector<Command> commands = Registry();
    std::sort(commands.begin(), commands.end(),
              [](const Command& a, const Command& b) { return std::strcmp(a.name, b.name) < 0; });
    return commands;
}

const Command* FindCommand(const std::string& name) {
    for (const Command& command : Registry())
        if (name == command.name)
            return &command;
    return nullptr;
}

int BadInput(const Command& command, const std::string& message) {
    std::fprintf(stderr, "quillon-platform: %s\nusage: quillon-platform %s\n", message.c_str(),
                 command.usage);
    return kExitBadInput;
}

bool ExpectArgs(const Command& command, const std::vector<std::string>& args, size_t count,
                int* status) {
    if (args.size() == count)
        return true;
    *status = BadInput(command, args.size() < count
                                    ? "missing arguments to " + std::string(command.name)
                                    : "too many arguments to " + std::string(command.name));
    return false;
}

}  // namespace quillon_platform
