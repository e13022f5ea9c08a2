// The device the prompt asks about, as the daemon hands it over: one "--KEY=VALUE" argument
// per bundle entry.
#pragma once

#include <string>
#include <vector>

namespace quillon_ux {

struct PromptRequest {
    std::string device_name;    // DEVICENAME
    std::string bt_mac;         // BTMAC
    std::string wifi_mac;       // WIFIMAC
    std::string p2p_mac;        // P2PMAC
    std::string mirroring_id;   // MIRRORINGID
    std::string zel_id;         // ZELID
    int devtype = 0;            // DEVTYPE
    int devicon = 0;            // DEVICON
    int mirroring_support = 0;  // MIRRORINGSUPPORT
    int no_ux = 0;              // NOUX
    int ux_always = 0;          // UXALWAYS
};

// Every key must be given exactly once, each number in decimal; nothing else is accepted.
// On failure *error says what was wrong.
bool ParsePromptArguments(const std::vector<std::string>& args, PromptRequest* request,
                          std::string* error);

}  // namespace quillon_ux
