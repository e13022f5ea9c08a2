// The daemon's lock classes: a binary semaphore and a recursive, owner-checked mutex on it.
#pragma once

#include <pthread.h>

#include <atomic>

namespace PXMUtil {

class Semaphore {
public:
    Semaphore();
    virtual ~Semaphore();  // does nothing: Destroy() must be called explicitly
    // Frees the condition variable and the count; 0 when done, -1 when there was none.
    // Virtual, in the slot after the two destructors.
    virtual int Destroy();

    // Used by Mutex; all state changes happen under the process-wide TimeMutex.
    bool Create();
    void Wait();
    void Post();

private:
    struct Block;
    Block* m_pBlock;
};

class Mutex {
public:
    Mutex();
    virtual ~Mutex();  // does nothing: the owner destroys the semaphore explicitly

    bool Create();
    void Lock();
    // False, and nothing changes, when the calling thread does not own the lock.
    bool Unlock();

    Semaphore m_Semaphore;

private:
    // Read by other threads to detect recursion, so it is atomic; depth is the owner's.
    std::atomic<pthread_t> m_Owner;
    int m_nDepth;
};

// How many times a final release has yielded the processor in this process, so that the
// fairness yield can be observed.
unsigned long YieldCount();

}  // namespace PXMUtil
