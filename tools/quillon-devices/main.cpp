// quillon-devices: the TV owner's device list ("org.nuvak.quillon-devices"). A window with
// every device the daemon keeps and its verdict, to allow, block or forget one, or all;
// made for a remote (devices_window.cpp).
#include <glib-unix.h>
#include <signal.h>

#include <cstdio>
#include <functional>
#include <string>

#include "devices_window.h"

namespace {

const char kUsage[] =
    "usage: quillon-devices\n"
    "       quillon-devices --help | --version\n"
    "\n"
    "The device list of Quillon (app id \"org.nuvak.quillon-devices\"): every device the\n"
    "daemon keeps, with its icon, name, addresses, verdict (allowed, blocked, undecided) and\n"
    "TV-initiated mirroring, the reverse list in a section of its own. Allow, Block and Forget\n"
    "act on the selected device; Forget all devices asks first (Cancel is the default). The\n"
    "list follows the daemon's signals and is read again whenever the window is active again;\n"
    "while the daemon is not on the bus the window says so.\n"
    "\n"
    "keys: Up, Down select a device; Left, Right, Tab move between the actions; Enter\n"
    "chooses; Escape or Back closes the question, or the window.\n"
    "\n"
    "Changing the list needs root or membership of the group quillon-manage.\n"
    "\n"
    "environment:\n"
    "  DISPLAY, WAYLAND_DISPLAY  where the window goes (X11 or Wayland)\n"
    "  DBUS_SYSTEM_BUS_ADDRESS   the system bus the daemon is on\n"
    "\n"
    "exit status: 0 closed (also by SIGTERM, SIGINT); 2 bad arguments or no display\n";

gboolean OnTerminate(gpointer data) {
    auto* close = static_cast<std::function<void()>*>(data);
    if (*close)
        (*close)();
    return G_SOURCE_CONTINUE;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string arg = argc == 2 ? argv[1] : "";
    if (arg == "--version") {
        std::printf("quillon-devices %s\n", QUILLON_VERSION);
        return 0;
    }
    if (arg == "--help" || arg == "-h") {
        std::fputs(kUsage, stdout);
        return 0;
    }
    if (argc > 1) {
        std::fprintf(stderr, "quillon-devices: unknown argument '%s'\n%s", argv[1], kUsage);
        return 2;
    }
    std::function<void()> close;
    g_unix_signal_add(SIGTERM, OnTerminate, &close);
    g_unix_signal_add(SIGINT, OnTerminate, &close);
    return quillon_devices::RunDevicesWindow(&close);
}
