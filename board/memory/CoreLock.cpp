#include "memory/CoreLock.h"

#include <cerrno>
#include <mutex>

namespace ZceBoard {

constinit thread_local uint64_t CCoreLock::t_threadId = 0;

int CCoreLock::InitMutex(pthread_mutex_t& mutex) {
    pthread_mutexattr_t attr;
    int err = pthread_mutexattr_init(&attr);
    if (err != 0) {
        return err;
    }
    err = pthread_mutexattr_setpshared(&attr, PTHREAD_PROCESS_SHARED);
    if (err == 0) {
        err = pthread_mutexattr_setrobust(&attr, PTHREAD_MUTEX_ROBUST);
    }
    if (err == 0) {
        err = pthread_mutex_init(&mutex, &attr);
    }
    pthread_mutexattr_destroy(&attr);
    return err;
}

bool CCoreLock::TryLock() {
    const uint64_t self = ThreadId();
    if (m_owner.load(std::memory_order_relaxed) == self) {
        ++m_depth;
        return true;
    }
    const int err = pthread_mutex_trylock(&m_mutex);
    if (err == EOWNERDEAD) {
        Recover(err);
    } else if (err != 0) {
        return false;
    }
    m_owner.store(self, std::memory_order_relaxed);
    m_depth = 1;
    return true;
}

uint64_t CCoreLock::NewThreadId() {
    static std::atomic<uint64_t> last{0};
    static std::once_flag once;
    std::call_once(once, [] { pthread_atfork(nullptr, nullptr, [] { t_threadId = 0; }); });
    t_threadId = last.fetch_add(1, std::memory_order_relaxed) + 1;
    return t_threadId;
}

// The lock is this thread's after EOWNERDEAD, once it is marked as consistent. Any other error
// means that the memory of the lock was overwritten; the access goes on without it, since a board
// that answers is more use than a process that hangs.
void CCoreLock::Recover(int err) {
    if (err == EOWNERDEAD) {
        pthread_mutex_consistent(&m_mutex);
    }
}

}  // namespace ZceBoard
