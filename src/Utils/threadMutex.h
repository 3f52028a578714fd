#pragma once

#include <pthread.h>

namespace VORBA2 {

// A recursive mutex: the thread that holds it may take it again, and gives it back as often.
//
// Constant-initialised and never torn down, so that an object with static storage can be used from
// constructors and destructors of other such objects, and by threads that outlive main().
class CThreadMutex {
  public:
    constexpr CThreadMutex() = default;
    CThreadMutex(const CThreadMutex&) = delete;
    CThreadMutex& operator=(const CThreadMutex&) = delete;

    // Waits until the calling thread has the mutex; returns whether it has, which only a system
    // that fails keeps it from.
    bool Acquire() { return pthread_mutex_lock(&m_mutex) == 0; }
    // Takes the mutex if that needs no waiting; returns whether the calling thread has it now.
    bool TryAcquire() { return pthread_mutex_trylock(&m_mutex) == 0; }
    // Gives back one successful Acquire or TryAcquire of the calling thread.
    void Release() { pthread_mutex_unlock(&m_mutex); }

  private:
    pthread_mutex_t m_mutex = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
};

// Holds a CThreadMutex for the life of the object. What it did not get it does not give back: the
// count of the mutex is that of its holder, here or further out in the same thread.
class CThreadMutexGuard {
  public:
    explicit CThreadMutexGuard(CThreadMutex& mutex) : m_mutex(mutex), m_bHeld(mutex.Acquire()) {}
    ~CThreadMutexGuard() {
        if (m_bHeld) {
            m_mutex.Release();
        }
    }
    CThreadMutexGuard(const CThreadMutexGuard&) = delete;
    CThreadMutexGuard& operator=(const CThreadMutexGuard&) = delete;

  private:
    CThreadMutex& m_mutex;
    const bool m_bHeld;
};

}  // namespace VORBA2
