// The command line of quillonctl: a command, its positional arguments and "--name value"
// options, which may come anywhere ("--" ends the options).
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace quillonctl {

struct Options {
    bool help = false;
    bool version = false;
    bool json = false;
    std::string command;
    std::vector<std::string> positionals;
    // Every valued option by its name without the dashes ("timeout", "bt", ...).
    std::map<std::string, std::string> values;

    std::optional<std::string> Value(const std::string& name) const;
};

// False with *error for an unknown option or an option without its value.
bool ParseOptions(const std::vector<std::string>& args, Options* out, std::string* error);

// A decimal 32-bit integer, nothing else; false with *error naming what.
bool ParseInt(const std::string& text, const std::string& what, int* out, std::string* error);

// The value of --name when it is given: a decimal integer of at least 1 (at_least says so
// in the error, "1" or "1 second"). *out is left alone when the option is absent.
bool PositiveOption(const Options& options, const std::string& name, const char* at_least, int* out,
                    std::string* error);

// Which address a lookup uses: 1 (or "bt"), 2 ("wifi"), 3 ("p2p"); nothing else.
bool ParseIndicator(const std::string& text, int* out, std::string* error);

// A verdict: "allow", "deny", "undecided" or a decimal integer (passed on as it is, so that
// the daemon's answer to an invalid one can be seen).
bool ParseVerdict(const std::string& text, const std::string& what, int* out, std::string* error);

// An address as the daemon stores them: six pairs of hex digits split by ':' (or all by
// '-'), e.g. AA:BB:CC:DD:EE:FF; false with *error naming `what` otherwise.
bool CheckMac(const std::string& text, const std::string& what, std::string* error);

}  // namespace quillonctl
