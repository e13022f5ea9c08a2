// The daemon's object on the system bus (DBUS_SYSTEM_BUS_ADDRESS when set), as the prompt and
// the device list call it, and what a failed call means in one sentence a person can read.
#pragma once

#include <gio/gio.h>

#include <functional>
#include <string>

namespace quillon_ux {

inline constexpr const char* kBusName = "org.nuvak.quillon";
inline constexpr const char* kObjectPath = "/org/nuvak/quillon";
inline constexpr const char* kSetInterface = "org.nuvak.quillon.SetInterface";
inline constexpr const char* kGetInterface = "org.nuvak.quillon.GetInterface";
inline constexpr const char* kUxInterface = "org.nuvak.quillon.UxInterface";

// The system bus, or null with *error.
GDBusConnection* ConnectSystemBus(std::string* error);

// One sentence for a call the daemon did not answer: refused by the bus policy (and who may
// make it), the daemon not on the bus, no answer in time, or the bus's own message.
std::string CallFailure(const char* method, const GError* error);

// The reply, or null with *error (CallFailure's sentence). Waits for the daemon.
GVariant* CallDaemonSync(GDBusConnection* bus, const char* interface, const char* method,
                         GVariant* parameters, const GVariantType* reply_type, std::string* error);

// The reply (null with the sentence on failure) reaches done on the caller's main context.
// A cancelled call never reaches it: whoever cancels is going away.
using CallDone = std::function<void(GVariant* reply, const std::string& error)>;
void CallDaemon(GDBusConnection* bus, const char* interface, const char* method,
                GVariant* parameters, const GVariantType* reply_type, GCancellable* cancellable,
                CallDone done);

}  // namespace quillon_ux
