// Accessors of the node handed to settings change callbacks. A value asked for as the
// wrong type reads as -1 (numbers) or NULL (text), never as a plausible setting.
#include "settings/settings_keynode.h"

using host::settings::Type;

extern "C" char* vconf_keynode_get_name(keynode_t* keynode) {
    return keynode ? &keynode->name[0] : nullptr;
}

extern "C" int vconf_keynode_get_type(keynode_t* keynode) {
    if (!keynode)
        return VCONF_TYPE_NONE;
    switch (keynode->value.type) {
        case Type::kInt:
            return VCONF_TYPE_INT;
        case Type::kBool:
            return VCONF_TYPE_BOOL;
        case Type::kString:
            return VCONF_TYPE_STRING;
    }
    return VCONF_TYPE_NONE;
}

extern "C" int vconf_keynode_get_int(keynode_t* keynode) {
    if (!keynode || keynode->value.type != Type::kInt)
        return -1;
    return keynode->value.number;
}

extern "C" int vconf_keynode_get_bool(keynode_t* keynode) {
    if (!keynode || keynode->value.type != Type::kBool)
        return -1;
    return keynode->value.number;
}

extern "C" char* vconf_keynode_get_str(keynode_t* keynode) {
    if (!keynode || keynode->value.type != Type::kString)
        return nullptr;
    return &keynode->value.text[0];
}
