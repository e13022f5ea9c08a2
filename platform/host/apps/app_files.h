// Small files of the app manager (registry entries, running-app records): written whole
// and atomically, so another process reads the old content or the new, never a mix.
#pragma once

#include <string>
#include <vector>

namespace host {
namespace apps {

// Writes dir/name through a temporary file and a rename.
bool WriteFileAtomically(const std::string& dir, const std::string& name,
                         const std::string& content);

// False when the file is missing, unreadable or larger than any of ours.
bool ReadSmallFile(const std::string& path, std::string* content);

// The names in dir that do not start with '.' (temporary files do); empty when dir is
// missing.
std::vector<std::string> ListDirectory(const std::string& dir);

}  // namespace apps
}  // namespace host
