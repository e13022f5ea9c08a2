// Reads a NetworkView from NetworkManager with synchronous calls, each bounded by
// kCallTimeoutMs and by `cancel`. Runs on the monitor's thread, never on the main loop.
#pragma once

#include <gio/gio.h>

#include "network/network_view.h"

namespace host::network {

constexpr int kCallTimeoutMs = 1500;

// Fills everything of `view` except presence and owner. False, with *error set, when the
// manager itself did not answer; a connection, device or access point that is gone by the
// time it is read is left out, since its going brings another signal and another read.
bool ReadView(GDBusConnection* bus, GCancellable* cancel, NetworkView* view, GError** error);

}  // namespace host::network
