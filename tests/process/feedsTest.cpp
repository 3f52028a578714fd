#include "device/Feeds.h"

#include <cstdlib>
#include <fstream>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "playingBoard.h"
#include "traffic/FeedFile.h"

namespace {

using boardtest::QuoteOf;
using boardtest::TypeOf;

using boardtest::MS;
using boardtest::SECOND;
using ZceBoard::CFeeds;

const char* const L5_LINES =
    "L5_DSTMAC = 01:00:5e:01:01:05\nL5_DSTIP = 239.1.1.5\nL5_DSTPORT = 30005\n"
    "L5_SRCMAC = 00:1b:21:aa:bb:05\nL5_SRCIP = 192.168.5.10\nL5_SRCPORT = 31005\n";
const char* const L1_LINES =
    "L1_DSTMAC = 01:00:5e:01:01:01\nL1_DSTIP = 239.1.1.1\nL1_DSTPORT = 30001\n"
    "L1_SRCMAC = 00:1b:21:aa:bb:01\nL1_SRCIP = 192.168.1.10\nL1_SRCPORT = 31001\n";

// What a host writes for these lines, in its order.
using Writes = std::vector<std::pair<uint32_t, uint32_t>>;
const Writes L5_WRITES = {{0x301, 0x0100},     {0x302, 0x5e010105}, {0x303, 0xef010105},
                          {0x304, 30005},      {0x305, 0x001b},     {0x306, 0x21aabb05},
                          {0x307, 0xc0a8050a}, {0x308, 31005},      {0x300, 1}};
const Writes L1_WRITES = {{0x311, 0x0100},     {0x312, 0x5e010101}, {0x313, 0xef010101},
                          {0x314, 30001},      {0x315, 0x001b},     {0x316, 0x21aabb01},
                          {0x317, 0xc0a8010a}, {0x318, 31001},      {0x310, 1}};

// The feeds of an INI file with these lines in [config]. It is gone again.
CFeeds FeedsOf(const std::string& lines) {
    std::string path = testing::TempDir() + "/zcefeeds.XXXXXX";
    close(mkstemp(path.data()));
    std::ofstream(path) << "[config]\n" << lines;
    CFeeds feeds;
    std::string error;
    EXPECT_TRUE(ReadFeedFile(path, feeds, error)) << error;
    unlink(path.c_str());
    return feeds;
}

// The registers alone.
class FeedGate : public boardtest::BoardFixture {
  protected:
    void Write(const Writes& writes) {
        for (const auto& [index, value] : writes) {
            m_host.WriteWord(index, value);
        }
    }

