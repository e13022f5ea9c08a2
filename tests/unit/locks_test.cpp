// The registry's lock: recursive for its owner, released only by the owner's last unlock,
// and exclusive between threads.
#include <gtest/gtest.h>

#include <thread>

#include "PXMUtil.h"

namespace {

TEST(Locks, OnlyTheOwnersLastUnlockReleasesAndThreadsNeverHoldItTogether) {
    PXMUtil::Mutex lock;
    ASSERT_TRUE(lock.Create());
    EXPECT_FALSE(lock.Unlock());  // never taken: must not let two threads in later
    lock.Lock();
    lock.Lock();
    bool foreign = true;
    std::thread([&] { foreign = lock.Unlock(); }).join();
    EXPECT_FALSE(foreign);
    EXPECT_TRUE(lock.Unlock());
    EXPECT_TRUE(lock.Unlock());
    EXPECT_FALSE(lock.Unlock());

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
    EXPECT_EQ(0, lock.m_Semaphore.Destroy());
}

}  // namespace
