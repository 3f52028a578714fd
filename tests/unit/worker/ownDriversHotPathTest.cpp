// What lies between the poll of a driver that is not the library's own and the callback, for
// messages of all four types and for idle polls: no allocation, no lock, no system call, no copy.

#include <gtest/gtest.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "IVelaZceMdApi.h"
#include "callCounters.h"
#include "fakeClock.h"
#include "logCapture.h"
#include "ownDrivers.h"
#include "tempDir.h"
#include "wholeFile.h"

namespace velatest {
namespace {

constexpr unsigned long manyPolls = 10'000;  // of which every other one delivers
constexpr unsigned long ofEachType = manyPolls / 2 / 4;

class LastOfEachSpi : public IVelaZceMdSpi {
  public:
    void OnDmaType17Msg(const unsigned char* body) override { Take(0, body); }
    void OnDmaType18Msg(const unsigned char* body) override { Take(1, body); }
    void OnDmaType19Msg(const unsigned char* body) override { Take(2, body); }
    void OnDmaType20Msg(const unsigned char* body) override { Take(3, body); }

    std::array<unsigned long, 4> counts{};
    std::array<const unsigned char*, 4> last{};

  private:
    void Take(std::size_t type, const unsigned char* body) {
        ++counts[type];
        last[type] = body;
    }
};

class OwnDriversHotPath : public testing::Test {
  protected:
    OwnDriversHotPath() {
        for (unsigned char type = 17; type <= 20; ++type) {
            m_messages.push_back({type, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8, type, 0xEE});
        }
        PutFile("chan3.ini", "[config]\ndevice=xilinx0:3\n");
        FakeClock::Set(20261120, 100000);
        g_makeReg = [] {
            auto* const drv = new FakeDrv;
            drv->SetReg(0x103, 0xF);
            return drv;
        };
        m_api = IVelaZceMdApi::CreateVelaZceMdApi();
        EXPECT_EQ(m_api->VelaStart(m_spi, "chan3.ini"), 0);
        QueueDma::s_pRepeated = &m_messages;
        Poll(8);  // the first message installs the signal handlers
        m_spi = {};
    }
    ~OwnDriversHotPath() override {
        QueueDma::s_pRepeated = nullptr;
        IVelaZceMdApi::DestroyVelaZceMdApi(*m_api);
        delete g_pProcessReg;
    }
    OwnDriversHotPath(const OwnDriversHotPath&) = delete;
    OwnDriversHotPath& operator=(const OwnDriversHotPath&) = delete;

    // How many of these polls delivered a message.
    unsigned long Poll(unsigned long polls) {
        unsigned long delivered = 0;
        for (unsigned long k = 0; k < polls; ++k) {
            delivered += m_api->VelaRecv() == 1 ? 1 : 0;
        }
        return delivered;
    }
    bool AllTypesCame() const {
        return std::all_of(m_spi.counts.begin(), m_spi.counts.end(),
                           [](unsigned long count) { return count == ofEachType; });
    }

    TempDir m_dir{TempDir::Enter::yes};
    LogCapture m_log;
    std::vector<Bytes_t> m_messages;
    LastOfEachSpi m_spi;
    IVelaZceMdApi* m_api = nullptr;
};

TEST_F(OwnDriversHotPath, NothingIsAllocatedAndNoLockIsTaken) {
    const unsigned long allocations = g_allocations.load();
    const unsigned long locks = g_locks.load();
    const unsigned long delivered = Poll(manyPolls);
    EXPECT_EQ(g_allocations.load(), allocations);
    EXPECT_EQ(g_locks.load(), locks);
    EXPECT_EQ(delivered, manyPolls / 2);
    EXPECT_TRUE(AllTypesCame());
}

TEST_F(OwnDriversHotPath, NoSystemCallIsMade) {
    const pid_t child = fork();
    if (child == 0) {
        if (prctl(PR_SET_SECCOMP, SECCOMP_MODE_STRICT) != 0) {
            syscall(SYS_exit, 2);
        }
        syscall(SYS_exit, Poll(manyPolls) == manyPolls / 2 && AllTypesCame() ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status)) << "signal " << WTERMSIG(status);
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST_F(OwnDriversHotPath, TheCallbackGetsByteTwelveOfWhatTheDriverHandedOver) {
    Poll(8);
    for (std::size_t type = 0; type < m_messages.size(); ++type) {
        EXPECT_EQ(m_spi.last[type], m_messages[type].data() + 12);
    }
}

}  // namespace
}  // namespace velatest
