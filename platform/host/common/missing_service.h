// The host platform's own log tag.
#pragma once

namespace host {

// Tag of the host platform's own log lines.
constexpr const char* kHostLogTag = "QUILLON_HOST";

}  // namespace host
