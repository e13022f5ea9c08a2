// quillonctl monitor: prints the daemon's signals as they arrive.
#pragma once

#include "options.h"

namespace quillonctl {

// --count N ends after N signals (0), --timeout S after S seconds (0, or 1 when --count was
// given and not reached); SIGINT and SIGTERM end it with 0, a lost bus with 3.
int RunMonitor(const Options& options);

}  // namespace quillonctl
