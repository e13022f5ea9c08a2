// What the host's backup service keeps for each client: the last accepted payloads with
// their UTC time, and the outcomes of restores the client reported. One SQLite database per
// client under <root>/backup/, written in transactions with full sync, so a crash at any
// moment leaves the previous version readable.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace host {
namespace backup {

// Versions kept per client; an older one is dropped in the transaction that adds a newer.
constexpr int kKeptVersions = 20;

// Client ids become file names: 1 to 64 letters, digits, '-', '_' or '.', not starting
// with '.'.
bool IsValidClientId(const std::string& client);

// <root>/backup/<client>.db
std::string DatabasePath(const std::string& client);

struct Version {
    int64_t number = 0;   // grows with every accepted payload, never reused
    std::string time;     // UTC, as UtcTimeText
    int64_t size = 0;     // bytes of the payload
    std::string payload;  // empty in listings
};

struct Report {
    int64_t number = 0;  // grows with every report
    std::string time;
    bool success = false;
};

// Appends the payloads, oldest first, as new versions in one transaction and drops what
// falls out of the last kKeptVersions. False (and nothing stored) on any failure, logged.
bool AppendVersions(const std::string& client, const std::vector<std::string>& payloads);

// The newest version with its payload; nullopt when there is none or it cannot be read
// (error logged unless the database simply does not exist).
std::optional<Version> NewestVersion(const std::string& client);

// Versions and restore reports, newest first. False when the database exists but cannot
// be read; a client with no database has none of either.
bool History(const std::string& client, std::vector<Version>* versions,
             std::vector<Report>* reports);

// Records a restore outcome reported by the client, with the current time.
bool AddReport(const std::string& client, bool success);

}  // namespace backup
}  // namespace host
