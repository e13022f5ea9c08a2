// Reading the host's flag keys, which people set with set-bool or set-int alike.
#pragma once

namespace host {

enum class FlagRead { kMissing, kValue, kWrongType };

// kValue: *value is the flag (an int counts as true when non-zero). kMissing: no such key
// (or one that cannot be read). kWrongType: the key holds a string.
FlagRead ReadFlag(const char* key, bool* value);

}  // namespace host
