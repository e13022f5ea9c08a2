// Calls on the daemon's object over the system bus (DBUS_SYSTEM_BUS_ADDRESS when set).
#pragma once

#include <gio/gio.h>

#include <string>

namespace quillonctl {

#define QUILLON_BUS_NAME "org.nuvak.quillon"
#define QUILLON_OBJECT_PATH "/org/nuvak/quillon"
#define QUILLON_SET_INTERFACE "org.nuvak.quillon.SetInterface"
#define QUILLON_GET_INTERFACE "org.nuvak.quillon.GetInterface"
#define QUILLON_UX_INTERFACE "org.nuvak.quillon.UxInterface"

// The system bus, or null with *error.
GDBusConnection* ConnectSystemBus(std::string* error);

// The reply (of reply_type), or null with *error saying why the daemon gave none and
// *exit_status the status that says so: kExitDenied when the bus policy refused the call
// to this user, kExitUnreachable when the daemon is not running or did not answer within
// timeout_ms.
GVariant* CallDaemon(GDBusConnection* bus, const char* interface, const char* method,
                     GVariant* parameters, const GVariantType* reply_type, int timeout_ms,
                     std::string* error, int* exit_status);

}  // namespace quillonctl
