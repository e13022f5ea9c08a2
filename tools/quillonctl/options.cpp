#include "options.h"

#include <strings.h>

#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <set>

namespace quillonctl {

namespace {

const std::set<std::string> kFlags = {"json", "help", "version"};
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
            (name == "json" ? out->json : name == "help" ? out->help : out->version) = true;
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
    const char* what = "IND (bt, wifi, p2p or 1, 2, 3)";
    if (!ParseInt(text, what, out, error)) {
        return false;
    }
    if (*out < 1 || *out > 3) {
        *error = std::string(what) + " must be 1, 2 or 3, not " + text;
        return false;
    }
    return true;
}

bool ParseVerdict(const std::string& text, const std::string& what, int* out, std::string* error) {
    const char* words[] = {"allow", "deny", "undecided"};
    for (int i = 0; i < 3; ++i) {
        if (strcasecmp(text.c_str(), words[i]) == 0) {
            *out = i;
            return true;
        }
    }
    return ParseInt(text, what + " (allow, deny, undecided or a number)", out, error);
}

bool CheckMac(const std::string& text, const std::string& what, std::string* error) {
    bool ok = text.size() == 17;
    const char separator = ok ? text[2] : ':';
    for (size_t i = 0; ok && i < text.size(); ++i) {
        ok = (i % 3 == 2) ? text[i] == separator && (separator == ':' || separator == '-')
                          : std::isxdigit(static_cast<unsigned char>(text[i])) != 0;
    }
    if (!ok) {
        *error = what + " must be an address like AA:BB:CC:DD:EE:FF, not '" + text + "'";
    }
    return ok;
}

}  // namespace quillonctl
