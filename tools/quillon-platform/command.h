// The subcommands of quillon-platform. Each source file registers its own commands with a
// static CommandRegistrar, so adding a command never means editing another file:
//
//     static const quillon_platform::CommandRegistrar kRegistrar({
//         {"wake-tables", "wake-tables [--json]", "the Bluetooth and WoWLAN tables", RunTables},
//     });
#pragma once

#include <initializer_list>
#include <string>
#include <vector>

namespace quillon_platform {

// Exit statuses every command keeps to, so scripts can tell the cases apart.
constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;    // the request was fine but could not be done (or: no such key)
constexpr int kExitBadInput = 2;  // the command line was wrong; nothing was changed

struct Command {
    const char* name;     // "set-int"
    const char* usage;    // "set-int KEY N"
    const char* summary;  // one line for the usage text
    // args are the words after the command name.
    int (*run)(const Command& self, const std::vector<std::string>& args);
};

class CommandRegistrar {
public:
    CommandRegistrar(std::initializer_list<Command> commands);
};

// Every registered command, sorted by name.
std::vector<Command> AllCommands();
// nullptr when no command has that name.
const Command* FindCommand(const std::string& name);

// The exit status of a settings write (vconf_rc from vconf_set_*/vconf_unset), made durable
// before the tool exits: kExitOk, or kExitFailed after "could not write 'KEY'" on stderr.
int Written(int vconf_rc, const std::string& key);

// Prints "quillon-platform: <message>" and the command's usage line on stderr and returns
// kExitBadInput.
int BadInput(const Command& command, const std::string& message);
// Checks the argument count; on a mismatch reports it through BadInput and returns false.
bool ExpectArgs(const Command& command, const std::vector<std::string>& args, size_t count,
                int* status);

}  // namespace quillon_platform
