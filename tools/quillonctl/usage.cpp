#include "usage.h"

#include <cstdio>
#include <string>

#include "commands.h"

namespace quillonctl {

namespace {

const char kHead[] =
    "usage: quillonctl [--json] [--timeout S] COMMAND [ARGUMENTS]\n"
    "       quillonctl --help | --version\n"
    "\n"
    "Talks to the Quillon daemon (org.nuvak.quillon, /org/nuvak/quillon) on the system bus,\n"
    "or on the bus that DBUS_SYSTEM_BUS_ADDRESS names.\n"
    "\n"
    "commands:\n";

const char kTail[] =
    "  monitor [--count N] [--timeout S]\n"
    "      print pxm_signal_status_changed and pxm_signal_tv_init_mirroring_changed as they\n"
    "      arrive; \"watching the signals\" on stderr means nothing is missed from then on\n"
    "  backup [--timeout S]\n"
    "      ask the daemon for a full backup, as the backup service does, and wait (default\n"
    "      10 s) until the service has stored it; prints the version\n"
    "  restore [--timeout S]\n"
    "      ask the daemon to restore its list from the backup service and wait (default\n"
    "      10 s) for the outcome it reports; exit 1 when the restore failed\n"
    "  devices\n"
    "      open the device list window (quillon-devices) on the display; without DISPLAY or\n"
    "      WAYLAND_DISPLAY print where the program is; exit 1 when it is not installed\n"
    "\n"
    "arguments:\n"
    "  MAC     an address as stored, e.g. AA:BB:CC:DD:EE:FF (case does not matter)\n"
    "  IND     which address MAC is: bt (1), wifi (2) or p2p (3)\n"
    "  STATUS  allow (0) or deny (1); undecided (2) and other numbers are passed on\n"
    "  TYPE    name (1) or zel-id (2)\n"
    "  N       a decimal integer\n"
    "\n"
    "device options (request, request-reverse, feedback; texts default to \"\", numbers to 0):\n"
    "  --name NAME  --bt MAC  --wifi MAC  --p2p MAC  --zel-id ID  --mirroring-id ID\n"
    "  --type N  --icon N  --status STATUS  --tv-init-mirroring N  --no-ux N  --ux-always N\n"
    "  (addresses are checked as MAC is; texts must be valid UTF-8)\n"
    "\n"
    "options:\n"
    "  --json       one JSON object per line: {\"method\", \"result\", \"meaning\"} for codes,\n"
    "               {\"found\", \"device\"} for device, {\"count\", \"devices\"} for list,\n"
    "               {\"signal\", \"bt_mac\", \"wifi_mac\", \"p2p_mac\", \"status\", \"meaning\"} "
    "or\n"
    "               {..., \"tvInitMirroringSupport\"} for monitor's two signals;\n"
    "               devices carry the record's field names (devname, bt_mac, devstatus ...)\n"
    "  --timeout S  wait at most S seconds for the answer (default 25); for monitor, watch\n"
    "               for S seconds\n"
    "  --help, -h   this text\n"
    "  --version    the version\n"
    "\n"
    "exit status:\n"
    "  0  the daemon answered, and the answer is a success (request: any verdict;\n"
    "     remove-all-reverse: any answer, the daemon always says 0 there);\n"
    "     monitor: --count signals seen, or --timeout without --count, or stopped\n"
    "  1  the daemon answered no: not found (status -1, device, remove, set-param,\n"
    "     set-status 4), refused (request -1), invalid (set-status 3), unchanged\n"
    "     (set-mirroring 0) or failed (remove-all 0, set-status 0);\n"
    "     monitor: --timeout before --count signals\n"
    "  2  bad usage\n"
    "  3  the bus or the daemon cannot be reached: no bus, the daemon is not running, or no\n"
    "     answer in time (the daemon does not answer feedback with a status above 2)\n"
    "  4  permission denied: the bus policy refused the call (set-status, remove,\n"
    "     remove-reverse, remove-all and remove-all-reverse need root or membership of the\n"
    "     group quillon-manage, the other Set methods root; feedback needs root or\n"
    "     membership of the group quillon-prompt)\n";

}  // namespace

void PrintUsage() {
    std::fputs(kHead, stdout);
    for (const Command& command : MethodCommands()) {
        std::string line = "  " + command.name;
        if (!command.usage.empty()) {
            line += " " + command.usage;
        }
        std::printf("%s\n      %s (%s)\n", line.c_str(), command.summary.c_str(), command.method);
    }
    std::fputs(kTail, stdout);
}

}  // namespace quillonctl
