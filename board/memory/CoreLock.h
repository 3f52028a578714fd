#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>

namespace ZceBoard {

// The core lock as one process holds it: a process-shared, robust mutex in the board's memory, and
// beside it which thread of this process is the holder, so that a thread may lock again what it
// has. A holder that dies frees the lock; what it was doing is single stores of words, so nothing
// has to be mended. Any thread.
class CCoreLock {
  public:
    explicit CCoreLock(pthread_mutex_t& mutex) : m_mutex(mutex) {}

    static int InitMutex(pthread_mutex_t& mutex);

    void Lock() {
        const uint64_t self = ThreadId();
        if (m_owner.load(std::memory_order_relaxed) == self) {
            ++m_depth;
            return;
        }
        if (const int err = pthread_mutex_lock(&m_mutex); err != 0) [[unlikely]] {
            Recover(err);
        }
        m_owner.store(self, std::memory_order_relaxed);
        m_depth = 1;
    }

    // False if another thread or process has it.
    bool TryLock();

    // Does nothing for a thread that is not the holder.
    void Unlock() {
        if (m_owner.load(std::memory_order_relaxed) != ThreadId()) [[unlikely]] {
            return;
        }
        if (--m_depth == 0) {
            m_owner.store(0, std::memory_order_relaxed);
            pthread_mutex_unlock(&m_mutex);
        }
    }

  private:
    // Never 0, never the same for two threads that this process ever had, other than the thread's
    // own number, which is used again. A forked child's thread gets a new one.
    static uint64_t ThreadId() {
        const uint64_t id = t_threadId;
        return id != 0 ? id : NewThreadId();
    }
    static uint64_t NewThreadId();
    void Recover(int err);

    static thread_local uint64_t t_threadId;

    pthread_mutex_t& m_mutex;
    std::atomic<uint64_t> m_owner{0};
    uint32_t m_depth = 0;  // the holder's
};

class CCoreLockGuard {
  public:
    explicit CCoreLockGuard(CCoreLock& lock) : m_lock(lock) { m_lock.Lock(); }
    ~CCoreLockGuard() { m_lock.Unlock(); }
    CCoreLockGuard(const CCoreLockGuard&) = delete;
    CCoreLockGuard& operator=(const CCoreLockGuard&) = delete;

  private:
    CCoreLock& m_lock;
};

}  // namespace ZceBoard
