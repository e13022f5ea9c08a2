#include "settings/settings_writer.h"

#include <errno.h>
#include <stdlib.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <map>
#include <mutex>
#include <thread>

#include "common/missing_service.h"
#include "common/whole_file.h"
#include "dlog.h"
#include "settings/settings_store.h"

#define SETTINGS_LOG(prio, ...) __dlog_print(LOG_ID_SYSTEM, prio, host::kHostLogTag, __VA_ARGS__)

namespace host {
namespace settings {

namespace {

// How long a stopping process waits for the disk before it gives up on queued writes.
constexpr unsigned kExitSyncMs = 5000;
// Pause before a failed batch is tried again.
constexpr auto kRetryDelay = std::chrono::seconds(1);
// At most one batch goes to disk in this time: a write after a quiet spell goes at once, and
// a key written on every change of a burst (as db/bleapp/db_updated is) costs two flushes
// per batch, not two per write.
constexpr auto kBatchInterval = std::chrono::milliseconds(10);

struct Entry {
    Pending kind;
    std::string content;
    uint64_t seq;
};

struct Writer {
    std::mutex lock;
    std::condition_variable queued;   // the thread waits for work
    std::condition_variable written;  // Sync waits for the thread
    std::map<std::string, Entry> pending;
    uint64_t next_seq = 1;
    uint64_t durable_seq = 0;  // every write up to this one is on disk
    bool failing = false;      // the last batch failed; it is being retried
    uint64_t attempts = 0;     // batches tried, for Sync to see a failure after its call
    bool started = false;
};

// Never destroyed: the thread and the exit handler use it while statics go away.
Writer& TheWriter() {
    static Writer* writer = new Writer();
    return *writer;
}

void SyncAtExit() {
    if (!Sync(kExitSyncMs))
        SETTINGS_LOG(DLOG_ERROR, "settings: writes still queued at exit are lost");
}

// One file made durable: 0 or an errno value.
int Apply(const std::string& dir, const std::string& name, const Entry& entry) {
    if (entry.kind == Pending::kWrite)
        return ReplaceFile(dir, name, entry.content.data(), entry.content.size(), true);
    return unlink((dir + "/" + name).c_str()) == 0 || errno == ENOENT ? 0 : errno;
}

void Run() {
    Writer& w = TheWriter();
    std::unique_lock<std::mutex> hold(w.lock);
    auto last_batch = std::chrono::steady_clock::now() - kBatchInterval;
    for (;;) {
        w.queued.wait(hold, [&] { return !w.pending.empty(); });
        hold.unlock();
        std::this_thread::sleep_until(last_batch + kBatchInterval);
        last_batch = std::chrono::steady_clock::now();
        hold.lock();
        std::map<std::string, Entry> batch = w.pending;
        hold.unlock();

        uint64_t newest = 0;
        int failure = 0;
        std::string failed;
        const std::string dir = EnsureDirectory();
        for (const auto& [name, entry] : batch) {
            newest = std::max(newest, entry.seq);
            int rc = dir.empty() ? ENOENT : Apply(dir, name, entry);
            if (rc != 0 && failure == 0) {
                failure = rc;
                failed = name;
            }
        }
        if (failure == 0 && !dir.empty())
            failure = FsyncDir(dir);

        hold.lock();
        ++w.attempts;
        if (failure != 0) {
            if (!w.failing) {
                SETTINGS_LOG(DLOG_ERROR, "settings: writing %s failed: %s; retrying every second",
                             failed.empty() ? "the folder" : failed.c_str(), strerror(failure));
            }
            w.failing = true;
            w.written.notify_all();
            w.queued.wait_for(hold, kRetryDelay);
            continue;
        }
        if (w.failing)
            SETTINGS_LOG(DLOG_WARN, "settings: queued writes are on disk again");
        w.failing = false;
        // Entries queued meanwhile keep their newer content and go with the next batch.
        for (const auto& [name, entry] : batch) {
            auto it = w.pending.find(name);
            if (it != w.pending.end() && it->second.seq == entry.seq)
                w.pending.erase(it);
        }
        w.durable_seq = std::max(w.durable_seq, newest);
        w.written.notify_all();
    }
}

void Queue(const std::string& file_name, Pending kind, const std::string& content) {
    Writer& w = TheWriter();
    std::lock_guard<std::mutex> hold(w.lock);
    if (!w.started) {
        w.started = true;
        std::thread(Run).detach();
        atexit(SyncAtExit);
    }
    w.pending[file_name] = Entry{kind, content, w.next_seq++};
    w.queued.notify_all();
}

}  // namespace

void QueueWrite(const std::string& file_name, const std::string& content) {
    Queue(file_name, Pending::kWrite, content);
}

void QueueRemove(const std::string& file_name) {
    Queue(file_name, Pending::kRemove, std::string());
}

Pending Queued(const std::string& file_name, std::string* content) {
    Writer& w = TheWriter();
    std::lock_guard<std::mutex> hold(w.lock);
    auto it = w.pending.find(file_name);
    if (it == w.pending.end())
        return Pending::kNone;
    if (content != nullptr)
        *content = it->second.content;
    return it->second.kind;
}

bool Sync(unsigned timeout_ms) {
    Writer& w = TheWriter();
    std::unique_lock<std::mutex> hold(w.lock);
    const uint64_t target = w.next_seq - 1;
    const uint64_t attempts = w.attempts;
    // A failing disk answers after the next try rather than at the timeout.
    w.written.wait_for(hold, std::chrono::milliseconds(timeout_ms), [&] {
        return w.durable_seq >= target || (w.failing && w.attempts > attempts);
    });
    return w.durable_seq >= target;
}

}  // namespace settings
}  // namespace host
