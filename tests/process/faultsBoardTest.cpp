// Faults that are the board's own doing.

#include <gmock/gmock.h>

#include <algorithm>
#include <csignal>
#include <set>
#include <string>
#include <vector>

#include "device/Garbage.h"
#include "memory/Control.h"
#include "memory/Faults.h"
#include "playingBoard.h"

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using ZceBoard::Fault;

namespace {

using boardtest::MS;
using boardtest::QuoteOf;

constexpr uint32_t any = 0xFFFFFFFF;
constexpr uint32_t inSession = 93000;

class BoardFaults : public boardtest::PlayingBoard {
  protected:
    // A board that decodes, all instruments subscribed for channels 2 and 3.
    void StartDecoding() {
        for (uint32_t index = 0; index < 3; ++index) {
            Subscribe(0, index, 0xC);
        }
        Subscribe(1, 0, 0xC);
        m_host.WriteWord(0x11, 3);
    }
    uint32_t Counters() {
        uint32_t sum = 0;
        for (const uint32_t first : {0x200bU, 0x210bU}) {
            for (uint32_t k = 0; k < 4; ++k) {
                sum += m_host.ReadWord(first + k);
            }
        }
        return sum;
    }
    const ZceBoard::ChannelCounts& Sent(uint32_t channel) {
        return m_board.Channels()[channel].Total();
    }

