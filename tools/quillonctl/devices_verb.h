// quillonctl devices: the owner's device list window (quillon-devices) for people who start
// from a shell.
#pragma once

#include "options.h"

namespace quillonctl {

// With a display, becomes quillon-devices (found beside quillonctl, then in PATH); without
// one prints where it is and exits 0. 1 when it is not installed, 2 bad usage.
int RunDevicesVerb(const Options& options);

}  // namespace quillonctl
