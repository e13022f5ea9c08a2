// Whole-file reads and writes on the host, riding out short reads and writes and EINTR, and
// the atomic replace that lets another process read the old content or the new, never a mix.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace host {

// Writes all size bytes. 0 or an errno value.
int WriteAll(int fd, const void* data, size_t size);

// Reads the rest of the file behind fd into out, at most max bytes (EFBIG when longer).
// 0 or an errno value.
int ReadAll(int fd, size_t max, std::string* out);
int ReadAll(int fd, size_t max, std::vector<uint8_t>* out);

// False when the file is missing, unreadable or longer than max bytes.
bool ReadSmallFile(const std::string& path, size_t max, std::string* content);

int FsyncDir(const std::string& dir);

// Temporary files of ReplaceFile start with this, then the writing process's pid.
constexpr const char* kTempPrefix = ".tmp-";

// Removes the temporary files in dir that a killed writer left behind (their pid is gone);
// those of live processes stay. The number removed, logged at WARN when not 0.
int RemoveStaleTemps(const std::string& dir);

// Writes dir/name through a temporary file in dir and a rename; with sync_file the data is
// fsynced before the rename. The directory itself is not synced. The temporary name starts
// with '.', which no file name of ours does, so directory readers and watchers skip it; on
// failure it is removed and dir/name is untouched. 0 or an errno value.
int ReplaceFile(const std::string& dir, const std::string& name, const void* data, size_t size,
                bool sync_file);

}  // namespace host
