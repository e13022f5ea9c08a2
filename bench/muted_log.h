// The benchmarks' log sink: what the daemon pays to produce its log lines, without the
// fake platform's capture.
#pragma once

#include <cstdint>

namespace bench {

// Lines logged by the daemon in this process so far.
std::uint64_t LogLineCount();

}  // namespace bench
