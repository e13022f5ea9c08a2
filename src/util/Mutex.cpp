// Recursive, owner-checked lock on a binary semaphore.
#include <sched.h>

#include "PXMUtil.h"

namespace {
// Counts final releases down; at zero the releasing thread yields so that a thread that
// keeps re-taking a lock does not starve the waiters.
std::atomic<int> semCounter{16};
std::atomic<unsigned long> yieldCount{0};
}  // namespace

namespace PXMUtil {

Mutex::Mutex() : m_Owner(0), m_nDepth(0) {}

Mutex::~Mutex() {}

bool Mutex::Create() {
    if (!m_Semaphore.Create()) {
        return false;
    }
    m_Owner.store(0);
    m_nDepth = 0;
    return true;
}

void Mutex::Lock() {
    pthread_t self = pthread_self();
    if (pthread_equal(m_Owner.load(), self)) {
        m_nDepth++;
        return;
    }
    m_Semaphore.Wait();
    m_nDepth = 1;
    m_Owner.store(self);
}

bool Mutex::Unlock() {
    // Also covers a lock nobody holds: owner 0 is never the calling thread.
    if (!pthread_equal(m_Owner.load(), pthread_self())) {
        return false;
    }
    m_nDepth--;
    if (m_nDepth > 0) {
        return true;
    }
    m_Owner.store(0);
    m_Semaphore.Post();
    if (semCounter.fetch_sub(1) == 0) {
        sched_yield();
        yieldCount.fetch_add(1);
        semCounter.store(16);
    }
    return true;
}

unsigned long YieldCount() {
    return yieldCount.load();
}

}  // namespace PXMUtil
