// Where the host platform keeps all of its state.
#pragma once

#include <string>

namespace host {

// $QUILLON_PLATFORM_ROOT, or /var/lib/quillon when it is unset or empty.
std::string PlatformRoot();

// PlatformRoot() + "/" + sub, the directory created (mode 0700) when missing.
// Empty on failure.
std::string PlatformDir(const std::string& sub);

}  // namespace host
