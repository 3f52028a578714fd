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

    // Waits until the calling thread has the mutex.
    void Acquire() { pthread_mutex_lock(&m_mutex); }
    // Takes the mutex if that needs no waiting; returns whether the calling thread has it now.
    bool TryAcquire() { return pthread_mutex_trylock(&m_mutex) == 0; }
    // Gives back one Acquire or one successful TryAcquire of the calling thread.
    void Release() { pthread_mutex_unlock(&m_mutex); }

  private:
    pthread_mutex_t m_mutex = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
};

// Holds a CThreadMutex for the life of the object.
class CThreadMutexGuard {
  public:
    explicit CThreadMutexGuard(CThreadMutex& mutex) : m_mutex(mutex) { m_mutex.Acquire(); }
    ~CThreadMutexGuard() { m_mutex.Release(); }
    CThreadMutexGuard(const CThreadMutexGuard&) = delete;
    CThreadMutexGuard& operator=(const CThreadMutexGuard&) = delete;

  private:
    CThreadMutex& m_mutex;
};

}  // namespace VORBA2
