// What lies between the board's ring and the callback, for messages of all four types and for idle
// polls: no allocation, no lock, no system call, no copy.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <signal.h>  // NOLINT(modernize-deprecated-headers): SIGSYS
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <sstream>

#include "IVelaZceMdApi.h"
#include "callCounters.h"
#include "market.h"

namespace velatest {

namespace {

constexpr unsigned long manyMessages = 5'000;

class CountingSpi : public IVelaZceMdSpi {
  public:
    void OnDmaType17Msg(const unsigned char* body) override { Count(0, body); }
    void OnDmaType18Msg(const unsigned char* body) override { Count(1, body); }
    void OnDmaType19Msg(const unsigned char* body) override { Count(2, body); }
    void OnDmaType20Msg(const unsigned char* body) override { Count(3, body); }
    unsigned long m_ulCount = 0;
    std::array<unsigned long, 4> m_counts{};       // of each type
    std::array<const unsigned char*, 4> m_last{};  // body of each type

  private:
    void Count(std::size_t type, const unsigned char* body) {
        ++m_ulCount;
        ++m_counts[type];
        m_last[type] = body;
    }
};

// Whether the address lies in the process's mapping of the board's shared memory.
bool IsInBoardMemory(const unsigned char* address) {
    const auto wanted = reinterpret_cast<std::uintptr_t>(address);
    std::istringstream maps(ReadFile("/proc/self/maps"));
    for (std::string line; std::getline(maps, line);) {
        std::uintptr_t from = 0;
        std::uintptr_t to = 0;
        char dash = 0;
        std::istringstream(line) >> std::hex >> from >> dash >> to;
        if (wanted >= from && wanted < to) {
            return line.find("zce-board") != std::string::npos;
        }
    }
    return false;
}

// Everything happens in a forked child that becomes the master, so that the library's process-wide
// state is fresh for every test.
class HotPath : public Market {
  protected:
    void SetUp() override {
        StartClock(85506);
        StartSmallBoard();
        WriteFile(Path("config.ini"), "[config]\ndevice = xilinx0:0\n" + m_rules);
    }

    // Runs `body` in a child: its exit status, or 128 + signal.
    template <class Body>
    static int InChild(Body body) {
        const pid_t child = fork();
        if (child == 0) {
            const int status = body();
            std::fflush(stdout);
            syscall(SYS_exit, status);
        }
        int status = 0;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

    // The same, once market data has begun to come there.
    template <class Body>
    int InMaster(Body body) {
        return InChild([this, body] { return StartMaster() ? body() : notStarted; });
    }

    // Polls until this many more messages have come, some of each type, and as many polls found
    // nothing; false if they do not.
    bool Poll(unsigned long messages) {
        constexpr unsigned long patience = 4'000'000'000;  // polls: some ten seconds
        const CountingSpi before = m_spi;
        unsigned long idle = 0;
        for (unsigned long polls = 0; polls < patience; ++polls) {
            const int got = m_api->VelaRecv();
            if (got == -1) {
                return false;
            }
            idle += got == 0 ? 1 : 0;
            if (idle >= messages && m_spi.m_ulCount >= before.m_ulCount + messages &&
                std::equal(before.m_counts.begin(), before.m_counts.end(), m_spi.m_counts.begin(),
                           std::less<>())) {
                return true;
            }
        }
        return false;
    }

    static constexpr int good = 0;
    static constexpr int bad = 1;
    static constexpr int notStarted = 2;

    CountingSpi m_spi;
    IVelaZceMdApi* m_api = nullptr;

  private:
    bool StartMaster() {
        Enter();
        m_api = IVelaZceMdApi::CreateVelaZceMdApi();
        return m_api->VelaStart(m_spi, "config.ini") == 0 && Poll(10);
    }
};

TEST_F(HotPath, NothingIsAllocatedBetweenPollAndCallback) {
    EXPECT_EQ(InMaster([this] {
                  const unsigned long before = g_allocations.load();
                  const bool arrived = Poll(manyMessages);
                  const unsigned long made = g_allocations.load() - before;
                  std::printf("%lu allocations\n", made);
                  return arrived && made == 0 ? good : bad;
              }),
              good);
}

TEST_F(HotPath, TheAllocationCounterDoesCount) {
    const unsigned long before = g_allocations.load();
    int* volatile made = new int(1);
    delete made;
    EXPECT_EQ(g_allocations.load() - before, 1U);
}

TEST_F(HotPath, NoLockIsTakenBetweenPollAndCallback) {
    EXPECT_EQ(InMaster([this] {
                  const unsigned long before = g_locks.load();
                  const bool arrived = Poll(manyMessages);
                  const unsigned long taken = g_locks.load() - before;
                  std::printf("%lu locks\n", taken);
                  return arrived && taken == 0 ? good : bad;
              }),
              good);
}

TEST_F(HotPath, TheLockCounterDoesCount) {
    std::mutex mutex;
    const unsigned long before = g_locks.load();
    mutex.lock();
    mutex.unlock();
    EXPECT_EQ(g_locks.load() - before, 1U);
}

// From here on the kernel kills the process at any system call but exit, and but the question that
// the board's library asks after a board that made no pass for long (a loaded machine has no
// processor for it): whether its lock is still there.
bool ForbidSystemCalls() {
    const auto load = [](std::size_t offset) {
        return sock_filter BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<uint32_t>(offset));
    };
    const auto skipIf = [](uint32_t value, uint8_t yes, uint8_t no) {
        return sock_filter BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, value, yes, no);
    };
    constexpr std::size_t command = offsetof(seccomp_data, args) + sizeof(uint64_t);
    std::array<sock_filter, 7> filter{
        load(offsetof(seccomp_data, nr)),
        skipIf(SYS_exit, 4, 0),
        skipIf(SYS_fcntl, 0, 2),
        load(command),
        skipIf(F_OFD_GETLK, 1, 0),
        sock_filter BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS),
        sock_filter BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog program{static_cast<unsigned short>(filter.size()), filter.data()};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

TEST_F(HotPath, NoSystemCallIsMadeBetweenPollAndCallback) {
    EXPECT_EQ(InMaster([this] {
                  if (!ForbidSystemCalls()) {
                      return notStarted;
                  }
                  syscall(SYS_exit, Poll(manyMessages) ? good : bad);
                  return bad;
              }),
              good);
}

TEST_F(HotPath, TheKernelWouldSeeASystemCall) {
    for (const auto call : {+[] { syscall(SYS_getppid); }, +[] { syscall(SYS_write, 1, "", 0); },
                            +[] { fcntl(0, F_GETFL); }}) {
        EXPECT_EQ(InChild([call] {
                      if (!ForbidSystemCalls()) {
                          return notStarted;
                      }
                      call();
                      return good;
                  }),
                  128 + SIGSYS);
    }
}

TEST_F(HotPath, TheCallbackGetsAPointerIntoTheRingItself) {
    EXPECT_EQ(InMaster([this] {
                  int local = 0;
                  return std::all_of(m_spi.m_last.begin(), m_spi.m_last.end(), IsInBoardMemory) &&
                                 !IsInBoardMemory(reinterpret_cast<unsigned char*>(&local))
                             ? good
                             : bad;
              }),
              good);
}

}  // namespace

}  // namespace velatest
