#include "options.h"

#include <strings.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <set>

namespace quillonctl {

namespace {

const std::set<std::string> kFlags = {"json", "help"};
const std::set<std::string> kValued = {"timeout", "count",    "name",   "bt",
                                       "wifi",    "p2p",      "zel-id", "mirroring-id",
                                       "type",    "icon",     "status", "tv-init-mirroring",
                                       "no-ux",   "ux-always"};

}  // namespace

std::optional<std::string> Options::Value(const std::string& name) const {
    auto it = values.find(name);
    if (it == values.end()) {
        return std::nullopt;
    }
    return it->second;
}

bool ParseOptions(const std::vector<std::string>& args, Options* out, std::string* error) {
    bool options_ended = false;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        bool positional = options_ended || arg.size() < 2 || arg.compare(0, 2, "--") != 0;
        if (!options_ended && arg == "-h") {
            out->help = true;
            continue;
        }
        if (!options_ended && arg == "--") {
            options_ended = true;
            continue;
        }
        if (positional) {
            // Negative numbers ("-1") are arguments, not options.
            if (out->command.empty()) {
                out->command = arg;
            } else {
                out->positionals.push_back(arg);
            }
            continue;
        }
        std::string name = arg.substr(2);
        std::optional<std::string> value;
        size_t eq = name.find('=');
        if (eq != std::string::npos) {
            value = name.substr(eq + 1);
            name = name.substr(0, eq);
        }
        if (kFlags.count(name) != 0) {
            if (value) {
                *error = "option --" + name + " takes no value";
                return false;
            }
            (name == "json" ? out->json : out->help) = true;
            continue;
        }
        if (kValued.count(name) == 0) {
            *error = "unknown option --" + name;
            return false;
        }
        if (!value) {
            if (i + 1 >= args.size()) {
                *error = "option --" + name + " needs a value";
                return false;
            }
            value = args[++i];
        }
        out->values[name] = *value;
    }
    return true;
}

bool ParseInt(const std::string& text, const std::string& what, int* out, std::string* error) {
    errno = 0;
    char* end = nullptr;
    long value = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || end == nullptr || *end != '\0' || errno != 0 || value < INT_MIN ||
        value > INT_MAX) {
        *error = what + " must be a decimal integer, not '" + text + "'";
        return false;
    }
    *out = static_cast<int>(value);
    return true;
}

bool PositiveOption(const Options& options, const std::string& name, const char* at_least, int* out,
                    std::string* error) {
    std::optional<std::string> text = options.Value(name);
    if (!text) {
        return true;
    }
    if (!ParseInt(*text, "--" + name, out, error)) {
        return false;
    }
    if (*out < 1) {
        *error = "--" + name + " must be at least " + at_least;
        return false;
    }
    return true;
}

bool ParseIndicator(const std::string& text, int* out, std::string* error) {
    const char* names[] = {"bt", "wifi", "p2p"};
    for (int i = 0; i < 3; ++i) {
        if (strcasecmp(text.c_str(), names[i]) == 0) {
            *out = i + 1;
            return true;
        }
    }
    return ParseInt(text, "IND (bt, wifi, p2p or 1, 2, 3)", out, error);
}

}  // namespace quillonctl
