// The owner's device list (GTK 4): every stored device with its verdict, and Allow, Block,
// Forget and Forget all. Made for a TV remote: Up and Down select a device, Left and Right
// (or Tab) move between the actions, Enter chooses, Escape or Back closes the question or
// the window. It follows the daemon's signals, so a change made anywhere shows at once.
#pragma once

#include <functional>

namespace quillon_devices {

// Shows the window until it is closed or *close is called (set while the window runs, for
// the caller's signal handlers). Returns the exit status: 0 closed, 2 no display.
int RunDevicesWindow(std::function<void()>* close);

}  // namespace quillon_devices
