// quillonctl backup / restore: asks the daemon for a full backup or a restore the way the
// platform's backup service does (through its settings keys) and waits for the outcome.
#pragma once

#include "options.h"

namespace quillonctl {

// 0 when the backup was stored or the restore succeeded; 1 when it failed or no outcome
// came within --timeout (default 10 s); 2 bad usage; 3 the daemon is not on the bus.
int RunBackupVerb(const Options& options);

}  // namespace quillonctl
