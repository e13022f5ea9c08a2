// Always-on voice: active while the host's voice key says so (see host_setting_keys.h).
#include "aov.h"
#include "system/host_setting_keys.h"
#include "system/setting_flag.h"

extern "C" bool AOVSystemDataIsAOVActivated(void) {
    bool active = false;
    return host::ReadFlag(host::kVoiceActiveKey, &active) == host::FlagRead::kValue && active;
}