    ZceBoard::CFaults m_faults{m_memory->Shm()};
};

TEST_F(BoardFaults, TheLinkReadsTheGivenFibresAsLongAsItIsDown) {
    EXPECT_EQ(m_host.ReadWord(0x103), 0xFU);
    m_faults.Set({Fault::LinkDown});
    Pass(inSession, MS);
    EXPECT_EQ(m_host.ReadWord(0x103), 0U);
    m_faults.Set({Fault::LinkDown, 1, any, 0xE});
    Pass(inSession, MS);
    EXPECT_EQ(m_host.ReadWord(0x103), 0xEU);
    m_faults.Clear(Fault::LinkDown);
    Pass(inSession, MS);
    EXPECT_EQ(m_host.ReadWord(0x103), 0xFU);
}

TEST_F(BoardFaults, CountersThatAreStuckStandStillWhileMessagesGoOn) {
    StartDecoding();
    Open(3);
    Pass(inSession, 100 * MS);
    const uint32_t before = Counters();
    EXPECT_GT(before, 0U);
    const uint64_t sent = Sent(3).MarketData();
    m_faults.Set({Fault::CountersStuck});
    Pass(inSession, 100 * MS);
    EXPECT_EQ(Counters(), before);
    EXPECT_GT(Sent(3).MarketData(), sent);
    EXPECT_GT(m_board.Parsed(), before / 2);
    m_faults.ClearAll();
    const uint64_t parsed = m_board.Parsed();
    Pass(inSession, 100 * MS);
    EXPECT_EQ(Counters() - before, 2 * (m_board.Parsed() - parsed)) << "they go on from there";
}

TEST_F(BoardFaults, AClockThatIsStuckKeepsItsTimeTheOtherGoesOn) {
    Pass(93000, MS);
    m_faults.Set({Fault::ClockStuck, 1, 0x104});
    Pass(93001, MS);
    EXPECT_EQ(m_host.ReadWord(0x104), 93000U);
    EXPECT_EQ(m_host.ReadWord(0x105), 93001U);
    m_faults.Set({Fault::ClockStuck, 1, 0x105});
    Pass(93002, MS);
    EXPECT_EQ(m_host.ReadWord(0x104), 93002U);
    EXPECT_EQ(m_host.ReadWord(0x105), 93001U);
    m_faults.Set({Fault::ClockStuck});
    Pass(93003, MS);
    EXPECT_EQ(m_host.ReadWord(0x104), 93002U);
    EXPECT_EQ(m_host.ReadWord(0x105), 93001U);
    m_faults.ClearAll();
    Pass(93004, MS);
    EXPECT_EQ(m_host.ReadWord(0x104), 93004U);
    EXPECT_EQ(m_host.ReadWord(0x105), 93004U);
}

TEST_F(BoardFaults, ASlowReadersRingHoldsNoMoreThanItsRoomAndTheRestIsCountedAsDropped) {
    StartDecoding();
    Reader slow = Open(3);
    Reader other = Open(2);
    m_faults.Set({Fault::SlowReader, 1, 3, 8192});
    Pass(inSession, 50 * MS);
    const auto got = Drain(slow);
    size_t bytes = 0;
    for (const auto& message : got) {
        bytes += (4 + message.size() + 15) / 16 * 16;
    }
    EXPECT_LE(bytes, 8192U);
    EXPECT_GT(bytes, 8192U - 256) << "all of the room is used";
    EXPECT_EQ(QuoteOf(got.back()).ulSeq, got.size()) << "the first ones are there without a gap";
    EXPECT_EQ(Sent(3).dropped, Sent(2).MarketData() - got.size());
    EXPECT_EQ(slow.ring.control->backPressure.load(), Sent(3).dropped);
    EXPECT_EQ(Sent(2).dropped, 0U);

    const uint64_t dropped = Sent(3).dropped;
    m_faults.ClearAll();
    Pass(inSession, 50 * MS);
    const auto rest = Drain(slow);
    EXPECT_EQ(QuoteOf(rest.front()).ulSeq, got.size() + dropped + 1);
    EXPECT_EQ(Sent(3).dropped, dropped);
    EXPECT_EQ(rest.size() + got.size() + dropped, Drain(other).size());
}

TEST_F(BoardFaults, GarbageComesOnceAPassOnTheGivenChannelUntilItsLimit) {
    Reader reader = Open(3);
    Reader other = Open(2);
    m_faults.Set({Fault::Garbage, 2, 3, 0, 20});
    Pass(inSession, 10 * MS);
    EXPECT_EQ(Drain(reader).size(), 5U);
    Pass(inSession, 100 * MS);
    EXPECT_EQ(Drain(reader).size(), 15U);
    EXPECT_EQ(Drain(other).size(), 0U);
    EXPECT_EQ(Sent(3).sent[5], 20U);
    EXPECT_EQ(Sent(3).sent[0] + Sent(3).MarketData(), 0U) << "counted apart, whatever their type";
    EXPECT_EQ(m_memory->Shm().stats.channels[3].other.load(), 20U);
    EXPECT_FALSE(m_faults.Any());
    EXPECT_THAT(m_loop->LastLines(),
                HasSubstr("zce-board channel=3 type2=0 type17=0 type18=0 type19=0 type20=0 total=0 "
                          "dropped=0 other=20 openings=1 bus=0\n"));
    EXPECT_THAT(m_loop->LastLines(),
                HasSubstr("zce-board channel=2 type2=0 type17=0 type18=0 type19=0 type20=0 total=0 "
                          "dropped=0 openings=1 bus=0\n"));
}

TEST_F(BoardFaults, GarbageForAllChannelsIsTheSameOnEachOpenOne) {
    m_faults.Set({Fault::Garbage});
    Pass(inSession, 10 * MS);
    EXPECT_EQ(m_faults.Words(Fault::Garbage).occasions.load(), 0U) << "nobody would get it";
    Reader reader = Open(3);
    Reader other = Open(2);
    Pass(inSession, 10 * MS);
    const auto got = Drain(reader);
    EXPECT_EQ(got.size(), 10U);
    EXPECT_EQ(Drain(other), got);
}

TEST_F(BoardFaults, GarbageLeavesTheMarketDataAsTheyAre) {
    StartDecoding();
    Reader clean = Open(2);
    Reader dirty = Open(3);
    m_faults.Set({Fault::Garbage, 1, 3});
    Pass(inSession, 500 * MS);
    const auto without = Drain(clean);
    const auto with = Drain(dirty);
    ASSERT_EQ(with.size(), without.size() + Sent(3).sent[5]);
    EXPECT_EQ(Sent(3).sent[5], 500U);
    // Apart from the channel's number the market data are the same in the same order.
    size_t next = 0;
    for (const auto& message : with) {
        if (next < without.size() && message.size() == without[next].size() &&
            std::equal(message.begin() + 12, message.end(), without[next].begin() + 12)) {
            ++next;
        }
    }
    EXPECT_EQ(next, without.size());
}

TEST_F(BoardFaults, GarbageIsDroppedAndCountedWhenThereIsNoRoom) {
    Reader reader = Open(3);
    m_faults.Set({Fault::SlowReader, 1, 3, 4096});
    m_faults.Set({Fault::Garbage, 1, 3});
    Pass(inSession, 200 * MS);
    EXPECT_EQ(Sent(3).sent[5] + Sent(3).dropped, 200U);
    EXPECT_GT(Sent(3).dropped, 0U);
    EXPECT_EQ(Drain(reader).size(), Sent(3).sent[5]);
}

TEST_F(BoardFaults, NoGarbageComesWhileTheBoardIsPaused) {
    Reader reader = Open(3);
    const auto ask = [this](ZceBoard::Request request) {
        ZceBoard::ControlMailbox& mailbox = m_memory->Shm().control;
        PutRequest(mailbox, mailbox.asked + 1, request, 0);
        Pass(inSession, MS);
        EXPECT_EQ(mailbox.result.load(), 0);
    };
    ask(ZceBoard::Request::Pause);
    m_faults.Set({Fault::Garbage});
    m_faults.Set({Fault::LinkDown});
    Pass(inSession, 10 * MS);
    EXPECT_EQ(Drain(reader).size(), 0U);
    EXPECT_EQ(m_host.ReadWord(0x103), 0U) << "the other faults are there";
    ask(ZceBoard::Request::Resume);
    Pass(inSession, 10 * MS);
    EXPECT_EQ(Drain(reader).size(), 10U);
}

TEST_F(BoardFaults, ACrashEndsTheProcessAtItsNextPassWithoutAnyTidying) {
    // The child is not the board of its memory, so it plays only what a board does.
    EXPECT_EQ(boardtest::InChild([this] {
                  m_faults.Set({Fault::Crash});
                  m_board.PlayFaults();
                  return 0;
              }),
              -SIGKILL);
}

TEST_F(BoardFaults, TheStatusLineEndsWithThem) {
    Pass(inSession, MS);
    EXPECT_THAT(m_loop->StatusLine(), Not(HasSubstr("faults")));
    m_faults.Set({Fault::CountersStuck});
    m_faults.Set({Fault::ReadFails, 3, 0x11});
    EXPECT_THAT(m_loop->StatusLine(),
                EndsWith(" faults=counters-stuck, read-fails register=0x11 every=3 strikes=0"));
}

// ---- The garbage itself -------------------------------------------------------------------------

// Of a message that may be shorter than its type.
uint32_t TypeOfGarbage(const std::vector<unsigned char>& message) {
    uint32_t type = 0;
    memcpy(&type, message.data(), std::min(message.size(), sizeof(type)));
    return type;
}

TEST(Garbage, HasEveryLengthAndEveryTypeNearTheRealOnes) {
    ZceBoard::CGarbage garbage(7);
    std::set<size_t> lengths;
    std::set<uint32_t> types;
    std::set<uint32_t> shortData;  // of market data, too short for a head
    bool wild = false;
    for (int k = 0; k < 100'000; ++k) {
        const auto& message = garbage.Next();
        lengths.insert(message.size());
        if (message.size() < 4) {
            continue;
        }
        const uint32_t type = TypeOfGarbage(message);
        types.insert(type);
        wild = wild || type > 0xFFFF;
        if (message.size() < 12 && type >= 17 && type <= 20) {
            shortData.insert(type);
        }
    }
    EXPECT_EQ(*lengths.begin(), 1U);
    EXPECT_EQ(*lengths.rbegin(), 2048U);
    EXPECT_EQ(lengths.size(), 2048U);
    for (uint32_t type = 0; type <= 32; ++type) {
        EXPECT_EQ(types.count(type), 1U) << type;
    }
    EXPECT_TRUE(wild);
    EXPECT_EQ(shortData, (std::set<uint32_t>{17, 18, 19, 20}));
}

TEST(Garbage, TheSameSeedGivesTheSameMessages) {
    ZceBoard::CGarbage one(3);
    ZceBoard::CGarbage two(3);
    ZceBoard::CGarbage other(4);
    bool differs = false;
    for (int k = 0; k < 1000; ++k) {
        const auto message = one.Next();
        ASSERT_EQ(message, two.Next()) << k;
        differs = differs || message != other.Next();
    }
    EXPECT_TRUE(differs);
}

// A map packet's first record, as its reader would take it.
TEST(Garbage, HasMapPacketsWithEveryKindOfBrokenLength) {
    ZceBoard::CGarbage garbage(7);
    std::set<std::string> kinds;
    for (int k = 0; k < 20'000; ++k) {
        const auto& message = garbage.Next();
        if (message.size() < 16 || TypeOfGarbage(message) != 2) {
            continue;
        }
        const size_t area = size_t{message[12]} << 8 | message[13];
        const size_t record = size_t{message[14]} << 8 | message[15];
        const size_t there = message.size() - 14;
        kinds.insert(area == there  ? "area right"
                     : area > there ? "area beyond"
                                    : "area before the end");
        if (area == there) {
            kinds.insert(record == 0        ? "record of 0"
                         : record < 9       ? "record below its head"
                         : record > there   ? "record beyond"
                         : record - 9 >= 64 ? "name too long"
                                            : "record sound");
        }
    }
    EXPECT_EQ(kinds, (std::set<std::string>{"area right", "area beyond", "area before the end",
                                            "record of 0", "record below its head", "record beyond",
                                            "name too long", "record sound"}));
}

}  // namespace
