#pragma once

#include <atomic>
#include <csignal>

// The process-wide wish to end, and the signal handlers that express it.
class CSignalProcess {
  public:
    // 0 until SIGINT or SIGTERM has come, then 1 for good. Read by the polling thread at each turn.
    // An atomic of one byte: a plain load on the polling side, which no compiler may move out of
    // the polling loop, and a store that a signal handler on any thread may make.
    static std::atomic<unsigned char> m_isExit;

    // Whether m_isExit is set, as one comparison with memory: g++ loads an atomic into a register
    // first. For the polls.
    static bool IsExit() {
#if defined(__x86_64__) && defined(__GCC_ASM_FLAG_OUTPUTS__) && !defined(__SANITIZE_THREAD__)
        bool bExit;
        asm volatile("cmpb $0, %1" : "=@ccne"(bExit) : "m"(m_isExit));
        return bExit;
#else
        return m_isExit.load(std::memory_order_relaxed) != 0;
#endif
    }

    // Installs SignalHandler for SIGINT and SIGTERM and ignores SIGPIPE. Returns 0; on the first
    // failure it logs an ERROR line and returns -1, the signals after it left as they were. Called
    // once a process, by the polling thread.
    static int InitSignal();

    // Sets m_isExit and logs the signal's number; the process goes on. It waits for nothing,
    // whatever it has interrupted, and leaves errno alone.
    static void SignalHandler(int sig, siginfo_t* info, void* ctx);
};

static_assert(sizeof(CSignalProcess::m_isExit) == 1 &&
              std::atomic<unsigned char>::is_always_lock_free);
