// Settings keys through which the host stands in for the TV's power manager, product
// feature flags and voice service, so tests and demos can change them at run time.
#pragma once

namespace host {

// int: the device_power_state_e the TV is in; missing means fully on (0).
constexpr const char* kPowerStateKey = "memory/quillon-host/power_state";

// int: every write of this key is one standby (instant-off) event; the value written is the
// type the standby callbacks get.
constexpr const char* kStandbyKey = "memory/quillon-host/standby";

// bool (or int, non-zero true): a product feature flag is this prefix plus the flag's own
// name ("memory/quillon-host/feature/com.corvane/featureconf/tessel_support"); missing is
// false.
constexpr const char* kFeatureKeyPrefix = "memory/quillon-host/feature/";

// bool (or int, non-zero true): voice wake-up is active; missing is false.
constexpr const char* kVoiceActiveKey = "memory/quillon-host/aov_active";

// The standby type reported for a system suspend announced by logind.
constexpr int kSleepStandbyType = 2;

}  // namespace host
