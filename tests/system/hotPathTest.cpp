// What lies between the board's ring and the callback: no allocation, no system call, no copy.

#include <gmock/gmock.h>
#include <linux/seccomp.h>
#include <signal.h>  // NOLINT(modernize-deprecated-headers): SIGKILL
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <sstream>

#include "IVelaZceMdApi.h"
#include "market.h"

extern "C" {
void* __libc_malloc(std::size_t size);                      // NOLINT: glibc's names
void* __libc_calloc(std::size_t count, std::size_t size);   // NOLINT
void* __libc_realloc(void* pointer, std::size_t size);      // NOLINT
void* __libc_memalign(std::size_t alignment, std::size_t);  // NOLINT
}

namespace {

std::atomic<unsigned long> g_allocations{0};

}  // namespace

// Every allocation of the process, the C++ runtime's operator new included, comes through these:
// the runtime finds them only if they are visible.
#define EXPORTED __attribute__((visibility("default")))
extern "C" EXPORTED void* malloc(std::size_t size) {
    g_allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_malloc(size);
}
extern "C" EXPORTED void* calloc(std::size_t count, std::size_t size) {
    g_allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_calloc(count, size);
}
extern "C" EXPORTED void* realloc(void* pointer, std::size_t size) {
    g_allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_realloc(pointer, size);
}
extern "C" EXPORTED void* aligned_alloc(std::size_t alignment, std::size_t size) {
    g_allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_memalign(alignment, size);
}

namespace velatest {

namespace {

constexpr unsigned long manyMessages = 5'000;

class CountingSpi : public IVelaZceMdSpi {
  public:
    void OnDmaType17Msg(const unsigned char* body) override { Count(body); }
    void OnDmaType18Msg(const unsigned char* body) override { Count(body); }
    void OnDmaType19Msg(const unsigned char* body) override { Count(body); }
    void OnDmaType20Msg(const unsigned char* body) override { Count(body); }
    unsigned long m_ulCount = 0;
    const unsigned char* m_pLast = nullptr;

  private:
    void Count(const unsigned char* body) {
        ++m_ulCount;
        m_pLast = body;
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

    // Runs `body` in a child in which market data has begun to come. Returns its exit status, or
    // 128 + signal.
    template <class Body>
    int InMaster(Body body) {
        const pid_t child = fork();
        if (child == 0) {
            const int status = StartMaster() ? body() : notStarted;
            std::fflush(stdout);
            syscall(SYS_exit, status);
        }
        int status = 0;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

    // Polls until this many messages have come in all; false if they do not.
    bool PollUntil(unsigned long count) {
        constexpr unsigned long patience = 4'000'000'000;  // polls: some ten seconds
        for (unsigned long polls = 0; polls < patience && m_spi.m_ulCount < count; ++polls) {
            if (m_api->VelaRecv() == -1) {
                return false;
            }
        }
        return m_spi.m_ulCount >= count;
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
        return m_api->VelaStart(m_spi, "config.ini") == 0 && PollUntil(10);
    }
};

TEST_F(HotPath, NothingIsAllocatedBetweenPollAndCallback) {
    EXPECT_EQ(InMaster([this] {
                  const unsigned long before = g_allocations.load();
                  const bool arrived = PollUntil(m_spi.m_ulCount + manyMessages);
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

// From the change to strict mode on the kernel kills the process at any system call but read, write
// and exit.
TEST_F(HotPath, NoSystemCallIsMadeBetweenPollAndCallback) {
    EXPECT_EQ(InMaster([this] {
                  const unsigned long target = m_spi.m_ulCount + manyMessages;
                  if (prctl(PR_SET_SECCOMP, SECCOMP_MODE_STRICT) != 0) {
                      return notStarted;
                  }
                  syscall(SYS_exit, PollUntil(target) ? good : bad);
                  return bad;
              }),
              good);
}

TEST_F(HotPath, TheKernelWouldSeeASystemCall) {
    EXPECT_EQ(InMaster([] {
                  if (prctl(PR_SET_SECCOMP, SECCOMP_MODE_STRICT) != 0) {
                      return notStarted;
                  }
                  getppid();
                  return good;
              }),
              128 + SIGKILL);
}

TEST_F(HotPath, TheCallbackGetsAPointerIntoTheRingItself) {
    EXPECT_EQ(InMaster([this] {
                  int local = 0;
                  return IsInBoardMemory(m_spi.m_pLast) &&
                                 !IsInBoardMemory(reinterpret_cast<unsigned char*>(&local))
                             ? good
                             : bad;
              }),
              good);
}

}  // namespace

}  // namespace velatest
