// An SSID as text. SSIDs are up to 32 arbitrary bytes; one that is not printable UTF-8 is
// shown with its other bytes escaped, so it can go into a log line or a terminal as is.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace host::network {

// Valid UTF-8 without control characters or backslashes: the bytes as they are. Otherwise
// printable ASCII stays, a backslash is doubled and every other byte becomes "\xNN", so an
// escaped SSID never reads like another one.
std::string SsidText(const std::vector<uint8_t>& ssid);

}  // namespace host::network
