#include "memory/CoreLock.h"

#include <pthread.h>
#include <signal.h>  // NOLINT(modernize-deprecated-headers): tgkill()
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <mutex>

#include "memory/HostClock.h"
#include "memory/Ring.h"
#include "memory/ShmLayout.h"

namespace ZceBoard {

namespace {

constexpr int SPINS = 100;
constexpr int64_t FIRST_NAP_NS = 20'000;
constexpr int64_t LONGEST_NAP_NS = 1'000'000;
constexpr int TOKENS_TRIED = 1000;

}  // namespace

constinit thread_local int32_t CCoreLock::t_threadId = 0;
constinit std::atomic<uint32_t> CCoreLock::s_forks{0};

CCoreLock::CCoreLock(CBoardMemory& memory)
    : m_memory(memory), m_word(memory.Shm().header.coreLock) {
    ThreadId();
    Identify();
}

bool CCoreLock::TryLock() {
    const int32_t self = ThreadId();
    if (m_owner.load(std::memory_order_relaxed) == self) {
        ++m_depth;
        return true;
    }
    return Take(self, true);
}

void CCoreLock::Wait(int32_t self) {
    for (int64_t nap = FIRST_NAP_NS;; nap = std::min(2 * nap, LONGEST_NAP_NS)) {
        for (int k = 0; k < SPINS; ++k) {
            if (Take(self, false)) {
                return;
            }
            PauseProcessor();
        }
        if (Take(self, true)) {
            return;
        }
        RealSleep(nap);
    }
}

int32_t CCoreLock::NewThreadId() {
    static std::once_flag once;
    std::call_once(once, [] {
        pthread_atfork(nullptr, nullptr, [] {
            t_threadId = 0;
            s_forks.fetch_add(1, std::memory_order_relaxed);
        });
    });
    t_threadId = gettid();
    return t_threadId;
}

bool CCoreLock::TakeFromDeadThread(int32_t owner, int32_t self) {
    return tgkill(getpid(), owner, 0) != 0 && errno == ESRCH &&
           m_owner.compare_exchange_strong(owner, self, std::memory_order_acquire,
                                           std::memory_order_relaxed);
}

// This thread has the process's side of the lock, so its own token there is that of a thread that
// ended, or was written by somebody else.
bool CCoreLock::TakeFromDeadProcess(uint32_t holder) {
    if (holder != m_token) {
        if (m_file.Fd() < 0) {
            Identify();
        }
        // Without a board there is nobody who could be in the way.
        if (m_file.Fd() >= 0 && m_file.IsLocked(LOCK_CORE_FIRST + holder)) {
            return false;
        }
    }
    return m_word.compare_exchange_strong(holder, m_token, std::memory_order_acquire,
                                          std::memory_order_relaxed);
}

// A token that no other living process has: where to begin looking does not matter.
void CCoreLock::Identify() {
    static std::mutex mutex;
    const std::lock_guard guard(mutex);
    const uint32_t forks = s_forks.load(std::memory_order_relaxed);
    if (m_forks != forks) {  // a new object, or what a forked child inherited
        m_owner.store(0, std::memory_order_relaxed);
        m_depth = 0;
    } else if (m_file.Fd() >= 0) {
        return;
    }
    m_token = static_cast<uint32_t>(getpid()) * 0x9E3779B1U | 1U;
    if (m_memory.Reopen(m_file) == 0) {
        for (int k = 0; k < TOKENS_TRIED && m_file.Lock(LOCK_CORE_FIRST + m_token) == EAGAIN; ++k) {
            m_token += 2;
        }
    }
    m_forks = forks;
}

}  // namespace ZceBoard
