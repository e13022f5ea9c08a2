// The storage key: 32 random bytes in one file under the platform root, made once.
#pragma once

#include <cstdint>
#include <string>

#include "secure_storage/secure_storage_format.h"

namespace host {
namespace secure {

// Path of the key file for the current platform root.
std::string KeyPath();

// Loads the key; with create, makes it first when there is none. Two processes racing to
// create it end up with the same key. An SS_ERROR_* value.
int LoadKey(bool create, uint8_t key[kKeyBytes]);

}  // namespace secure
}  // namespace host
