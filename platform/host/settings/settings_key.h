// Settings keys as file names: every key is one file in a flat directory, so the key is
// checked and encoded before it comes near the file system.
#pragma once

#include <string>

namespace host {
namespace settings {

// A key is 1 to 255 bytes of printable ASCII without blanks or backslashes, with no "..",
// no "//" and no '/' at either end, whose file name fits in one directory entry.
bool IsValidKey(const char* key);

// The file name of a valid key: letters, digits, '_', '-' and inner '.' stand as they are,
// every other byte becomes %XX ("db/a" -> "db%2Fa"). Never starts with '.', which is kept
// for temporary files.
std::string KeyToFileName(const std::string& key);

// The key a settings file stands for; false for temporary files and foreign names.
bool FileNameToKey(const std::string& name, std::string* key);

}  // namespace settings
}  // namespace host
