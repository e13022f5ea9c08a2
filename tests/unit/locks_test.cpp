// The registry's locks: recursion, owner check, exclusion and the fairness yield.
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>

#include "PXMUtil.h"

namespace {

// A thread that takes the lock, notes it and releases it.
struct Contender {
    std::atomic<long> tid{0};
    std::atomic<bool> acquired{false};
    std::thread thread;

    explicit Contender(PXMUtil::Mutex& lock)
        : thread([this, &lock] {
              tid = syscall(SYS_gettid);
              lock.Lock();
              acquired = true;
              lock.Unlock();
          }) {}
    // True once the thread sleeps in Lock; false if it got the lock (or never slept).
    bool Blocked() {
        auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (!acquired && std::chrono::steady_clock::now() < deadline) {
            std::ifstream stat("/proc/self/task/" + std::to_string(tid) + "/stat");
            std::string line;
            std::getline(stat, line);
            size_t close = line.rfind(')');
            if (tid != 0 && close != std::string::npos && line.substr(close + 2, 1) == "S") {
                return !acquired;
            }
            std::this_thread::yield();
        }
        return false;
    }
};

TEST(Locks, OnlyTheOwnerReleasesAndOnlyAfterItsLastUnlock) {
    PXMUtil::Mutex lock;
    ASSERT_TRUE(lock.Create());
    EXPECT_FALSE(lock.Unlock());  // never taken: must not let two threads in later
    lock.Lock();
    lock.Lock();
    lock.Lock();
    bool foreign = true;
    std::thread([&] { foreign = lock.Unlock(); }).join();
    EXPECT_FALSE(foreign);
    Contender other(lock);
    ASSERT_TRUE(other.Blocked());
    EXPECT_TRUE(lock.Unlock());
    EXPECT_TRUE(lock.Unlock());
    EXPECT_TRUE(other.Blocked()) << "released before the last Unlock";
    EXPECT_TRUE(lock.Unlock());
    other.thread.join();
    EXPECT_TRUE(other.acquired);
    EXPECT_FALSE(lock.Unlock());
    EXPECT_EQ(0, lock.m_Semaphore.Destroy());
}

TEST(Locks, ThreadsNeverHoldTheLockTogether) {
    PXMUtil::Mutex lock;
    ASSERT_TRUE(lock.Create());
    long shared = 0;
    auto work = [&] {
        for (int i = 0; i < 5000; ++i) {
            lock.Lock();
            lock.Lock();
            long seen = shared;
            lock.Unlock();
            shared = seen + 1;  // still held: the inner release lets nobody in
            lock.Unlock();
        }
    };
    std::thread a(work), b(work), c(work);
    a.join();
    b.join();
    c.join();
    EXPECT_EQ(3 * 5000, shared);
    lock.m_Semaphore.Destroy();
}

TEST(Locks, EverySeventeenthFinalReleaseInTheProcessYields) {
    PXMUtil::Mutex first, second;
    ASSERT_TRUE(first.Create() && second.Create());
    unsigned long start = PXMUtil::YieldCount();
    for (int i = 0; i < 17 && PXMUtil::YieldCount() == start; ++i) {
        first.Lock();
        first.Unlock();
    }
    ASSERT_EQ(start + 1, PXMUtil::YieldCount()) << "no yield within 17 releases";
    // Inner releases do not count; both locks share one counter.
    for (int i = 0; i < 16; ++i) {
        PXMUtil::Mutex& lock = i % 2 ? first : second;
        lock.Lock();
        lock.Lock();
        lock.Unlock();
        lock.Unlock();
    }
    EXPECT_EQ(start + 1, PXMUtil::YieldCount());
    second.Lock();
    second.Unlock();
    EXPECT_EQ(start + 2, PXMUtil::YieldCount());
    first.m_Semaphore.Destroy();
    second.m_Semaphore.Destroy();
}

TEST(Locks, SemaphoreDestroyTakesTheVirtualSlotAfterBothDestructors) {
    // A pointer to a virtual member holds the byte offset of its vtable slot, plus one in the
    // generic C++ ABI; ARM keeps the offset as is and flags virtual members in the
    // adjustment. Slots 0 and 1 are the complete and the deleting destructor.
    int (PXMUtil::Semaphore::*destroy)() = &PXMUtil::Semaphore::Destroy;
    std::uintptr_t raw[2];
    static_assert(sizeof destroy == sizeof raw, "not an Itanium-style member pointer");
    std::memcpy(raw, &destroy, sizeof raw);
#if defined(__arm__) || defined(__aarch64__)
    EXPECT_EQ(2 * sizeof(void*), raw[0]);
    EXPECT_EQ(1u, raw[1] & 1u) << "Destroy is not virtual";
#else
    EXPECT_EQ(1 + 2 * sizeof(void*), raw[0]) << "Destroy is not the third virtual slot";
#endif
}

}  // namespace
