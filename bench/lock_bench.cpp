// PXMUtil::Mutex Lock/Unlock around a one-line critical section, against std::mutex,
// uncontended (one thread) and contended (two threads on the same lock).
#include <benchmark/benchmark.h>

#include <mutex>

#include "PXMUtil.h"

namespace {

PXMUtil::Mutex& SharedQuillonLock() {
    // Never destroyed: the semaphore is released only by an explicit Destroy.
    static PXMUtil::Mutex* lock = [] {
        auto* made = new PXMUtil::Mutex();
        made->Create();
        return made;
    }();
    return *lock;
}

std::mutex g_stdLock;
// What each lock guards; plain on purpose, so that a lock that fails to exclude is a race
// the thread-sanitizer build would report.
long g_quillonGuarded = 0;
long g_stdGuarded = 0;

void LockQuillon(benchmark::State& state) {
    PXMUtil::Mutex& lock = SharedQuillonLock();
    for (auto _ : state) {
        lock.Lock();
        ++g_quillonGuarded;
        if (!lock.Unlock()) {
            state.SkipWithError("Unlock refused by the thread that holds the lock");
            break;
        }
    }
}

void LockBaseline(benchmark::State& state) {
    for (auto _ : state) {
        g_stdLock.lock();
        ++g_stdGuarded;
        g_stdLock.unlock();
    }
}

}  // namespace

BENCHMARK(LockQuillon)->Name("lock/quillon")->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(LockBaseline)->Name("lock/baseline")->Threads(1)->Threads(2)->UseRealTime();
