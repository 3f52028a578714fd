// What a process begins with, what a worker hands on, and what it leaves behind.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <type_traits>
#include <vector>

#include "VelaZceBinFile.h"
#include "workerBench.h"

namespace {

using velatest::FakeClock;
using velatest::Lines_t;
using velatest::Peer;
using velatest::PutFile;
using velatest::TempDir;
using velatest::WorkerBench;

// Both have a destructor in their table, and nothing else.
static_assert(std::has_virtual_destructor_v<CZceDmaChanImpl>);
static_assert(std::has_virtual_destructor_v<CTernBinFile>);

// As the loader left them: read before any test has made the process as new.
struct AtLoad {
    unsigned char signalRegister = Peer::SignalRegister();
    unsigned char allSubsOver = Peer::AllSubsOver();
    unsigned char callTimeExpired = Peer::CallTimeExpired();
    unsigned char loadMapEnabled = Peer::LoadMapEnabled();
    unsigned char firstTmRead = Peer::FirstTmRead();
    unsigned long settleTm = CZceDmaChanImpl::g_uiContractSettleTm;
};
const AtLoad g_atLoad;

TEST(WorkerAtLoad, NothingIsOverAndPacketsAreLearnt) {
    EXPECT_EQ(g_atLoad.signalRegister, 0);
    EXPECT_EQ(g_atLoad.allSubsOver, 0);
    EXPECT_EQ(g_atLoad.callTimeExpired, 0);
    EXPECT_EQ(g_atLoad.loadMapEnabled, 1);
    EXPECT_EQ(g_atLoad.firstTmRead, 0);
    EXPECT_EQ(g_atLoad.settleTm, 0UL);
}

template <typename Value>
Value At(const void* object, std::size_t offset) {
    Value value;
    std::memcpy(&value, static_cast<const char*>(object) + offset, sizeof(value));
    return value;
}

// ---- the stream's open record ----

class WorkerStream : public WorkerBench {};

TEST_F(WorkerStream, IsOpenedWith64AndZeroesInTheReservedFields) {
    MakeWorker(channel3Ini);
    parms.chanName = "CUSTOM_CHAN3_DATA";
    ASSERT_EQ(chan->InitDma(&parms), 0);
    // The driver keeps the three values behind its name: table 8, bus 8, name 32 bytes.
    const IDrvDMA* const dma = Peer::Dma(*chan);
    EXPECT_EQ(At<unsigned int>(dma, 48), 0U);
    EXPECT_EQ(At<unsigned int>(dma, 52), 64U);
    EXPECT_EQ(At<unsigned int>(dma, 56), 0U);
}

// ---- the end of a worker ----

class WorkerEnd : public WorkerBench {
  protected:
    // How often the process has the cache file open.
    std::size_t OpenBins() const {
        const std::string bin = std::filesystem::canonical(dir.path()).string() + "/bin";
        std::size_t count = 0;
        for (const auto& fd : std::filesystem::directory_iterator("/proc/self/fd")) {
            std::error_code gone;
            count += std::filesystem::read_symlink(fd.path(), gone) == bin ? 1U : 0U;
        }
        return count;
    }
};

TEST_F(WorkerEnd, TheCacheFileStaysOpenSinceItsObjectIsNotFreed) {
    MakeMaster();
    FakeClock::SetTime(83000);
    ASSERT_EQ(chan->Work(&parms), 0);
    EXPECT_EQ(OpenBins(), 1U);
    DropWorker();
    EXPECT_EQ(OpenBins(), 1U);
}

TEST_F(WorkerEnd, TheStreamIsClosedBeforeTheRegisterDriverGoes) {
    MakeMaster();
    ASSERT_EQ(chan->InitDma(&parms), 0);
    bool streamWasClosed = false;
    drv->OnDestroy([this, &streamWasClosed] {
        ++drvDestroyed;
        streamWasClosed = log.Has("INFO dma channel CUSTOM_CHAN0_DATA has released.");
    });
    DropWorker();
    EXPECT_EQ(drvDestroyed, 1);
    EXPECT_TRUE(streamWasClosed);
}

// ---- the dump of a message of another type ----

// Standard output that remembers the size of each write.
class StdoutWrites {
  public:
    StdoutWrites() {
        cookie_io_functions_t functions{};
        functions.write = [](void* cookie, const char* text, std::size_t size) {
            auto& self = *static_cast<StdoutWrites*>(cookie);
            self.m_texts.emplace_back(text, size);
            return static_cast<ssize_t>(size);
        };
        m_file = fopencookie(this, "w", functions);
        std::setvbuf(m_file, nullptr, _IONBF, 0);
        m_before = stdout;
        stdout = m_file;
    }
    ~StdoutWrites() { Stop(); }
    StdoutWrites(const StdoutWrites&) = delete;
    StdoutWrites& operator=(const StdoutWrites&) = delete;

    void Stop() {
        if (m_file != nullptr) {
            stdout = m_before;
            std::fclose(m_file);
            m_file = nullptr;
        }
    }
    // The last `count` of them.
    std::vector<std::string> Last(std::size_t count) const {
        const std::size_t there = m_texts.size();
        return {m_texts.end() - static_cast<std::ptrdiff_t>(std::min(count, there)), m_texts.end()};
    }

  private:
    std::vector<std::string> m_texts;
    std::FILE* m_file = nullptr;
    std::FILE* m_before = nullptr;
};

class MessageDump : public WorkerBench {};

TEST_F(MessageDump, IsWrittenEightBytesAtATimeThenTheRestThenALineEnd) {
    MakeWorker(channel3Ini);
    const std::vector<unsigned char> message = {21, 0, 0, 0, 0xAB, 0xCD, 0xEF, 1,  2,
                                                3,  4, 5, 6, 7,    8,    9,    10, 11};
    StdoutWrites out;
    chan->HandleUpSubsResult(message.data(), 18, chan);
    out.Stop();
    EXPECT_EQ(out.Last(4),
              (std::vector<std::string>{"15000000ABCDEF01", "0203040506070809", "0A0B", "\n"}));
}

// ---- the cache file's object ----

TEST(BinFileLayout, MapTimeFileAndChannelFollowTheTableInThisOrder) {
    const TempDir dir(TempDir::Enter::yes);
    const velatest::LogCapture log;
    FakeClock::Set(20261120, 93000);
    std::map<std::string, unsigned short> insts;
    CTernBinFile bin(insts, 12);
    EXPECT_EQ(sizeof(bin), 40U);
    EXPECT_EQ(At<void*>(&bin, 8), &insts);
    EXPECT_EQ(At<unsigned long>(&bin, 16), 0UL);
    EXPECT_EQ(At<void*>(&bin, 24), nullptr);
    EXPECT_EQ(At<unsigned int>(&bin, 32), 12U);
    PutFile("bin", "contract's_corresponding_time=20261120085510\nbin_file_over_tag");
    EXPECT_EQ(bin.Intrade_CheckAndGetAllInstFromBin(), 0);
    EXPECT_EQ(At<unsigned long>(&bin, 16), 20261120085510UL);
    EXPECT_EQ(At<void*>(&bin, 24), nullptr);
    bin.Normal_FileInit();
    EXPECT_NE(At<void*>(&bin, 24), nullptr);
}

}  // namespace
