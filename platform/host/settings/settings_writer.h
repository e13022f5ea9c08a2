// Settings writes that never wait for the disk: a write is queued here and visible to this
// process's readers at once; a writer thread makes the queued files durable in order
// (temporary file, fsync, rename, one fsync of the folder per batch), so the new value
// reaches other processes and the inotify watchers when it is safely on disk. Repeated
// writes of one key while the disk is busy are coalesced into the newest one.
//
// Order: writes of one process land in the order made. Between processes, a write still
// queued here lands after another process's later write of the same key; a process that
// hands a key over to another (a tool, a test) calls Sync() first.
//
// Durability: a crash loses at most the writes still queued (normally milliseconds' worth;
// longer only while the disk stalls), and never leaves a torn file: every file on disk is
// a whole old value or a whole new one. Sync() waits for everything queued so far; it runs
// at process exit too, bounded, so a tool or a stopping daemon leaves nothing behind.
#pragma once

#include <string>

namespace host {
namespace settings {

enum class Pending { kNone, kWrite, kRemove };

// Queues the file's new content (kWrite) or its removal (kRemove) in the settings folder.
void QueueWrite(const std::string& file_name, const std::string& content);
void QueueRemove(const std::string& file_name);

// What is queued for the file and not yet on disk; with kWrite, its content.
Pending Queued(const std::string& file_name, std::string* content);

// Waits until every write queued before the call is on disk, at most timeout_ms; false
// when the time ran out or the next try of a failing disk failed again (logged).
bool Sync(unsigned timeout_ms = 30000);

}  // namespace settings
}  // namespace host
