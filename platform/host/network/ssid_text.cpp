#include "network/ssid_text.h"

#include <glib.h>

#include <cstdio>

namespace host::network {

namespace {

bool PrintableUtf8(const std::string& text) {
    if (!g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr))
        return false;
    for (const char* p = text.c_str(); *p != '\0'; p = g_utf8_next_char(p)) {
        const gunichar c = g_utf8_get_char(p);
        if (g_unichar_iscntrl(c) || c == '\\')
            return false;
    }
    return true;
}

}  // namespace

std::string SsidText(const std::vector<uint8_t>& ssid) {
    const std::string bytes(ssid.begin(), ssid.end());
    // A NUL inside would cut the text short wherever it goes next.
    if (bytes.find('\0') == std::string::npos && PrintableUtf8(bytes))
        return bytes;
    std::string text;
    for (uint8_t byte : ssid) {
        if (byte == '\\') {
            text += "\\\\";
        } else if (byte >= 0x20 && byte < 0x7f) {
            text += static_cast<char>(byte);
        } else {
            char escaped[5];
            std::snprintf(escaped, sizeof(escaped), "\\x%02x", byte);
            text += escaped;
        }
    }
    return text;
}

}  // namespace host::network
