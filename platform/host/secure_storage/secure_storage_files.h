// File handling behind secure storage: durable replace, keeping damage aside, the lock file.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

#include "common/whole_file.h"

namespace host {
namespace secure {

// Temporary file in dir, fsync, rename over dir/name, fsync dir. On failure before the rename
// the temporary file is removed and dir/name is untouched. 0 or an errno value.
int ReplaceDurably(const std::string& dir, const std::string& name,
                   const std::vector<uint8_t>& bytes);

// Why an item is kept aside: it is damaged, or it could not be read and is about to be
// written over.
constexpr const char* kCorrupt = "corrupt";
constexpr const char* kUnreadable = "unreadable";

// "NAME.corrupt-20261121T153000Z" (or ".unreadable-"), with "-N" from the second one in the
// same second.
std::string AsideName(const std::string& name, const char* why, time_t when, int n);
// Whether a directory entry is such a kept-aside file rather than a live item.
bool IsAsideName(const std::string& entry);

// Renames dir/name to a free aside name of the current time. 0 or an errno value.
int MoveAside(const std::string& dir, const std::string& name, const char* why, std::string* aside);

// An exclusive flock held for its lifetime; another process replacing or moving items
// waits for it. Not holding it (lock file unusable) is logged by the caller and tolerated.
class ExclusiveFileLock {
public:
    explicit ExclusiveFileLock(const std::string& path);
    ~ExclusiveFileLock();
    ExclusiveFileLock(const ExclusiveFileLock&) = delete;
    ExclusiveFileLock& operator=(const ExclusiveFileLock&) = delete;
    bool held() const { return fd_ >= 0; }

private:
    int fd_ = -1;
};

}  // namespace secure
}  // namespace host
