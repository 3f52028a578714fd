// What the software board sends as garbage, straight into the library's channel worker: thousands
// of messages, each of which ends where readable memory ends.

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "VelaZceBinFile.h"
#include "device/Garbage.h"
#include "tests/unit/worker/workerBench.h"

namespace {

using velatest::FakeClock;
using velatest::Peer;
using velatest::StdoutCapture;
using velatest::WorkerBench;

constexpr int messageCount = 20'000;
constexpr uint64_t seed = 20261120;

// Memory behind which nothing can be read.
class GuardedMessage {
  public:
    GuardedMessage() {
        void* const memory =
            mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        EXPECT_NE(memory, MAP_FAILED);
        m_begin = static_cast<unsigned char*>(memory);
        EXPECT_EQ(mprotect(m_begin + page, page, PROT_NONE), 0);
    }
    ~GuardedMessage() { munmap(m_begin, 2 * page); }
    GuardedMessage(const GuardedMessage&) = delete;
    GuardedMessage& operator=(const GuardedMessage&) = delete;

    const unsigned char* Hold(const std::vector<unsigned char>& message) {
        unsigned char* const at = m_begin + page - message.size();
        std::copy(message.begin(), message.end(), at);
        return at;
    }

  private:
    static constexpr size_t page = 65536;  // a multiple of any page's size
    unsigned char* m_begin = nullptr;
};

uint32_t Big16(const std::vector<unsigned char>& message, size_t at) {
    return static_cast<uint32_t>(message[at]) << 8 | message[at + 1];
}

// The names of an instrument-map packet up to the first record that is not sound, and what the
// packet is then called. Worked out here, apart from the library.
struct MapContent {
    std::vector<std::string> names;
    std::string line;
};
MapContent ContentOf(const std::vector<unsigned char>& message) {
    MapContent content;
    const size_t announced = 14 + size_t{Big16(message, 12)};
    const size_t there = message.size();
    size_t at = 14;
    for (size_t head = 9; at + 1 < announced; head = 5) {
        const size_t length = at + 2 <= there ? Big16(message, at) : 0;
        if (length < head || at + length > there || length - head > 63) {
            content.line = "WARN Bad instrument map record";
            return content;
        }
        const std::string name(message.begin() + static_cast<std::ptrdiff_t>(at + head),
                               message.begin() + static_cast<std::ptrdiff_t>(at + length));
        content.names.emplace_back(name.c_str());
        at += length;
    }
    return content;
}

class GarbageForTheWorker : public WorkerBench {
  protected:
    void SetUp() override { m_quiet = std::make_unique<StdoutCapture>(); }
    void TearDown() override { m_quiet->Stop(); }

    void Receive(const std::vector<unsigned char>& message) {
        CZceDmaChanImpl::DmaEntrance(m_place.Hold(message),
                                     static_cast<unsigned int>(message.size()), chan);
    }
    // What becomes of all of it: how many lines there are to be, by what they begin with; what is
    // to be said of a map packet is `mapLine`, or what is wrong with it if that is empty.
    void ReceiveAll(const std::string& mapLine) {
        ZceBoard::CGarbage garbage(seed);
        for (int k = 0; k < messageCount; ++k) {
            const std::vector<unsigned char>& message = garbage.Next();
            uint32_t type = 0;
            std::memcpy(&type, message.data(), std::min<size_t>(message.size(), 4));
            if (message.size() < 4 || (type - 17 < 4 && message.size() < 12)) {
                ++m_expected["WARN Dma message of"];
            } else if (type - 17 < 4) {
                ++m_delivered;
            } else if (type != 2) {
                ++m_expected["ERROR Unsupported dma type 0x"];
            } else {
                ExpectMap(message, mapLine);
            }
            Receive(message);
        }
    }
    void ExpectMap(const std::vector<unsigned char>& message, const std::string& mapLine) {
        if (!mapLine.empty()) {
            ++m_expected[mapLine];
        } else if (message.size() < 15) {
            ++m_expected["WARN Unexpect dma size, size"];
        } else {
            const MapContent content = ContentOf(message);
            m_names.insert(content.names.begin(), content.names.end());
            m_expected[content.line] += content.line.empty() ? 0 : 1;
        }
    }
    // Every WARN and ERROR line is one of those, and there are this many kinds of them.
    void ExpectLines(size_t kinds) {
        m_expected.erase("");
        std::map<std::string, int> found;
        for (const std::string& line : log.Lines()) {
            if (line.rfind("INFO ", 0) == 0) {
                continue;
            }
            const auto kind =
                std::find_if(m_expected.begin(), m_expected.end(),
                             [&line](const auto& one) { return line.rfind(one.first, 0) == 0; });
            ++found[kind == m_expected.end() ? line : kind->first];
        }
        EXPECT_EQ(found, m_expected);
        EXPECT_EQ(m_expected.size(), kinds);
        EXPECT_EQ(spi.calls.size(), m_delivered);
        for (const auto& [line, count] : m_expected) {
            EXPECT_GT(count, 100) << line << ": the garbage has too few of them";
        }
    }
    // And after all that the next message is delivered like the first.
    void ExpectGoesOn() {
        const size_t before = spi.calls.size();
        Receive({19, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xB0});
        ASSERT_EQ(spi.calls.size(), before + 1);
        EXPECT_EQ(spi.calls.back().slot, 2);
        CSignalProcess::m_isExit = 0;
    }

    GuardedMessage m_place;
    std::unique_ptr<StdoutCapture> m_quiet;
    std::map<std::string, int> m_expected;
    std::set<std::string> m_names;
    size_t m_delivered = 0;
};

TEST_F(GarbageForTheWorker, AMasterThatLearnsNamesEachBadMessageOnceAndLearnsOn) {
    MakeMaster();
    Peer::BinFile(*chan)->Normal_FileInit();
    log.Clear();
    ReceiveAll("");
    ExpectLines(4);
    std::set<std::string> learnt;
    for (const auto& [name, index] : Peer::Insts(*chan)) {
        learnt.insert(name);
    }
    EXPECT_EQ(learnt, m_names);
    EXPECT_GT(m_names.size(), 1000U);
    ExpectGoesOn();
    // One record: its length, four bytes, attribute, index 7, name.
    Receive({2, 0,  0, 0, 0, 0, 0, 0, 0, 0,   0,   0,   0,   14,
             0, 14, 0, 0, 0, 0, 0, 0, 7, 'S', 'R', '3', '0', '1'});
    EXPECT_EQ(Peer::Insts(*chan)["SR301"], 7);
}

TEST_F(GarbageForTheWorker, AMasterInTradingTimeClosesTheTransferForEachMapPacketAndGoesOn) {
    FakeClock::Set(20261120, 83000);
    MakeMaster();
    FakeClock::Set(20261120, 93000);
    log.Clear();
    ReceiveAll("WARN Now is in trade time! Note that you should start program before each trade!");
    ExpectLines(3);
    EXPECT_TRUE(Peer::Insts(*chan).empty());
    ExpectGoesOn();
}

TEST_F(GarbageForTheWorker, AnotherChannelTakesNoMapPacketAtAll) {
    MakeWorker(channel3Ini);
    ReceiveAll("WARN Instrument map packet on a channel that is not the master. It is dropped.");
    ExpectLines(3);
    ExpectGoesOn();
}

}  // namespace
