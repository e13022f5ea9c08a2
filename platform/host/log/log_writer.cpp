#include "log/log_writer.h"

#include <errno.h>
#include <stdlib.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace host {
namespace log {

namespace {

// Past this much queued text the caller writes it itself: a writer that falls behind slows
// the loggers down instead of growing without bound.
constexpr size_t kMaxQueuedBytes = 1u << 20;
// How long the writer lets lines gather after the first of a batch: a burst of lines then
// costs one wake-up and one write, and no line waits much longer than this.
constexpr auto kGatherTime = std::chrono::milliseconds(2);

struct Queue {
    std::mutex write_lock;  // held while a batch goes out, so batches keep their order
    std::mutex lock;        // the queue itself; taken inside write_lock, never around a write
    std::condition_variable queued;
    std::string pending;
    bool started = false;
    bool exiting = false;  // after the exit flush every line is written at once
};

// Never destroyed: lines logged by destructors at exit still find it.
Queue& TheQueue() {
    static Queue* queue = new Queue();
    return *queue;
}

int WriteAll(const std::string& text) {
    size_t done = 0;
    while (done < text.size()) {
        ssize_t n = ::write(STDERR_FILENO, text.data() + done, text.size() - done);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return -errno;
        }
        done += static_cast<size_t>(n);
    }
    return 0;
}

// Takes what is queued and writes it; the caller holds write_lock.
int WriteQueued(Queue& q) {
    std::string batch;
    {
        std::lock_guard<std::mutex> hold(q.lock);
        batch.swap(q.pending);
    }
    return WriteAll(batch);
}

void Run() {
    Queue& q = TheQueue();
    for (;;) {
        {
            std::unique_lock<std::mutex> hold(q.lock);
            q.queued.wait(hold, [&] { return !q.pending.empty(); });
        }
        std::this_thread::sleep_for(kGatherTime);
        std::lock_guard<std::mutex> writing(q.write_lock);
        WriteQueued(q);
    }
}

void FlushAtExit() {
    Queue& q = TheQueue();
    std::lock_guard<std::mutex> writing(q.write_lock);
    {
        std::lock_guard<std::mutex> hold(q.lock);
        q.exiting = true;
    }
    WriteQueued(q);
}

}  // namespace

int Write(const std::string& line, bool now) {
    Queue& q = TheQueue();
    bool write_now = now;
    {
        std::lock_guard<std::mutex> hold(q.lock);
        if (!q.started && !q.exiting && !write_now) {
            q.started = true;
            std::thread(Run).detach();
            atexit(FlushAtExit);
        }
        const bool was_empty = q.pending.empty();
        q.pending += line;
        write_now = write_now || q.exiting || q.pending.size() > kMaxQueuedBytes;
        // One wake-up per batch: lines queued while the writer is busy go with its next.
        if (!write_now && was_empty)
            q.queued.notify_one();
    }
    if (write_now) {
        std::lock_guard<std::mutex> writing(q.write_lock);
        int rc = WriteQueued(q);
        if (rc < 0)
            return rc;
    }
    return static_cast<int>(line.size());
}

void Flush() {
    Queue& q = TheQueue();
    std::lock_guard<std::mutex> writing(q.write_lock);
    WriteQueued(q);
}

}  // namespace log
}  // namespace host
