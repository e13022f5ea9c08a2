// Settings keys of the backup service: the platform's two request keys, which tell a client
// to back up or restore (the value is the client id), and the host's trigger key.
#pragma once

namespace host {
namespace backup {

constexpr const char* kBackupRequestKey = "memory/bnr/backupcid";
constexpr const char* kRestoreRequestKey = "memory/bnr/restorecid";

// int: every write sends that trigger (1 backup, 2 restore) to every connected client.
constexpr const char* kTriggerKey = "memory/quillon-host/bnr/trigger";

}  // namespace backup
}  // namespace host
