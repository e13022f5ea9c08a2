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

// The settings directory, not created.
std::string DirectoryPath();
// The settings directory, created when missing; empty on failure.
std::string EnsureDirectory();

// False when the key is invalid, missing, unreadable or its file is damaged.
bool Read(const std::string& key, Value* value);
// Replaces the key's file atomically: readers see the old value or the new one.
bool Write(const std::string& key, const Value& value);
// False when the key is invalid or missing.
bool Remove(const std::string& key);

}  // namespace settings
}  // namespace host
