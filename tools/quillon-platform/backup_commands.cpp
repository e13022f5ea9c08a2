// Backup commands: what the host's backup service holds for a client, and the requests the
// platform service would send (through its settings keys) or an operator moving a list.
#include <json/json.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "backup/backup_keys.h"
#include "backup/backup_store.h"
#include "command.h"
#include "parse_decimal.h"
#include "vconf.h"

namespace quillon_platform {

namespace {

// The daemon's client id: what every command means without a CLIENT.
constexpr const char* kDaemonClient = "Zq8Tn3Wd5R";

// The optional CLIENT (at most one word besides the flags in *flags); false with *status.
bool ClientArg(const Command& self, const std::vector<std::string>& args, std::string* client,
               int* status, bool* json = nullptr) {
    *client = kDaemonClient;
    size_t words = 0;
    for (const std::string& arg : args) {
        if (json != nullptr && arg == "--json" && !*json) {
            *json = true;
        } else if (words++ == 0 && !arg.empty() && arg[0] != '-') {
            *client = arg;
        } else {
            *status = BadInput(self, "unexpected argument '" + arg + "'");
            return false;
        }
    }
    if (host::backup::IsValidClientId(*client))
        return true;
    *status = BadInput(self, "invalid client id '" + *client +
                                 "' (1 to 64 letters, digits, '-', '_' or '.', not starting "
                                 "with '.')");
    return false;
}

int RunShow(const Command& self, const std::vector<std::string>& args) {
    std::string client;
    int status = kExitOk;
    if (!ClientArg(self, args, &client, &status))
        return status;
    std::optional<host::backup::Version> newest = host::backup::NewestVersion(client);
    if (!newest) {
        std::fprintf(stderr, "quillon-platform: no backup stored for %s\n", client.c_str());
        return kExitFailed;
    }
    // As stored, byte for byte, so that backup-put can take it to another TV.
    std::fwrite(newest->payload.data(), 1, newest->payload.size(), stdout);
    if (isatty(STDOUT_FILENO))
        std::fputc('\n', stdout);
    return kExitOk;
}

int RunHistory(const Command& self, const std::vector<std::string>& args) {
    std::string client;
    int status = kExitOk;
    bool json = false;
    if (!ClientArg(self, args, &client, &status, &json))
        return status;
    std::vector<host::backup::Version> versions;
    std::vector<host::backup::Report> reports;
    if (!host::backup::History(client, &versions, &reports)) {
        std::fprintf(stderr, "quillon-platform: cannot read %s\n",
                     host::backup::DatabasePath(client).c_str());
        return kExitFailed;
    }
    if (json) {
        Json::Value root(Json::objectValue);
        root["versions"] = Json::Value(Json::arrayValue);
        root["restores"] = Json::Value(Json::arrayValue);
        for (const host::backup::Version& v : versions) {
            Json::Value item;
            item["version"] = Json::Int64(v.number);
            item["time"] = v.time;
            item["size"] = Json::Int64(v.size);
            root["versions"].append(item);
        }
        for (const host::backup::Report& r : reports) {
            Json::Value item;
            item["time"] = r.time;
            item["outcome"] = r.success ? "success" : "failure";
            root["restores"].append(item);
        }
        Json::StreamWriterBuilder writer;
        writer["indentation"] = "";
        std::printf("%s\n", Json::writeString(writer, root).c_str());
        return kExitOk;
    }
    std::printf("%s: %zu version%s kept (at most %d)\n", client.c_str(), versions.size(),
                versions.size() == 1 ? "" : "s", host::backup::kKeptVersions);
    for (const host::backup::Version& v : versions)
        std::printf("  version %lld  %s  %lld bytes\n", static_cast<long long>(v.number),
                    v.time.c_str(), static_cast<long long>(v.size));
    std::printf("restores reported: %zu\n", reports.size());
    for (const host::backup::Report& r : reports)
        std::printf("  %s  %s\n", r.time.c_str(), r.success ? "success" : "failure");
    return kExitOk;
}

int WriteRequest(const Command& self, const std::vector<std::string>& args, const char* key) {
    std::string client;
    int status = kExitOk;
    if (!ClientArg(self, args, &client, &status))
        return status;
    return Written(vconf_set_str(key, client.c_str()), key);
}

int RunBackupRequest(const Command& self, const std::vector<std::string>& args) {
    return WriteRequest(self, args, host::backup::kBackupRequestKey);
}

int RunRestoreRequest(const Command& self, const std::vector<std::string>& args) {
    return WriteRequest(self, args, host::backup::kRestoreRequestKey);
}

int RunPut(const Command& self, const std::vector<std::string>& args) {
    int status = kExitOk;
    if (!ExpectArgs(self, args, 2, &status))
        return status;
    if (!host::backup::IsValidClientId(args[0]))
        return BadInput(self, "invalid client id '" + args[0] + "'");
    std::ifstream in(args[1], std::ios::binary);
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (!in.good() && !in.eof()) {
        std::fprintf(stderr, "quillon-platform: cannot read '%s'\n", args[1].c_str());
        return kExitFailed;
    }
    // Stored as given, even when it is not what a client would send: that is how a broken
    // payload is handed to a client on purpose.
    if (!host::backup::AppendVersions(args[0], {text})) {
        std::fprintf(stderr, "quillon-platform: could not store the payload for %s\n",
                     args[0].c_str());
        return kExitFailed;
    }
    return kExitOk;
}

int RunTrigger(const Command& self, const std::vector<std::string>& args) {
    int status = kExitOk;
    if (!ExpectArgs(self, args, 1, &status))
        return status;
    int trigger = 0;
    if (!quillon_tools::ParseDecimal(args[0], &trigger))
        return BadInput(self, "'" + args[0] + "' is not a decimal integer");
    if (vconf_set_int(host::backup::kTriggerKey, trigger) != VCONF_OK) {
        std::fprintf(stderr, "quillon-platform: could not write '%s'\n", host::backup::kTriggerKey);
        return kExitFailed;
    }
    return kExitOk;
}

const CommandRegistrar kRegistrar({
    {"backup-show", "backup-show [CLIENT]",
     "the newest payload the backup service holds, as stored (exit 1 when none)", RunShow},
    {"backup-history", "backup-history [CLIENT] [--json]",
     "the stored versions and the reported restores, newest first", RunHistory},
    {"backup-request", "backup-request [CLIENT]",
     "ask the client for a full backup (writes memory/bnr/backupcid)", RunBackupRequest},
    {"restore-request", "restore-request [CLIENT]",
     "ask the client to restore (writes memory/bnr/restorecid)", RunRestoreRequest},
    {"backup-put", "backup-put CLIENT FILE", "store FILE's text as the client's newest version",
     RunPut},
    {"backup-trigger", "backup-trigger N",
     "send trigger N (1 backup, 2 restore) to every connected client", RunTrigger},
});

}  // namespace

}  // namespace quillon_platform
