// quillonctl's exit statuses, which scripts rely on.
#pragma once

namespace quillonctl {

constexpr int kExitOk = 0;           // the daemon answered, and the answer is a success
constexpr int kExitNegative = 1;     // the daemon answered: not found, refused or failed
constexpr int kExitUsage = 2;        // bad command line
constexpr int kExitUnreachable = 3;  // no bus, no daemon, no answer in time
constexpr int kExitDenied = 4;       // the bus policy refused the call to this user

}  // namespace quillonctl
