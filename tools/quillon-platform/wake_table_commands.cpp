// The wake-tables command: the Bluetooth power-on (headless) table and the Wake-on-WLAN
// waker table as the daemon left them, for people or (with --json) for scripts.
#include <cctype>
#include <cstdio>
#include <ctime>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "command.h"
#include "common/utc_time.h"
#include "stored_list.h"
#include "vconf.h"
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

std::string Upper(std::string text) {
    for (char& c : text)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

// The rows the tables should hold: every allowed device's usable addresses. Rows already
// there keep their registration and time.
void ExpectedRows(const std::vector<AllowedDevice>& allowed,
                  const std::vector<host::wake::HeadlessDevice>& headless,
                  std::vector<host::wake::HeadlessDevice>* want_headless,
                  std::vector<host::wake::Waker>* want_wakers) {
    std::map<std::string, host::wake::HeadlessDevice> present;
    for (const host::wake::HeadlessDevice& d : headless)
        present[Upper(d.address)] = d;
    std::set<std::string> seen_bt, seen_wifi;
    for (const AllowedDevice& d : allowed) {
        if (!d.bt_mac.empty() && seen_bt.insert(Upper(d.bt_mac)).second) {
            auto it = present.find(Upper(d.bt_mac));
            host::wake::HeadlessDevice row{d.bt_mac, "Phone", 1, true,
                                           static_cast<int64_t>(time(nullptr))};
            if (it != present.end()) {
                row.registered = it->second.registered;
                row.added_at = it->second.added_at;
            }
            want_headless->push_back(row);
        }
        if (!d.wifi_mac.empty() && seen_wifi.insert(Upper(d.wifi_mac)).second)
            want_wakers->push_back(host::wake::Waker{d.wifi_mac, 0});
    }
}

// Lines "TABLE missing|extra ADDRESS" for the difference between what is and what should be.
template <typename Row>
void Diff(const char* table, const std::vector<Row>& have, const std::vector<Row>& want,
          std::vector<std::string>* lines) {
    std::set<std::string> have_set, want_set;
    for (const Row& r : have)
        have_set.insert(Upper(r.address));
    for (const Row& r : want)
        want_set.insert(Upper(r.address));
    for (const std::string& a : want_set)
        if (!have_set.count(a))
            lines->push_back(std::string(table) + " missing " + a + " (an allowed device)");
    for (const std::string& a : have_set)
        if (!want_set.count(a))
            lines->push_back(std::string(table) + " extra   " + a + " (not an allowed device)");
}

int CheckOrRepair(bool repair, const std::vector<host::wake::HeadlessDevice>& headless,
                  const std::vector<host::wake::Waker>& wakers) {
    std::vector<AllowedDevice> allowed;
    std::string error;
    if (!ReadAllowedDevices(&allowed, &error)) {
        std::fprintf(stderr, "quillon-platform: %s\n", error.c_str());
        return kExitFailed;
    }
    std::vector<host::wake::HeadlessDevice> want_headless;
    std::vector<host::wake::Waker> want_wakers;
    ExpectedRows(allowed, headless, &want_headless, &want_wakers);
    std::vector<std::string> lines;
    Diff("bt_headless", headless, want_headless, &lines);
    Diff("wowl_wakers", wakers, want_wakers, &lines);
    for (const std::string& line : lines)
        std::printf("%s\n", line.c_str());
    if (lines.empty()) {
        std::printf("wake tables agree with the stored list (%zu allowed device%s)\n",
                    allowed.size(), allowed.size() == 1 ? "" : "s");
        return kExitOk;
    }
    if (!repair)
        return kExitFailed;
    if (!host::wake::RewriteTables(want_headless, want_wakers)) {
        std::fprintf(stderr, "quillon-platform: rewriting %s failed\n",
                     host::wake::DatabasePath().c_str());
        return kExitFailed;
    }
    // The Bluetooth side rereads its table when told that it changed, as after the daemon's.
    int status = Written(vconf_set_int("db/bleapp/db_updated", 1), "db/bleapp/db_updated");
    std::printf("repaired: %zu Bluetooth and %zu Wake-on-WLAN rows from the stored list\n",
                want_headless.size(), want_wakers.size());
    return status;
}

int RunWakeTables(const Command& self, const std::vector<std::string>& args) {
    bool json = false, check = false, repair = false;
    for (const std::string& arg : args) {
        if (arg == "--json" && !json) {
            json = true;
        } else if (arg == "--check" && !check) {
            check = true;
        } else if (arg == "--repair" && !repair) {
            repair = true;
        } else {
            return BadInput(self, "unexpected argument '" + arg + "'");
        }
    }
    if (json + check + repair > 1)
        return BadInput(self, "--json, --check and --repair go alone");
    std::vector<host::wake::HeadlessDevice> headless;
    std::vector<host::wake::Waker> wakers;
    if (!host::wake::ReadTables(&headless, &wakers)) {
        std::fprintf(stderr, "quillon-platform: cannot read %s\n",
                     host::wake::DatabasePath().c_str());
        return kExitFailed;
    }
    if (check || repair)
        return CheckOrRepair(repair, headless, wakers);
    if (json) {
        PrintJson(headless, wakers);
    } else {
        PrintText(headless, wakers);
    }
    return kExitOk;
}

const CommandRegistrar kRegistrar({
    {"wake-tables", "wake-tables [--json | --check | --repair]",
     "the Bluetooth power-on and Wake-on-WLAN tables (--json for scripts); --check: exit 1 "
     "and the difference when they disagree with the stored list's allowed devices; "
     "--repair: rewrite them from it",
     RunWakeTables},
});

}  // namespace

}  // namespace quillon_platform
