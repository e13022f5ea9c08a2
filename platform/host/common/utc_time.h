// Times the host shows people and keeps in its records: UTC, ISO 8601, to the second.
#pragma once

#include <ctime>
#include <string>

namespace host {

// "2026-11-23T21:30:05Z"; "?" when the time cannot be converted.
std::string UtcTimeText(time_t when);

}  // namespace host
