#pragma once

#include <atomic>
#include <cstdint>

#include "memory/BoardFile.h"
#include "memory/BoardMemory.h"

namespace ZceBoard {

// The core lock of a board as one process holds it, and which thread of it is the holder, so that a
// thread may lock again what it has. Any thread.
//
// The lock is one word in the board's memory: 0, or the token of the process that holds it. Anybody
// may write anything there at any time, so nothing but that number is taken from it: a process that
// uses the lock has locked the byte of its token in the memory's file, which ends with the process,
// and a token whose byte nobody has locked is that of a dead holder, or nonsense, and is replaced.
// What a holder that died was doing is single stores of words, so nothing has to be mended.
class CCoreLock {
  public:
    // The memory is mapped and outlives this object.
    explicit CCoreLock(CBoardMemory& memory);
    CCoreLock(const CCoreLock&) = delete;
    CCoreLock& operator=(const CCoreLock&) = delete;

    void Lock() {
        const int32_t self = ThreadId();
        if (m_owner.load(std::memory_order_relaxed) == self) {
            ++m_depth;
            return;
        }
        if (!Take(self, false)) [[unlikely]] {
            Wait(self);
        }
    }

    // False if another thread or process has it.
    bool TryLock();

    // Does nothing for a thread that is not the holder.
    void Unlock() {
        if (m_owner.load(std::memory_order_relaxed) != ThreadId()) [[unlikely]] {
            return;
        }
        if (--m_depth == 0) {
            uint32_t mine = m_token;
            m_word.compare_exchange_strong(mine, 0, std::memory_order_release,
                                           std::memory_order_relaxed);
            m_owner.store(0, std::memory_order_release);
        }
    }

  private:
    // The thread's number in the system, which a forked child's thread does not share.
    static int32_t ThreadId() {
        const int32_t id = t_threadId;
        return id != 0 ? id : NewThreadId();
    }
    static int32_t NewThreadId();

    // Takes the lock if it is free; with `look` also from a holder that is not there any more.
    bool Take(int32_t self, bool look) {
        if (m_forks != s_forks.load(std::memory_order_relaxed)) [[unlikely]] {
            Identify();
        }
        int32_t nobody = 0;
        if (!m_owner.compare_exchange_strong(nobody, self, std::memory_order_acquire,
                                             std::memory_order_relaxed) &&
            !(look && TakeFromDeadThread(nobody, self))) {
            return false;
        }
        uint32_t holder = 0;
        if (m_word.compare_exchange_strong(holder, m_token, std::memory_order_acquire,
                                           std::memory_order_relaxed) ||
            (look && TakeFromDeadProcess(holder))) {
            m_depth = 1;
            return true;
        }
        m_owner.store(0, std::memory_order_release);
        return false;
    }
    void Wait(int32_t self);
    bool TakeFromDeadThread(int32_t owner, int32_t self);
    bool TakeFromDeadProcess(uint32_t holder);
    void Identify();

    static thread_local int32_t t_threadId;
    static std::atomic<uint32_t> s_forks;  // between the first process and this one

    CBoardMemory& m_memory;
    std::atomic<uint32_t>& m_word;
    CBoardFile m_file;  // holds the byte of the token
    uint32_t m_token = 0;
    uint32_t m_forks = ~0U;           // when the token was taken
    std::atomic<int32_t> m_owner{0};  // the thread of this process that has the lock, or tries it
    uint32_t m_depth = 0;             // the owner's
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
