#include "settings/settings_key.h"

#include <limits.h>

#include <cstring>

namespace host {
namespace settings {

namespace {

constexpr size_t kMaxKeyLength = 255;

bool KeptAsIs(char c, size_t position) {
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'))
        return true;
    if (c == '_' || c == '-')
        return true;
    return c == '.' && position > 0;
}

int HexValue(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

}  // namespace

std::string KeyToFileName(const std::string& key) {
    static const char kHex[] = "0123456789ABCDEF";
    std::string name;
    name.reserve(key.size() * 3);
    for (size_t i = 0; i < key.size(); ++i) {
        unsigned char c = static_cast<unsigned char>(key[i]);
        if (KeptAsIs(key[i], i)) {
            name += key[i];
        } else {
            name += '%';
            name += kHex[c >> 4];
            name += kHex[c & 0xF];
        }
    }
    return name;
}

bool IsValidKey(const char* key) {
    if (!key)
        return false;
    size_t length = std::strlen(key);
    if (length == 0 || length > kMaxKeyLength)
        return false;
    for (size_t i = 0; i < length; ++i) {
        unsigned char c = static_cast<unsigned char>(key[i]);
        if (c <= ' ' || c >= 0x7f || c == '\\')
            return false;
    }
    if (std::strstr(key, "..") || std::strstr(key, "//"))
        return false;
    if (key[0] == '/' || key[length - 1] == '/')
        return false;
    return KeyToFileName(key).size() <= NAME_MAX;
}

bool FileNameToKey(const std::string& name, std::string* key) {
    if (name.empty() || name[0] == '.')
        return false;
    std::string decoded;
    for (size_t i = 0; i < name.size(); ++i) {
        if (name[i] != '%') {
            decoded += name[i];
            continue;
        }
        if (i + 2 >= name.size())
            return false;
        int high = HexValue(name[i + 1]), low = HexValue(name[i + 2]);
        if (high < 0 || low < 0)
            return false;
        decoded += static_cast<char>(high * 16 + low);
        i += 2;
    }
    // Only the one canonical spelling of a key counts, so two files never hold one key.
    if (!IsValidKey(decoded.c_str()) || KeyToFileName(decoded) != name)
        return false;
    *key = decoded;
    return true;
}

}  // namespace settings
}  // namespace host
