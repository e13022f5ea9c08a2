// The subcommands that call one bus method each: their arguments, the method they call and
// how its answer reads (words and exit status).
#pragma once

#include <string>
#include <vector>

#include "options.h"

namespace quillonctl {

enum class ArgShape {
    kNone,         // no arguments
    kRecord,       // the device record, from --name, --bt ... options
    kMacInd,       // MAC IND
    kMacIndValue,  // MAC IND N
    kMacIndParam,  // MAC IND PARAM TYPE
};

enum class ReplyShape {
    kCode,    // (i)
    kDevice,  // (a(ssssiiiiiiss)i): one element and the found flag
    kList,    // (a(ssssiiiiiiss)i): every device and the count
    kEmpty,   // ()
};

struct Verdict {
    int exit_status;
    std::string meaning;
};

struct Command {
    std::string name;
    std::string usage;  // the arguments, for --help
    std::string summary;
    const char* interface;
    const char* method;
    ArgShape args;
    ReplyShape reply;
    // How a result code reads (kCode replies).
    Verdict (*judge)(int code);
};

const std::vector<Command>& MethodCommands();
const Command* FindMethodCommand(const std::string& name);

// Calls the command's method as the options say and prints the answer; the exit status.
int RunMethodCommand(const Command& command, const Options& options);

}  // namespace quillonctl
