// The daemon takes no options: it is configured through platform settings only. --help and
// --version answer people who try, and touch no state.
#include <cstdio>
#include <cstring>

#include "quillon_main.h"

int main(int argc, char** argv) {
    if (argc > 1) {
        if (std::strcmp(argv[1], "--version") == 0 && argc == 2) {
            std::printf("quillon %s\n", QUILLON_VERSION);
            return 0;
        }
        bool help = (std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0);
        std::fprintf(help ? stdout : stderr,
                     "usage: quillon\n"
                     "The Quillon device-access daemon. It takes no options: systemd or D-Bus\n"
                     "activation starts it, and platform settings configure it (see quillon(8)).\n"
                     "Environment: QUILLON_PLATFORM_ROOT, QUILLON_LOG_LEVEL, "
                     "DBUS_SYSTEM_BUS_ADDRESS.\n");
        return help && argc == 2 ? 0 : 2;
    }
    return RunDaemon();
}
