#include "system/setting_flag.h"

#include <cstdlib>

#include "vconf.h"

namespace host {

FlagRead ReadFlag(const char* key, bool* value) {
    int number = 0;
    if (vconf_get_bool(key, &number) == VCONF_OK || vconf_get_int(key, &number) == VCONF_OK) {
        *value = number != 0;
        return FlagRead::kValue;
    }
    char* text = vconf_get_str(key);
    if (text) {
        std::free(text);
        return FlagRead::kWrongType;
    }
    return FlagRead::kMissing;
}

}  // namespace host
