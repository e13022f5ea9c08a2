// The prompt's own texts; the device's name and addresses are device_text.h's.
#pragma once

#include <string>

namespace quillon_ux {

// The countdown line for the seconds left.
std::string CountdownText(int seconds_left);

}  // namespace quillon_ux
