// Binary semaphore: a condition variable and a count in a heap block, every block in the
// process guarded by the one TimeMutex.
#include <new>

#include "PXMUtil.h"

namespace {
// One mutex for all semaphores: locks are few and held briefly, so no per-lock mutex.
pthread_mutex_t TimeMutex = PTHREAD_MUTEX_INITIALIZER;
}  // namespace

namespace PXMUtil {

struct Semaphore::Block {
    pthread_cond_t cond;
    int count;
};

Semaphore::Semaphore() : m_pBlock(nullptr) {}

Semaphore::~Semaphore() {}

bool Semaphore::Create() {
    pthread_mutex_lock(&TimeMutex);
    Block* block = new (std::nothrow) Block;
    if (block != nullptr) {
        pthread_cond_t initial = PTHREAD_COND_INITIALIZER;
        block->cond = initial;
        block->count = 1;
    }
    m_pBlock = block;
    pthread_mutex_unlock(&TimeMutex);
    return block != nullptr;
}

void Semaphore::Wait() {
    pthread_mutex_lock(&TimeMutex);
    // A semaphore that was never created (or already destroyed) has nothing to wait on.
    if (m_pBlock != nullptr) {
        while (m_pBlock->count < 1) {
            pthread_cond_wait(&m_pBlock->cond, &TimeMutex);
        }
        m_pBlock->count--;
    }
    pthread_mutex_unlock(&TimeMutex);
}

void Semaphore::Post() {
    pthread_mutex_lock(&TimeMutex);
    if (m_pBlock != nullptr) {
        m_pBlock->count++;
        pthread_cond_signal(&m_pBlock->cond);
    }
    pthread_mutex_unlock(&TimeMutex);
}

int Semaphore::Destroy() {
    pthread_mutex_lock(&TimeMutex);
    int result = -1;
    if (m_pBlock != nullptr) {
        pthread_cond_destroy(&m_pBlock->cond);
        delete m_pBlock;
        m_pBlock = nullptr;
        result = 0;
    }
    pthread_mutex_unlock(&TimeMutex);
    return result;
}

}  // namespace PXMUtil
