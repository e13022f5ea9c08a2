// Services the host platform does not offer yet: their functions fail with the platform's
// own error code and say so once in the log, so an operator sees why a feature is off.
#pragma once

namespace host {

// Tag of the host platform's own log lines.
constexpr const char* kHostLogTag = "QUILLON_HOST";

// Logs WARN "host platform: no <service> yet (<function>)" the first time a function is
// called in this process; later calls stay quiet.
void WarnMissingService(const char* service, const char* function);

}  // namespace host
