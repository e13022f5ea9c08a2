// What the owner's choices ask of the daemon, and how its answer reads: Allow and Block
// (pxm_set_status), Forget (pxm_remove_device, or _reverse for the reverse list) and Forget
// all (pxm_remove_all, then pxm_remove_all_reverse).
#pragma once

#include <gio/gio.h>

#include <functional>
#include <string>

#include "stored_device.h"

namespace quillon_devices {

enum class Action { kAllow, kBlock, kForget };

// ok: the daemon did what was asked; sentence: one sentence for the person, also logged.
using ActionDone = std::function<void(bool ok, const std::string& sentence)>;

// Whether the action can be asked for this device: the daemon sets verdicts in the normal
// list only, and finds a device only by an address.
bool ActionApplies(Action action, const StoredDevice& device);

void RunAction(GDBusConnection* bus, GCancellable* cancellable, Action action,
               const StoredDevice& device, ActionDone done);

// Empties both lists. The daemon answers 0 for the reverse list even when it emptied it,
// so that answer is no verdict: the caller judges the reverse list by reading it again.
void ForgetAll(GDBusConnection* bus, GCancellable* cancellable, ActionDone done);

}  // namespace quillon_devices
