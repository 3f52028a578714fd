#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

#include "playingBoard.h"

namespace {

using boardtest::QuoteOf;
using boardtest::TypeOf;

using boardtest::MS;
using boardtest::SECOND;
using ZceBoard::BoardTime;

class Board : public boardtest::PlayingBoard {};

TEST_F(Board, BothTimeRegistersShowItsTime) {
    Pass(93001, MS);
    EXPECT_EQ(m_host.ReadWord(0x104), 93001U);
    EXPECT_EQ(m_host.ReadWord(0x105), 93001U);
    m_host.WriteWord(0x10, 1);
    m_host.WriteWord(0x10, 0);
    EXPECT_EQ(m_host.ReadWord(0x104), 93001U) << "a reset does not stop the clock";
}

TEST_F(Board, LearnsTheBroadcastInAuctionsWhetherOrNotItForwardsItAndKeepsTheMasks) {
    Subscribe(0, 1, 0x8001);
    Pass(82959, 10 * SECOND);
    EXPECT_EQ(m_board.Learnt(0), 0U);
    Pass(83000, 5 * SECOND);
    EXPECT_EQ(m_board.Learnt(0), 3U);
    EXPECT_EQ(m_board.Learnt(1), 1U);
    EXPECT_EQ(m_host.LoadName(0, 0), "SR209");
    EXPECT_EQ(m_host.LoadName(0, 1), "CF301");
    EXPECT_EQ(m_host.LoadName(0, 2), "SR209C5000");
    EXPECT_EQ(m_host.LoadName(1, 0), "SPD-SR209&SR301");
    EXPECT_EQ(m_host.Mask(0, 1), 0x8001U);
    EXPECT_EQ(m_board.Subscribed(0), 1U);
}

TEST_F(Board, BroadcastHoursAtTheirEdges) {
    struct Edge {
        uint32_t hhmmss;
        bool learns;
    };
    for (const Edge& edge :
         {Edge{82959, false}, Edge{83000, true}, Edge{85510, true}, Edge{85959, true},
          Edge{90000, true}, Edge{101459, true}, Edge{101500, false}, Edge{102959, false},
          Edge{103000, true}, Edge{113000, false}, Edge{132959, false}, Edge{133000, true},
          Edge{150000, false}, Edge{202959, false}, Edge{203000, true}, Edge{205959, true},
          Edge{210000, true}, Edge{232959, true}, Edge{233000, false}}) {
        m_host.WriteWord(0x10, 1);
        m_host.WriteWord(0x10, 0);
        Pass(edge.hhmmss, 61 * SECOND);
        EXPECT_EQ(m_board.Learnt(0) + m_board.Learnt(1), edge.learns ? 4U : 0U) << edge.hhmmss;
    }
}

TEST_F(Board, ForwardsTheBroadcastToChannel0OnlyWhile0x12Is1) {
    Reader master = Open(0);
    Reader other = Open(3);
    Pass(83000, 10 * SECOND);
    EXPECT_TRUE(Drain(master).empty());
    m_host.WriteWord(0x12, 1);
    Pass(83010, 9 * SECOND);
    const auto packets = Drain(master);
    ASSERT_EQ(packets.size(), 2U);
    EXPECT_EQ(packets[0],
              ZceBoard::CBroadcast(m_list.All(), ZceBoard::LiveOptions{}.pace).Packets()[0].bytes);
    EXPECT_TRUE(Drain(other).empty());
    m_host.WriteWord(0x12, 0);
    Pass(83020, 10 * SECOND);
    EXPECT_TRUE(Drain(master).empty());
    EXPECT_EQ(m_board.Channels()[0].Total().sent[0], 2U);
}

TEST_F(Board, NeitherLearnsNorDecodesWhileHeldInReset) {
    m_host.WriteWord(0x10, 1);
    m_host.WriteWord(0x11, 3);
    Pass(83000, 10 * SECOND);
    EXPECT_EQ(m_board.Learnt(0), 0U);
    EXPECT_EQ(m_board.Parsed(), 0U);
    m_host.WriteWord(0x10, 0);
    Pass(83010, 5 * SECOND);
    EXPECT_EQ(m_board.Learnt(0), 3U);
    EXPECT_GT(m_board.Parsed(), 0U);
}

TEST_F(Board, APacketWaitsWhileAHostHasTheCoreAndTheBoardGoesOn) {
    boardtest::HoldingChild host([this] {
        (new ZceBoard::CCoreLock(*m_memory))->Lock();  // it ends with the process
        return true;
    });
    ASSERT_TRUE(host.Holds());
    m_host.WriteWord(0x11, 3);
    Pass(83000, 5 * SECOND);
    EXPECT_EQ(m_board.Learnt(0), 0U);
    EXPECT_GT(m_board.Parsed(), 0U);
    host.Kill();
    Pass(83005, MS);
    EXPECT_EQ(m_board.Learnt(0), 3U);
}

TEST_F(Board, SendsATickToEachChannelInTheMaskAndToNoOther) {
    Reader zero = Open(0);
    Reader three = Open(3);
    Reader fifteen = Open(15);
    Subscribe(0, 0, 0x0008);
    Subscribe(0, 1, 0x8008);
    Subscribe(1, 0, 0x8000);
    m_host.WriteWord(0x11, 3);
    Pass(93000, SECOND / 10);
    EXPECT_TRUE(Drain(zero).empty());
    const auto toThree = Drain(three);
    const auto toFifteen = Drain(fifteen);
    ASSERT_FALSE(toThree.empty());
    ASSERT_FALSE(toFifteen.empty());
    for (const auto& message : toThree) {
        EXPECT_TRUE(TypeOf(message) == 17 || TypeOf(message) == 19);
        EXPECT_LE(QuoteOf(message).usIndex, 1);
    }
    size_t shared = 0;
    for (const auto& message : toFifteen) {
        const ZceBoardQuote_t quote = QuoteOf(message);
        EXPECT_TRUE(quote.ucTable == 1 ? quote.usIndex == 0 : quote.usIndex == 1);
        shared += quote.ucTable == 0 ? 1 : 0;
    }
    size_t ofCotton = 0;
    for (const auto& message : toThree) {
        ofCotton += QuoteOf(message).usIndex == 1 ? 1 : 0;
    }
    EXPECT_EQ(shared, ofCotton) << "both got every tick of CF301";
    EXPECT_EQ(m_board.Channels()[3].Total().MarketData(), toThree.size());
    EXPECT_EQ(m_board.Channels()[15].Total().MarketData(), toFifteen.size());
}

TEST_F(Board, AMessageHasItsHeadAndItsBodyAtByte12) {
    Reader reader = Open(5);
    Subscribe(0, 0, 0x20);
    m_host.WriteWord(0x11, 1);
    Pass(93000, SECOND / 10);
    const auto messages = Drain(reader);
    ASSERT_FALSE(messages.empty());
    const std::vector<unsigned char> head(messages[0].begin(), messages[0].begin() + 12);
    EXPECT_EQ(head, (std::vector<unsigned char>{19, 0, 0, 0, 5, 0, 232, 0, 0, 0, 0, 0}));
    EXPECT_EQ(messages[0].size(), 12U + 232);
    EXPECT_STREQ(QuoteOf(messages[0]).szName, "SR209");
    EXPECT_EQ(QuoteOf(messages[0]).uiTime, 93000U);
}

TEST_F(Board, EachFeedIsUnderItsOwnBitOfTheSwitchWord) {
    Reader reader = Open(0);
    for (uint32_t index = 0; index < 3; ++index) {
        Subscribe(0, index, 1);
    }
    Subscribe(1, 0, 1);
    Pass(93000, SECOND / 10);
    EXPECT_TRUE(Drain(reader).empty()) << "nothing while 0x11 is 0";
    m_host.WriteWord(0x11, 2);
    Pass(93000, SECOND / 10);
    auto messages = Drain(reader);
    ASSERT_FALSE(messages.empty());
    for (const auto& message : messages) {
        EXPECT_TRUE(TypeOf(message) == 17 || TypeOf(message) == 18);
    }
    m_host.WriteWord(0x11, 1);
    Pass(93000, SECOND / 10);
    messages = Drain(reader);
    ASSERT_FALSE(messages.empty());
    for (const auto& message : messages) {
        EXPECT_TRUE(TypeOf(message) == 19 || TypeOf(message) == 20);
    }
}

TEST_F(Board, TicksAtAnyHourButTheParseCountersKeepTheExchangesHours) {
    m_host.WriteWord(0x11, 3);
    const auto moves = [this](uint32_t hhmmss) {
        uint32_t before[8];
        for (uint32_t k = 0; k < 4; ++k) {
            before[k] = m_host.ReadWord(0x200b + k);
            before[k + 4] = m_host.ReadWord(0x210b + k);
        }
        const uint64_t parsed = m_board.Parsed();
        Pass(hhmmss, SECOND / 10);
        EXPECT_GT(m_board.Parsed(), parsed) << hhmmss;
        size_t moved = 0;
        for (uint32_t k = 0; k < 4; ++k) {
            moved += m_host.ReadWord(0x200b + k) != before[k] ? 1 : 0;
            moved += m_host.ReadWord(0x210b + k) != before[k + 4] ? 1 : 0;
        }
        return moved;
    };
    for (const uint32_t open :
         {83000U, 90000U, 101459U, 103000U, 133000U, 145959U, 203000U, 232959U}) {
        EXPECT_EQ(moves(open), 8U) << open;
    }
    for (const uint32_t shut : {0U, 82959U, 101500U, 113000U, 150000U, 202959U, 233000U}) {
        EXPECT_EQ(moves(shut), 0U) << shut;
    }
}

TEST_F(Board, CountersStandStillWhile0x11Is0) {
    Pass(93000, SECOND);
    EXPECT_EQ(m_host.ReadWord(0x200b), 0U);
    EXPECT_EQ(m_board.Parsed(), 0U);
}

TEST_F(Board, SequenceNumbersOfAChannelHaveNoGapsOverAllTypes) {
    Reader reader = Open(2);
    Subscribe(0, 0, 4);
    Subscribe(1, 0, 4);
    m_host.WriteWord(0x11, 3);
    Pass(93000, SECOND / 5);
    uint64_t expected = 1;
    for (const auto& message : Drain(reader)) {
        EXPECT_EQ(QuoteOf(message).ulSeq, expected++);
    }
    EXPECT_GT(expected, 100U);
}

TEST_F(Board, AStreamThatNobodyHoldsGetsNothingAndLosesNothing) {
    Subscribe(0, 0, 2);
    m_host.WriteWord(0x11, 3);
    Pass(93000, SECOND / 10);
    EXPECT_EQ(m_memory->Shm().a2c[1].control.head.load(), 0U);
    EXPECT_FALSE(m_board.Channels()[1].WasEverOpen());
    Reader reader = Open(1);
    Pass(93000, SECOND / 10);
    const auto messages = Drain(reader);
    ASSERT_FALSE(messages.empty());
    EXPECT_EQ(QuoteOf(messages[0]).ulSeq, 1U);
    EXPECT_EQ(m_board.Channels()[1].Total().dropped, 0U);
}

TEST_F(Board, AFullRingDropsCountsAndShowsTheGap) {
    Reader reader = Open(1);
    Subscribe(0, 0, 2);
    m_host.WriteWord(0x11, 1);
    Pass(93000, 20 * SECOND);
    const auto dropped = m_board.Channels()[1].Total().dropped;
    ASSERT_GT(dropped, 0U);
    EXPECT_EQ(reader.ring.control->backPressure.load(), dropped);
    const auto waiting = Drain(reader);
    EXPECT_EQ(reader.ring.control->packetCount.load(), waiting.size());
    EXPECT_EQ(QuoteOf(waiting.back()).ulSeq, waiting.size()) << "no gap up to the full ring";
    m_host.WriteWord(0x11, 0);
    Pass(93000, MS);
    const auto droppedSince = m_board.Channels()[1].Total().dropped;
    m_host.WriteWord(0x11, 1);
    Pass(93000, 50 * MS);
    const auto later = Drain(reader);
    ASSERT_FALSE(later.empty());
    EXPECT_EQ(QuoteOf(later[0]).ulSeq, waiting.size() + droppedSince + 1);
}

TEST_F(Board, ADeadHoldersStreamIsFreedAndTheNextHolderStartsAfresh) {
    boardtest::HoldingChild receiver([this] {
        Open(4);
        return true;
    });
    ASSERT_TRUE(receiver.Holds());
    Subscribe(0, 0, 0x10);
    m_host.WriteWord(0x11, 3);
    Pass(93000, 50 * MS);
    const auto sentToDead = m_board.Channels()[4].Total().MarketData();
    EXPECT_GT(sentToDead, 0U);
    EXPECT_TRUE(m_board.Channels()[4].IsOpen());
    receiver.Kill();
    Pass(93000, 21 * MS);
    EXPECT_FALSE(m_board.Channels()[4].IsOpen());
    const auto sentInAll = m_board.Channels()[4].Total().MarketData();
    Pass(93000, 50 * MS);
    EXPECT_EQ(m_board.Channels()[4].Total().MarketData(), sentInAll);
    Reader next = Open(4);
    Pass(93000, 50 * MS);
    const auto messages = Drain(next);
    ASSERT_FALSE(messages.empty());
    EXPECT_EQ(QuoteOf(messages[0]).ulSeq, 1U);
    EXPECT_EQ(m_board.Channels()[4].Opening().counts.MarketData(), messages.size());
    EXPECT_EQ(m_board.Channels()[4].Openings(), 2U);
}

TEST_F(Board, ALivingHolderKeepsItsStreamThroughAReset) {
    Reader reader = Open(0);
    m_host.WriteWord(0x10, 1);
    m_host.WriteWord(0x10, 0);
    Subscribe(0, 0, 1);
    m_host.WriteWord(0x11, 3);
    Pass(93000, 100 * MS);
    EXPECT_FALSE(Drain(reader).empty());
}

TEST_F(Board, TheLastLinesTellEachChannelThatWasEverOpen) {
    Open(0);
    m_host.WriteWord(0x12, 1);
    Pass(83000, 5 * SECOND);
    const Reader nine = Open(9);
    Pass(83005, MS);
    CloseRing(nine.ring, nine.generation);
    Pass(83005, MS);
    EXPECT_EQ(m_loop->LastLines(),
              "opening channel=0 number=1 type2=1 type17=0 type18=0 type19=0 type20=0 total=0 "
              "dropped=0 bus=0\n"
              "zce-board channel=0 type2=1 type17=0 type18=0 type19=0 type20=0 total=0 dropped=0 "
              "openings=1 bus=0\n"
              "zce-board channel=9 type2=0 type17=0 type18=0 type19=0 type20=0 total=0 dropped=0 "
              "openings=1 bus=0\n"
              "zce-board stopped bus=0 parsed=0 type2=1 total=0 dropped=0 requests=0 resets=0\n");
}

TEST_F(Board, ALineTellsTheCountsOfEachOpeningWhenItEnds) {
    Reader first = Open(9);
    Subscribe(0, 0, 0x200);
    m_host.WriteWord(0x11, 2);
    Pass(93000, 50 * MS);
    const std::string got = std::to_string(Drain(first).size());
    CloseRing(first.ring, first.generation);
    // The next one opens before the board has looked: the end of the first is not lost.
    const Reader second = Open(9);
    testing::internal::CaptureStdout();
    Pass(93000, MS);
    CloseRing(second.ring, second.generation);
    Pass(93000, MS);
    Pass(93000, MS);
    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_NE(got, "0");
    EXPECT_EQ(printed.substr(0, printed.find("opening channel=9 number=2")),
              "opening channel=9 number=1 type2=0 type17=" + got +
                  " type18=0 type19=0 type20=0 total=" + got + " dropped=0 bus=0\n");
    EXPECT_EQ(std::count(printed.begin(), printed.end(), '\n'), 2) << printed;
}

TEST_F(Board, TheStatusLineTellsTimePhaseAndWhatIsLearnt) {
    Open(3);
    Subscribe(0, 0, 8);
    Pass(83005, 5 * SECOND);
    m_host.WriteWord(0x11, 2);
    EXPECT_EQ(m_loop->StatusLine(),
              "status bus=0 time=08:30:05 phase=auction learnt=3+1 subscribed=1+0 switch=0x2 map=0 "
              "parsed=0 channel3=open,sent=0,dropped=0");
}

TEST(BoardClock, FollowsLocalTimeUnderTheZoneOfTheProcess) {
    setenv("TZ", "VIRT-01:02:03", 1);
    tzset();
    // 2026-11-20 07:54:00.000000007 UTC, one hour, two minutes and three seconds earlier.
    const BoardTime time = ZceBoard::BoardTimeAt(1795161240LL * SECOND + 7);
    EXPECT_EQ(time.date, 20261120U);
    EXPECT_EQ(time.hhmmss, 85603U);
    EXPECT_EQ(time.dayNs, (8 * 3600ULL + 56 * 60ULL + 3) * 1000000000 + 7);
    setenv("TZ", "VIRT+08:00:00", 1);
    tzset();
    EXPECT_EQ(ZceBoard::BoardTimeAt(1795161240LL * SECOND).date, 20261119U);
    EXPECT_EQ(ZceBoard::BoardTimeAt(1795161240LL * SECOND).hhmmss, 235400U);
}

}  // namespace
