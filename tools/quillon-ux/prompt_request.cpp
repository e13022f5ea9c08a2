#include "prompt_request.h"

#include <map>

#include "parse_decimal.h"

namespace quillon_ux {

namespace {

struct TextKey {
    const char* name;
    std::string PromptRequest::*field;
};

struct NumberKey {
    const char* name;
    int PromptRequest::*field;
};

const TextKey kTextKeys[] = {
    {"DEVICENAME", &PromptRequest::device_name},   {"BTMAC", &PromptRequest::bt_mac},
    {"WIFIMAC", &PromptRequest::wifi_mac},         {"P2PMAC", &PromptRequest::p2p_mac},
    {"MIRRORINGID", &PromptRequest::mirroring_id}, {"ZELID", &PromptRequest::zel_id},
};

const NumberKey kNumberKeys[] = {
    {"DEVTYPE", &PromptRequest::devtype},
    {"DEVICON", &PromptRequest::devicon},
    {"MIRRORINGSUPPORT", &PromptRequest::mirroring_support},
    {"NOUX", &PromptRequest::no_ux},
    {"UXALWAYS", &PromptRequest::ux_always},
};

}  // namespace

bool ParsePromptArguments(const std::vector<std::string>& args, PromptRequest* request,
                          std::string* error) {
    std::map<std::string, std::string> given;
    for (const std::string& arg : args) {
        size_t equals = arg.find('=');
        if (arg.compare(0, 2, "--") != 0 || equals == std::string::npos || equals == 2) {
            *error = "argument '" + arg + "' is not of the form --KEY=VALUE";
            return false;
        }
        std::string key = arg.substr(2, equals - 2);
        if (!given.emplace(key, arg.substr(equals + 1)).second) {
            *error = "key " + key + " is given twice";
            return false;
        }
    }
    PromptRequest parsed;
    size_t known = 0;
    for (const TextKey& key : kTextKeys) {
        auto it = given.find(key.name);
        if (it == given.end()) {
            *error = std::string("missing key ") + key.name;
            return false;
        }
        parsed.*key.field = it->second;
        ++known;
    }
    for (const NumberKey& key : kNumberKeys) {
        auto it = given.find(key.name);
        if (it == given.end()) {
            *error = std::string("missing key ") + key.name;
            return false;
        }
        if (!quillon_tools::ParseDecimal(it->second, &(parsed.*key.field))) {
            *error = std::string(key.name) + " must be a decimal integer, not '" + it->second + "'";
            return false;
        }
        ++known;
    }
    if (given.size() != known) {
        for (const auto& entry : given) {
            bool listed = false;
            for (const TextKey& key : kTextKeys)
                listed = listed || entry.first == key.name;
            for (const NumberKey& key : kNumberKeys)
                listed = listed || entry.first == key.name;
            if (!listed) {
                *error = "unknown key " + entry.first;
                return false;
            }
        }
    }
    *request = parsed;
    return true;
}

}  // namespace quillon_ux
