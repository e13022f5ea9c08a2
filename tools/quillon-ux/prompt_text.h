// The texts the prompt shows, made from what the daemon handed over.
#pragma once

#include <string>

#include "prompt_request.h"

namespace quillon_ux {

// The device's name as plain text: invalid UTF-8 replaced, never interpreted as markup by
// the caller (the window sets it with gtk_label_set_text). "Unknown device" when empty.
std::string DisplayName(const std::string& device_name);

// One line per address the daemon passed that is not "0" or empty ("Bluetooth  AA:BB:...").
std::string AddressLines(const PromptRequest& request);

// The countdown line for the seconds left.
std::string CountdownText(int seconds_left);

}  // namespace quillon_ux
