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

// Every allocation of the process, the C++ runtime's operator new included, comes through these.
extern "C" void* malloc(std::size_t size) {
    g_allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_malloc(size);
}
extern "C" void* calloc(std::size_t count, std::size_t size) {
    g_allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_calloc(count, size);
}
extern "C" void* realloc(void* pointer, std::size_t size) {
    g_allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_realloc(pointer, size);
}
extern "C" void* aligned_alloc(std::size_t alignment, std::size_t size) {
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

class HotPath : public Market {
  protected:
    // The test's own process becomes the master and polls until market data has come.
    void StartMaster() {
        StartClock(85506);
        StartSmallBoard();
        setenv("TZ", VirtualZone(85506).c_str(), 1);
        setenv("ZCE_BOARD_SHM_PREFIX", ("test" + std::to_string(getpid()) + "-").c_str(), 1);
        ASSERT_EQ(chdir(Path("").c_str()), 0);
        WriteFile(Path("config.ini"), "[config]\ndevice = xilinx0:0\n" + m_rules);
        m_api = IVelaZceMdApi::CreateVelaZceMdApi();
        ASSERT_EQ(m_api->VelaStart(m_spi, "config.ini"), 0);
        PollUntil(10);
        ASSERT_GE(m_spi.m_ulCount, 10U);
    }

    void TearDown() override {
        if (m_api != nullptr) {
            IVelaZceMdApi::DestroyVelaZceMdApi(*m_api);
        }
    }

    // Polls until this many messages have come in all, an end for the broken case included.
    void PollUntil(unsigned long count) {
        for (unsigned long polls = 0; polls < 20'000'000'000 && m_spi.m_ulCount < count; ++polls) {
            if (m_api->VelaRecv() == -1) {
                return;
            }
        }
    }

    CountingSpi m_spi;
    IVelaZceMdApi* m_api = nullptr;
};

TEST_F(HotPath, NothingIsAllocatedBetweenPollAndCallback) {
    ASSERT_NO_FATAL_FAILURE(StartMaster());
    const unsigned long before = g_allocations.load();
    PollUntil(m_spi.m_ulCount + manyMessages);
    EXPECT_EQ(g_allocations.load() - before, 0U);
    delete new int(1);
    void* volatile proof = std::malloc(1);  // the counter does count
    std::free(proof);
    EXPECT_GT(g_allocations.load(), before);
}

TEST_F(HotPath, NoSystemCallIsMadeBetweenPollAndCallback) {
    ASSERT_NO_FATAL_FAILURE(StartMaster());
    const unsigned long target = m_spi.m_ulCount + manyMessages;
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        // From here on the kernel kills the process at any system call but read, write and exit.
        if (prctl(PR_SET_SECCOMP, SECCOMP_MODE_STRICT) != 0) {
            _exit(3);
        }
        PollUntil(target);
        syscall(SYS_exit, m_spi.m_ulCount >= target ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status);
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST_F(HotPath, TheCallbackGetsAPointerIntoTheRingItself) {
    ASSERT_NO_FATAL_FAILURE(StartMaster());
    EXPECT_TRUE(IsInBoardMemory(m_spi.m_pLast));
    int local = 0;
    EXPECT_FALSE(IsInBoardMemory(reinterpret_cast<unsigned char*>(&local)));
}

}  // namespace

}  // namespace velatest