    std::unique_ptr<ZceBoard::CBoardMemory> m_memory = MakeBoard();
    ZceBoard::CRegisterFile m_host{m_memory->Shm()};
};

TEST_F(FeedGate, WithoutAFileBothFeedsArriveWhateverIsProgrammedAndTheStatusLineIsSilent) {
    const CFeeds feeds;
    EXPECT_EQ(feeds.Received(m_host), 3U);
    Write(L5_WRITES);
    m_host.WriteWord(0x303, 0);
    EXPECT_EQ(feeds.Received(m_host), 3U);
    EXPECT_EQ(feeds.Status(m_host), "");
}

TEST_F(FeedGate, AFeedArrivesOnceItsAddressesAreProgrammedAndItsSwitchIsOpen) {
    const CFeeds feeds = FeedsOf(std::string(L5_LINES) + L1_LINES);
    EXPECT_EQ(feeds.Received(m_host), 0U);
    EXPECT_EQ(feeds.Status(m_host), " L5=closed L1=closed");
    Write(L5_WRITES);
    EXPECT_EQ(feeds.Received(m_host), 1U) << "bit 0 is L5";
    EXPECT_EQ(feeds.Status(m_host), " L5=ok L1=closed");
    Write(L1_WRITES);
    EXPECT_EQ(feeds.Received(m_host), 3U);
    EXPECT_EQ(feeds.Status(m_host), " L5=ok L1=ok");
    m_host.WriteWord(0x300, 0);
    EXPECT_EQ(feeds.Received(m_host), 2U) << "bit 1 is L1";
    EXPECT_EQ(feeds.Status(m_host), " L5=closed L1=ok");
    m_host.WriteWord(0x310, 0);
    EXPECT_EQ(feeds.Received(m_host), 0U);
}

TEST_F(FeedGate, OnlyTheValue1OpensASwitch) {
    const CFeeds feeds = FeedsOf(std::string(L5_LINES) + L1_LINES);
    Write(L5_WRITES);
    Write(L1_WRITES);
    for (const uint32_t value : {0U, 2U, 3U, 0x80000001U}) {
        m_host.WriteWord(0x300, value);
        EXPECT_EQ(feeds.Received(m_host), 2U) << value;
        m_host.WriteWord(0x300, 1);
        m_host.WriteWord(0x310, value);
        EXPECT_EQ(feeds.Received(m_host), 1U) << value;
        m_host.WriteWord(0x310, 1);
    }
}

TEST_F(FeedGate, EachRegisterOfAFeedCountsAndIsNamedByItsItem) {
    struct Wrong {
        uint32_t index;
        uint32_t value;
        const char* text;
    };
    const CFeeds feeds = FeedsOf(std::string(L5_LINES) + L1_LINES);
    Write(L5_WRITES);
    Write(L1_WRITES);
    for (const Wrong& wrong :
         {Wrong{0x301, 0x0101, "DSTMAC 01:01:5e:01:01:05, expected 01:00:5e:01:01:05"},
          Wrong{0x302, 0x5e0101ff, "DSTMAC 01:00:5e:01:01:ff, expected 01:00:5e:01:01:05"},
          Wrong{0x303, 0xef010106, "DSTIP 239.1.1.6, expected 239.1.1.5"},
          Wrong{0x304, 30006, "DSTPORT 30006, expected 30005"},
          Wrong{0x305, 0, "SRCMAC 00:00:21:aa:bb:05, expected 00:1b:21:aa:bb:05"},
          Wrong{0x306, 0x20aabb05, "SRCMAC 00:1b:20:aa:bb:05, expected 00:1b:21:aa:bb:05"},
          Wrong{0x307, 0xc0a8050b, "SRCIP 192.168.5.11, expected 192.168.5.10"},
          Wrong{0x308, 0, "SRCPORT 0, expected 31005"}}) {
        const uint32_t right = m_host.ReadWord(wrong.index);
        m_host.WriteWord(wrong.index, wrong.value);
        EXPECT_EQ(feeds.Received(m_host), 2U) << std::hex << wrong.index;
        EXPECT_EQ(feeds.Status(m_host), std::string(" L5=wrong:") + wrong.text + " L1=ok");
        m_host.WriteWord(wrong.index, right);
        EXPECT_EQ(feeds.Received(m_host), 3U) << std::hex << wrong.index;
    }
    for (const Wrong& wrong :
         {Wrong{0x311, 0x0101, "DSTMAC 01:01:5e:01:01:01, expected 01:00:5e:01:01:01"},
          Wrong{0x312, 0x5e0101ff, "DSTMAC 01:00:5e:01:01:ff, expected 01:00:5e:01:01:01"},
          Wrong{0x313, 0xef010106, "DSTIP 239.1.1.6, expected 239.1.1.1"},
          Wrong{0x314, 30006, "DSTPORT 30006, expected 30001"},
          Wrong{0x315, 0, "SRCMAC 00:00:21:aa:bb:01, expected 00:1b:21:aa:bb:01"},
          Wrong{0x316, 0x20aabb01, "SRCMAC 00:1b:20:aa:bb:01, expected 00:1b:21:aa:bb:01"},
          Wrong{0x317, 0xc0a8010b, "SRCIP 192.168.1.11, expected 192.168.1.10"},
          Wrong{0x318, 65536, "SRCPORT 65536, expected 31001"}}) {
        const uint32_t right = m_host.ReadWord(wrong.index);
        m_host.WriteWord(wrong.index, wrong.value);
        EXPECT_EQ(feeds.Received(m_host), 1U) << std::hex << wrong.index;
        EXPECT_EQ(feeds.Status(m_host), std::string(" L5=ok L1=wrong:") + wrong.text);
        m_host.WriteWord(wrong.index, right);
        EXPECT_EQ(feeds.Received(m_host), 3U) << std::hex << wrong.index;
    }
}

TEST_F(FeedGate, OfSeveralWrongItemsTheFirstIsNamed) {
    const CFeeds feeds = FeedsOf(L1_LINES);
    Write(L1_WRITES);
    m_host.WriteWord(0x318, 1);
    m_host.WriteWord(0x314, 2);
    EXPECT_EQ(feeds.Status(m_host), " L5=any L1=wrong:DSTPORT 2, expected 30001");
}

TEST_F(FeedGate, TheFeedsAddressesInEachOthersRegistersAreWrong) {
    const CFeeds feeds = FeedsOf(std::string(L5_LINES) + L1_LINES);
    for (const auto& [index, value] : L5_WRITES) {
        m_host.WriteWord(index + 0x10, value);
    }
    for (const auto& [index, value] : L1_WRITES) {
        m_host.WriteWord(index - 0x10, value);
    }
    EXPECT_EQ(feeds.Received(m_host), 0U);
    EXPECT_EQ(feeds.Status(m_host),
              " L5=wrong:DSTMAC 01:00:5e:01:01:01, expected 01:00:5e:01:01:05"
              " L1=wrong:DSTMAC 01:00:5e:01:01:05, expected 01:00:5e:01:01:01");
}

TEST_F(FeedGate, AnIncompleteSetIsClosedAndNamesWhatLacks) {
    const CFeeds feeds = FeedsOf(L1_LINES);
    m_host.WriteWord(0x311, 0x0100);
    m_host.WriteWord(0x312, 0x5e010101);
    EXPECT_EQ(feeds.Status(m_host), " L5=any L1=closed:DSTIP 0.0.0.0, expected 239.1.1.1");
    Write(L1_WRITES);
    m_host.WriteWord(0x318, 0);
    m_host.WriteWord(0x310, 0);
    EXPECT_EQ(feeds.Received(m_host), 1U);
    EXPECT_EQ(feeds.Status(m_host), " L5=any L1=closed:SRCPORT 0, expected 31001");
}

TEST_F(FeedGate, AFeedThatTheFileLeavesOutArrivesWhateverIsProgrammed) {
    const CFeeds feeds = FeedsOf(L5_LINES);
    EXPECT_EQ(feeds.Received(m_host), 2U);
    EXPECT_EQ(feeds.Status(m_host), " L5=closed L1=any");
    m_host.WriteWord(0x313, 5);
    m_host.WriteWord(0x310, 1);
    EXPECT_EQ(feeds.Received(m_host), 2U);
    Write(L5_WRITES);
    EXPECT_EQ(feeds.Received(m_host), 3U);
    EXPECT_EQ(feeds.Status(m_host), " L5=ok L1=any");
}

TEST_F(FeedGate, AResetClosesTheFeeds) {
    const CFeeds feeds = FeedsOf(std::string(L5_LINES) + L1_LINES);
    Write(L5_WRITES);
    Write(L1_WRITES);
    m_host.WriteWord(0x10, 1);
    m_host.WriteWord(0x10, 0);
    EXPECT_EQ(feeds.Received(m_host), 0U);
    EXPECT_EQ(feeds.Status(m_host), " L5=closed L1=closed");
}

// A board that receives what these feeds say, with a reader on channel 0 that gets everything.
class FeedBoard : public boardtest::PlayingBoard {
  protected:
    explicit FeedBoard(const CFeeds& feeds = FeedsOf(std::string(L5_LINES) + L1_LINES))
        : PlayingBoard(feeds) {
        for (uint32_t index = 0; index < 3; ++index) {
            Subscribe(0, index, 1);
        }
        Subscribe(1, 0, 1);
        m_host.WriteWord(0x11, 3);
    }

