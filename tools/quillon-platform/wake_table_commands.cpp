// The wake-tables command: the Bluetooth power-on (headless) table and the Wake-on-WLAN
// waker table as the daemon left them, for people or (with --json) for scripts.
#include <cstdio>
#include <ctime>
#include <string>
#include <vector>

#include "command.h"
#include "common/utc_time.h"
#include "wake_tables/wake_tables_db.h"

namespace quillon_platform {

namespace {

std::string JsonString(const std::string& text) {
    std::string out = "\"";
    for (unsigned char c : text) {
        switch (c) {
            case '"':
                out += "\\\"";
                break;
            case '\\':
                out += "\\\\";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\t':
                out += "\\t";
                break;
            case '\r':
                out += "\\r";
                break;
            default:
                if (c < 0x20) {
                    char escaped[8];
                    std::snprintf(escaped, sizeof(escaped), "\\u%04x", c);
                    out += escaped;
                } else {
                    out += static_cast<char>(c);
                }
        }
    }
    return out + "\"";
}

void PrintJson(const std::vector<host::wake::HeadlessDevice>& headless,
               const std::vector<host::wake::Waker>& wakers) {
    std::string out = "{\"bt_headless\": [";
    for (size_t i = 0; i < headless.size(); ++i) {
        const host::wake::HeadlessDevice& d = headless[i];
        out += i ? ", " : "";
        out += "{\"address\": " + JsonString(d.address) +
               ", \"device_type\": " + JsonString(d.device_type) +
               ", \"permission\": " + std::to_string(d.permission) +
               ", \"registered\": " + (d.registered ? "true" : "false") +
               ", \"added_at\": " + std::to_string(d.added_at) + "}";
    }
    out += "], \"wowl_wakers\": [";
    for (size_t i = 0; i < wakers.size(); ++i) {
        out += i ? ", " : "";
        out += "{\"address\": " + JsonString(wakers[i].address) +
               ", \"flags\": " + std::to_string(wakers[i].flags) + "}";
    }
    out += "]}\n";
    std::fputs(out.c_str(), stdout);
}

void PrintText(const std::vector<host::wake::HeadlessDevice>& headless,
               const std::vector<host::wake::Waker>& wakers) {
    std::printf("Bluetooth power-on (headless) table: %zu device%s\n", headless.size(),
                headless.size() == 1 ? "" : "s");
    for (const host::wake::HeadlessDevice& d : headless) {
        std::printf("  %-17s  type %s  permission %d  %s  added %s\n", d.address.c_str(),
                    d.device_type.c_str(), d.permission,
                    d.registered ? "registered" : "not registered",
                    host::UtcTimeText(static_cast<time_t>(d.added_at)).c_str());
    }
    std::printf("Wake-on-WLAN waker table: %zu device%s\n", wakers.size(),
                wakers.size() == 1 ? "" : "s");
    for (const host::wake::Waker& w : wakers)
        std::printf("  %-17s  flags %d\n", w.address.c_str(), w.flags);
}

int RunWakeTables(const Command& self, const std::vector<std::string>& args) {
    bool json = false;
    for (const std::string& arg : args) {
        if (arg == "--json" && !json) {
            json = true;
        } else {
            return BadInput(self, "unexpected argument '" + arg + "'");
        }
    }
    std::vector<host::wake::HeadlessDevice> headless;
    std::vector<host::wake::Waker> wakers;
    if (!host::wake::ReadTables(&headless, &wakers)) {
        std::fprintf(stderr, "quillon-platform: cannot read %s\n",
                     host::wake::DatabasePath().c_str());
        return kExitFailed;
    }
    if (json) {
        PrintJson(headless, wakers);
    } else {
        PrintText(headless, wakers);
    }
    return kExitOk;
}

const CommandRegistrar kRegistrar({
    {"wake-tables", "wake-tables [--json]",
     "the Bluetooth power-on and Wake-on-WLAN tables (--json for scripts)", RunWakeTables},
});

}  // namespace

}  // namespace quillon_platform
