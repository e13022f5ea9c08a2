// Power commands: deliver a standby (instant-off) event to every subscriber, in this or any
// other process, by writing the host's standby key.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "command.h"
#include "system/host_setting_keys.h"
#include "vconf.h"

namespace quillon_platform {

namespace {

int RunStandby(const Command& self, const std::vector<std::string>& args) {
    if (args.size() > 1)
        return BadInput(self, "too many arguments to standby");
    int type = host::kSleepStandbyType;
    if (args.size() == 1) {
        const std::string& text = args[0];
        char* end = nullptr;
        long parsed = std::strtol(text.c_str(), &end, 0);
        if (text.empty() || *end != '\0' || parsed < 0 || parsed > 0x7fffffff)
            return BadInput(self, "'" + text + "' is not a non-negative integer");
        type = static_cast<int>(parsed);
    }
    // Every write is one event, even of the value the key already holds.
    return Written(vconf_set_int(host::kStandbyKey, type), host::kStandbyKey);
}

const CommandRegistrar kRegistrar({
    {"standby", "standby [TYPE]", "deliver a standby (instant-off) event (TYPE default 2)",
     RunStandby},
});

}  // namespace

}  // namespace quillon_platform
