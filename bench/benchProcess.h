#pragma once

#include <sys/mman.h>
#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <new>
#include <thread>

#include "benchMain.h"

// Two processors, a second process, memory that both see, and waiting that ends.
namespace velabench {

// Lets this process and its later children run before others, where that is allowed (root): the
// measured stretches are short, and on a busy machine none would be whole otherwise. Whoever waits
// for something that must come from the same processor has to yield.
void GoAhead();

// The two processors of a measurement: the board's side on one, the application's on the other.
// Different cores if the machine has two, and among those that this process may use (taskset).
struct Cpus {
    int board;
    int application;
};
// Ends the program with status 77 if there is only one.
Cpus PickCpus();
// The calling thread on this processor from now on.
void Pin(int cpu);

inline std::int64_t NowNs() {
    return std::chrono::steady_clock::now().time_since_epoch().count();
}

// A stretch of a spinning thread's time, and how much of it the thread did not have its processor.
class CStretch {
  public:
    CStretch() : m_begin(NowNs()), m_cpuBegin(CpuNs()) {}
    void End() {
        m_elapsed = NowNs() - m_begin;
        m_lost = m_elapsed - (CpuNs() - m_cpuBegin);
    }
    double Seconds() const { return static_cast<double>(m_elapsed) * 1e-9; }
    // How much of the time other processes had, 0 to 1.
    double Lost() const {
        return m_lost <= 0 ? 0 : static_cast<double>(m_lost) / static_cast<double>(m_elapsed);
    }

  private:
    static std::int64_t CpuNs();

    std::int64_t m_begin;
    std::int64_t m_cpuBegin;
    std::int64_t m_elapsed = 0;
    std::int64_t m_lost = 0;
};

// Counts polls that found nothing; too long a time without success ends the program.
class CPatience {
  public:
    void Wait() {
        if (++m_polls % checkEvery == 0) [[unlikely]] {
            Check();
        }
    }
    void Success() { m_polls = 0; }

  private:
    static constexpr std::uint64_t checkEvery = 1 << 16;
    [[gnu::cold]] void Check();

    std::uint64_t m_polls = 0;
    std::int64_t m_since = 0;
};

// A child process that runs `work` and ends with status 0 if that gives true. It does not outlive
// this process, nor this object.
class CChild {
  public:
    template <class Work>
    explicit CChild(Work work) : m_pid(Fork()) {
        if (m_pid == 0) {
            End(work());
        }
    }
    ~CChild();
    CChild(const CChild&) = delete;
    CChild& operator=(const CChild&) = delete;

    // Waits for its end; ends the program if the child failed.
    void Join();

  private:
    static pid_t Fork();
    [[noreturn]] static void End(bool bGood);

    pid_t m_pid;
};

// One object in memory that a later child sees too.
template <class T>
class CShared {
  public:
    CShared() {
        void* memory =
            mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) {
            Die("no shared memory");
        }
        m_pObject = new (memory) T();
    }
    ~CShared() { munmap(m_pObject, sizeof(T)); }
    CShared(const CShared&) = delete;
    CShared& operator=(const CShared&) = delete;

    T& operator*() const { return *m_pObject; }
    T* operator->() const { return m_pObject; }

  private:
    T* m_pObject = nullptr;
};

// Both sides of a measurement meet here before it begins.
class CMeeting {
  public:
    void Meet() {
        m_here.fetch_add(1);
        CPatience patience;
        while (m_here.load() < 2) {
            patience.Wait();
            std::this_thread::yield();  // the other may have to come from this processor
        }
    }

  private:
    std::atomic<int> m_here{0};
};

}  // namespace velabench
