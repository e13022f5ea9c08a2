#include "backup_verbs.h"

#include <glib.h>
#include <json/json.h>

#include <cstdio>
#include <string>
#include <vector>

#include "backup/backup_keys.h"
#include "backup/backup_store.h"
#include "bus_call.h"
#include "exit_status.h"
#include "output.h"
#include "settings/settings_writer.h"
#include "vconf.h"

namespace quillonctl {

namespace {

constexpr const char* kDaemonClient = "Zq8Tn3Wd5R";
constexpr int kDefaultWaitSeconds = 10;
constexpr gulong kPollMicroseconds = 50 * 1000;

bool DaemonOnBus(std::string* error) {
    GDBusConnection* bus = ConnectSystemBus(error);
    if (bus == nullptr)
        return false;
    GError* failure = nullptr;
    GVariant* reply = g_dbus_connection_call_sync(
        bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
        "NameHasOwner", g_variant_new("(s)", QUILLON_BUS_NAME), G_VARIANT_TYPE("(b)"),
        G_DBUS_CALL_FLAGS_NONE, 5000, nullptr, &failure);
    g_object_unref(bus);
    gboolean owned = FALSE;
    if (reply != nullptr) {
        g_variant_get(reply, "(b)", &owned);
        g_variant_unref(reply);
    } else {
        *error = std::string("cannot ask the bus: ") + failure->message;
        g_clear_error(&failure);
        return false;
    }
    if (!owned)
        *error = "the daemon " QUILLON_BUS_NAME " is not on the bus";
    return owned;
}

int64_t NewestVersionNumber() {
    std::optional<host::backup::Version> newest = host::backup::NewestVersion(kDaemonClient);
    return newest ? newest->number : 0;
}

// The newest restore report, or one with number 0.
host::backup::Report NewestReport() {
    std::vector<host::backup::Version> versions;
    std::vector<host::backup::Report> reports;
    if (host::backup::History(kDaemonClient, &versions, &reports) && !reports.empty())
        return reports.front();
    return host::backup::Report();
}

// Polls until done() or the deadline; the stored files are the only outcome we can see.
template <typename Done>
bool WaitFor(int seconds, Done done) {
    const gint64 deadline = g_get_monotonic_time() + gint64(seconds) * G_USEC_PER_SEC;
    while (!done()) {
        if (g_get_monotonic_time() >= deadline)
            return false;
        g_usleep(kPollMicroseconds);
    }
    return true;
}

int Report(bool json, const Json::Value& fields, const std::string& line, int status) {
    if (json) {
        PrintJsonLine(fields);
    } else {
        PrintLine(line);
    }
    return status;
}

int Backup(bool json, int seconds) {
    const int64_t before = NewestVersionNumber();
    if (vconf_set_str(host::backup::kBackupRequestKey, kDaemonClient) != VCONF_OK ||
        !host::settings::Sync()) {
        std::fprintf(stderr, "quillonctl: cannot write %s\n", host::backup::kBackupRequestKey);
        return kExitNegative;
    }
    std::optional<host::backup::Version> stored;
    bool done = WaitFor(seconds, [&] {
        stored = host::backup::NewestVersion(kDaemonClient);
        return stored && stored->number > before;
    });
    Json::Value fields(Json::objectValue);
    fields["operation"] = "backup";
    if (!done) {
        fields["outcome"] = "none";
        return Report(
            json, fields,
            "no backup stored within " + std::to_string(seconds) + " s (the daemon's log says why)",
            kExitNegative);
    }
    fields["outcome"] = "stored";
    fields["version"] = Json::Int64(stored->number);
    fields["time"] = stored->time;
    fields["size"] = Json::Int64(stored->size);
    return Report(json, fields,
                  "backup stored: version " + std::to_string(stored->number) + ", " +
                      std::to_string(stored->size) + " bytes, " + stored->time,
                  kExitOk);
}

int Restore(bool json, int seconds) {
    const int64_t before = NewestReport().number;
    if (vconf_set_str(host::backup::kRestoreRequestKey, kDaemonClient) != VCONF_OK ||
        !host::settings::Sync()) {
        std::fprintf(stderr, "quillonctl: cannot write %s\n", host::backup::kRestoreRequestKey);
        return kExitNegative;
    }
    host::backup::Report report;
    bool done = WaitFor(seconds, [&] {
        report = NewestReport();
        return report.number > before;
    });
    Json::Value fields(Json::objectValue);
    fields["operation"] = "restore";
    if (!done) {
        fields["outcome"] = "none";
        return Report(json, fields,
                      "no restore outcome within " + std::to_string(seconds) +
                          " s (the daemon's log says why)",
                      kExitNegative);
    }
    fields["outcome"] = report.success ? "success" : "failure";
    fields["time"] = report.time;
    return Report(json, fields,
                  report.success ? "restore succeeded"
                                 : "restore failed: the stored list could not be read (the "
                                   "daemon's log says why)",
                  report.success ? kExitOk : kExitNegative);
}

}  // namespace

int RunBackupVerb(const Options& options) {
    for (const auto& [name, value] : options.values) {
        if (name != "timeout") {
            std::fprintf(stderr, "quillonctl: %s does not take --%s\n", options.command.c_str(),
                         name.c_str());
            return kExitUsage;
        }
    }
    std::string error;
    int seconds = kDefaultWaitSeconds;
    if (!options.positionals.empty()) {
        error = options.command + " takes no arguments";
    } else {
        PositiveOption(options, "timeout", "1 second", &seconds, &error);
    }
    if (!error.empty()) {
        std::fprintf(stderr, "quillonctl: %s\n", error.c_str());
        return kExitUsage;
    }
    if (!DaemonOnBus(&error)) {
        std::fprintf(stderr, "quillonctl: %s\n", error.c_str());
        return kExitUnreachable;
    }
    return options.command == "backup" ? Backup(options.json, seconds)
                                       : Restore(options.json, seconds);
}

}  // namespace quillonctl
