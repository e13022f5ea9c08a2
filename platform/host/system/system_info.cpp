// Product feature flags from the host's settings keys (see host_setting_keys.h).
#include <string>

#include "settings/settings_key.h"
#include "system/host_setting_keys.h"
#include "system/setting_flag.h"
#include "system_info.h"

extern "C" int system_info_get_custom_bool(const char* key, bool* value) {
    if (!key || !*key || !value)
        return SYSTEM_INFO_ERROR_INVALID_PARAMETER;
    std::string settings_key = std::string(host::kFeatureKeyPrefix) + key;
    if (!host::settings::IsValidKey(settings_key.c_str()))
        return SYSTEM_INFO_ERROR_INVALID_PARAMETER;
    bool flag = false;
    switch (host::ReadFlag(settings_key.c_str(), &flag)) {
        case host::FlagRead::kWrongType:
            return SYSTEM_INFO_ERROR_IO_ERROR;
        case host::FlagRead::kMissing:
            // A product that does not mention a feature does not have it.
            *value = false;
            return SYSTEM_INFO_ERROR_NONE;
        case host::FlagRead::kValue:
            break;
    }
    *value = flag;
    return SYSTEM_INFO_ERROR_NONE;
}
