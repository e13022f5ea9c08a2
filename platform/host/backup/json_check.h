// Whether a backup payload is JSON, checked on the caller's thread before it is queued. Only
// the syntax is checked, nothing is built: the whole device list goes by on every change.
#pragma once

#include <cstddef>
#include <string>

namespace host {
namespace backup {

// True when text[0, size) is one JSON value (RFC 8259; any value at the top, an optional
// UTF-8 byte order mark before it, white space around it) nested at most 512 deep. Every
// text it accepts, JsonCpp's strict reader accepts too. `error` says what is wrong.
bool IsJson(const char* text, size_t size, std::string* error);

}  // namespace backup
}  // namespace host