    void Write(const Writes& writes) {
        for (const auto& [index, value] : writes) {
            m_host.WriteWord(index, value);
        }
    }
    // Whether messages of the types 17 to 20 came in a tenth of a second of trading, and whether
    // their parse counters moved, of both groups: "17 18 19 20 / 17 18 19 20 / 17 18 19 20".
    std::string Arriving() {
        uint32_t before[2][4];
        for (uint32_t k = 0; k < 4; ++k) {
            before[0][k] = m_host.ReadWord(0x200b + k);
            before[1][k] = m_host.ReadWord(0x210b + k);
        }
        Pass(93000, SECOND / 10);
        std::map<uint32_t, int> types;
        for (const auto& message : Drain(m_reader)) {
            ++types[TypeOf(message)];
        }
        std::string text;
        for (const auto& [type, count] : types) {
            text += std::to_string(type) + " ";
        }
        for (uint32_t group = 0; group < 2; ++group) {
            text += "/ ";
            for (uint32_t k = 0; k < 4; ++k) {
                const bool moved = m_host.ReadWord(0x200b + group * 0x100 + k) != before[group][k];
                text += moved ? std::to_string(17 + k) + " " : "";
            }
        }
        return text;
    }

    Reader m_reader = Open(0);
};

class UnboundFeedBoard : public FeedBoard {
  protected:
    UnboundFeedBoard() : FeedBoard(CFeeds()) {}
};

TEST_F(FeedBoard, AFeedThatIsNotReceivedIsNeitherSentNorParsed) {
    EXPECT_EQ(Arriving(), "/ / ");
    EXPECT_EQ(m_board.Parsed(), 0U);
    Write(L5_WRITES);
    EXPECT_EQ(Arriving(), "19 20 / 19 20 / 19 20 ");
    Write(L1_WRITES);
    EXPECT_EQ(Arriving(), "17 18 19 20 / 17 18 19 20 / 17 18 19 20 ");
    m_host.WriteWord(0x303, 0xef010106);
    EXPECT_EQ(Arriving(), "17 18 / 17 18 / 17 18 ");
    m_host.WriteWord(0x310, 0);
    EXPECT_EQ(Arriving(), "/ / ");
}

TEST_F(FeedBoard, AFeedNeedsTheSwitchWordToo) {
    Write(L5_WRITES);
    Write(L1_WRITES);
    m_host.WriteWord(0x11, 2);
    EXPECT_EQ(Arriving(), "17 18 / 17 18 / 17 18 ");
    m_host.WriteWord(0x310, 0);
    EXPECT_EQ(Arriving(), "/ / ");
    m_host.WriteWord(0x11, 1);
    EXPECT_EQ(Arriving(), "19 20 / 19 20 / 19 20 ");
    m_host.WriteWord(0x11, 0);
    EXPECT_EQ(Arriving(), "/ / ");
}

TEST_F(UnboundFeedBoard, EverythingArrivesWithNothingOrAnythingProgrammed) {
    EXPECT_EQ(Arriving(), "17 18 19 20 / 17 18 19 20 / 17 18 19 20 ");
    m_host.WriteWord(0x313, 1);
    m_host.WriteWord(0x300, 2);
    EXPECT_EQ(Arriving(), "17 18 19 20 / 17 18 19 20 / 17 18 19 20 ");
}

TEST_F(FeedBoard, TheInstrumentBroadcastIsOnNeitherFeed) {
    m_host.WriteWord(0x12, 1);
    m_host.WriteWord(0x303, 1);
    Pass(83000, 5 * SECOND);
    EXPECT_EQ(m_board.Learnt(0), 3U);
    EXPECT_EQ(m_board.Learnt(1), 1U);
    const auto messages = Drain(m_reader);
    ASSERT_EQ(messages.size(), 1U);
    EXPECT_EQ(TypeOf(messages[0]), 2U);
}

TEST_F(FeedBoard, TheSequenceNumbersHaveNoGapOverAFeedThatDidNotArrive) {
    Write(L5_WRITES);
    Pass(93000, 50 * MS);
    Write(L1_WRITES);
    Pass(93000, 50 * MS);
    uint64_t expected = 1;
    for (const auto& message : Drain(m_reader)) {
        EXPECT_EQ(QuoteOf(message).ulSeq, expected++);
    }
    EXPECT_GT(expected, 100U);
}

TEST_F(FeedBoard, TheStatusLineEndsWithTheFeeds) {
    Write(L5_WRITES);
    Write(L1_WRITES);
    m_host.WriteWord(0x303, 0xef010106);
    m_host.WriteWord(0x11, 0);
    Pass(83000, MS);
    EXPECT_EQ(m_loop->StatusLine(),
              "status bus=0 time=08:30:00 phase=auction learnt=0+0 subscribed=3+1 switch=0x0 map=0 "
              "parsed=0 channel0=open,sent=0,dropped=0 "
              "L5=wrong:DSTIP 239.1.1.6, expected 239.1.1.5 L1=ok");
}

}  // namespace
