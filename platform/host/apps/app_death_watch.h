// App death: every app this process launched, and every recorded app it has seen once a
// listener is set, is watched through a pidfd on the default GLib main context. When one
// ends, its record goes, a child of ours is reaped, and the listener gets the pid.
#pragma once

#include <string>

#include "apps/app_records.h"
#include "aul.h"

namespace host {
namespace apps {

// Starts watching app.pid unless it is watched already. `child`: we launched it, so we
// must reap it.
void Watch(const RunningApp& app, bool child);

// Watch() for an app found in the records: reaped when it happens to be our child.
void WatchRecorded(const RunningApp& app);

// Replaces the listener (null removes it) and watches every live recorded app.
void SetDeathListener(aul_app_dead_event_cb cb, void* data);

// True when a listener is set.
bool HasDeathListener();

// The app id of a watched pid, also while its death is being reported.
bool WatchedAppId(int pid, std::string* appid);

}  // namespace apps
}  // namespace host
