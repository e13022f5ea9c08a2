// The settings store on a host: one small typed file per key under
// $QUILLON_PLATFORM_ROOT/settings ("int\n42\n", "bool\n1\n", "string\n<text>").
#pragma once

#include <string>

namespace host {
namespace settings {

enum class Type { kInt, kBool, kString };

struct Value {
    Type type = Type::kInt;
    int number = 0;    // kInt, and kBool as 0 or 1
    std::string text;  // kString
};

// A value file's content: "int\nN", "bool\n0|1" (one optional final line feed) or
// "string\n<text>". False for anything else.
bool ParseValueFile(const std::string& content, Value* value);

// The settings directory, not created.
std::string DirectoryPath();
// The settings directory, created when missing; empty on failure.
std::string EnsureDirectory();

// False when the key is invalid, missing, unreadable or its file is damaged. This process's
// queued writes are seen at once (settings_writer.h).
bool Read(const std::string& key, Value* value);
// Queues the key's new file: readers see the old value or the new one, never a mix. False
// only for an invalid key or a settings folder that cannot be made; a disk failure is
// logged by the writer thread and seen by Sync().
bool Write(const std::string& key, const Value& value);
// False when the key is invalid or missing.
bool Remove(const std::string& key);

}  // namespace settings
}  // namespace host
