// The changed key as change callbacks see it.
#pragma once

#include <string>

#include "settings/settings_store.h"
#include "vconf.h"

struct _keynode_t {
    std::string name;
    host::settings::Value value;
};
