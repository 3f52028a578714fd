// A board that plays another machine's messages, without a server: the test puts into its ring what
// would have come.

#include "traffic/RelayTraffic.h"

#include <cerrno>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "ZceBoardMsg.h"
#include "captureBytes.h"
#include "channelFixture.h"
#include "nanoseconds.h"
#include "process/BoardLoop.h"

namespace boardtest {

namespace {

using velatest::Little;
using ZceRelay::Kind;

constexpr int64_t AUCTION = 1795164900;  // 2026-11-20 08:55:00 UTC
constexpr int64_t TRADING = 1795165260;  // 09:01:00

// Head and body of type 17 with this sequence number.
std::string Quote(uint64_t number, char fill = 'a', size_t size = 136) {
    std::string body = Little(number, 8);
    body.resize(size, fill);
    return Little(17, 4) + Little(3, 2) + Little(size, 2) + Little(0, 4) + body;
}

class Relaying : public ChannelFixture {
  protected:
    explicit Relaying(bool bStream = false)
        : m_traffic(m_messages, "nats://a:1", {4 * SECOND, 60 * SECOND}, bStream) {
        setenv("TZ", "UTC", 1);
        tzset();
        m_memory = MakeBoard();
        m_board = std::make_unique<ZceBoard::CBoard>(*m_memory);
        m_loop = std::make_unique<ZceBoard::CBoardLoop>(*m_board, m_traffic, 0);
    }
    void Come(uint64_t session, uint64_t number, const std::string& message,
              bool bBoardBody = true) {
        Put(Kind::MarketData, {session, number, bBoardBody}, message);
    }
    void Put(Kind kind, const ZceRelay::Sequence& sequence, const std::string& bytes = {}) {
        ZceRelay::ReceivedHead head;
        head.kind = kind;
        head.channel = kind == Kind::Instruments ? 0 : 3;
        head.sequence = sequence;
        head.size = static_cast<uint32_t>(bytes.size());
        ASSERT_TRUE(m_messages.Put(head, reinterpret_cast<const unsigned char*>(bytes.data())));
    }
    void Pass(int64_t ns = MS, int64_t wallSeconds = TRADING) {
        m_realNs += ns;
        m_loop->Pass({wallSeconds * SECOND + m_realNs, m_realNs});
    }
    // The sequence numbers in the bodies that have arrived.
    std::vector<uint64_t> Numbers() {
        std::vector<uint64_t> numbers;
        for (const std::string& message : Drain(3)) {
            uint64_t number = 0;
            memcpy(&number, message.data() + 12, sizeof(number));
            numbers.push_back(number);
        }
        return numbers;
    }
    std::string Name(uint32_t table, uint32_t index) {
        ZceBoard::CRegisterFile host(m_memory->Shm());
        const uint32_t window = table == 0 ? 0x11000 : 0x12000;
        std::string name;
        for (uint32_t word = 4; word >= 1; --word) {
            host.WriteWord(window + 2, index * 64 + word);
            name += velatest::Big(host.ReadWord(window + 3), 4);
        }
        return name.substr(0, name.find('\0'));
    }

    ZceRelay::CReceivedMessages m_messages{1 << 20};
    ZceBoard::CRelayTraffic m_traffic;
    std::unique_ptr<ZceBoard::CBoard> m_board;
    std::unique_ptr<ZceBoard::CBoardLoop> m_loop;
    int64_t m_realNs = 5 * SECOND;
};

class RelayingAStream : public Relaying {
  protected:
    RelayingAStream() : Relaying(true) {}
};

TEST_F(Relaying, WhatComesGoesToItsChannelByteForByteEachOnce) {
    OpenChannel(3);
    Pass();
    Come(9, 1, Quote(1));
    Come(9, 2, Quote(2, 'b'));
    Come(9, 2, Quote(2, 'b'));
    Come(9, 5, Quote(5, 'c'));
    Put(Kind::Mark, {9, 7, true});
    Pass();
    EXPECT_EQ(Drain(3), (std::vector<std::string>{Quote(1), Quote(2, 'b'), Quote(5, 'c')}));
    EXPECT_NE(
        m_loop->StatusLine().find(" relay=not-connected received=3 lost=4 duplicates=1 unheard=0"),
        std::string::npos)
        << m_loop->StatusLine();
    EXPECT_EQ(m_traffic.LastWords(),
              "relay channel=3 received=3 lost=4 duplicates=1 first=1 last=7 sessions=1 "
              "other-publisher=0\n"
              "relay unheard=0 connects=0 instruments=0\n");
    m_messages.TellConnected(true, 2);
    EXPECT_EQ(m_traffic.Status(), " relay=connected received=3 lost=4 duplicates=1 unheard=0");
    EXPECT_EQ(m_loop->ReadyLine(), "zce-board bus=0 ready relay=nats://a:1\n");
    EXPECT_EQ(m_traffic.Time().hhmmss, 90105U);
    EXPECT_EQ(m_traffic.AdvanceTo(100000), ENOTSUP);
}

TEST_F(Relaying, NumbersBeginWithOneAtEachOpeningAndShowWhatIsMissing) {
    Come(9, 41, Quote(41));
    Pass();  // nobody is there
    OpenChannel(3);
    Pass();
    Come(9, 42, Quote(42));
    Come(9, 43, Quote(43));
    Come(9, 46, Quote(46));
    Pass();
    EXPECT_EQ(Numbers(), (std::vector<uint64_t>{1, 2, 5}));
    // The publisher begins anew, having lost its first message: the numbers go on.
    Come(10, 1, Quote(2));
    Come(10, 2, Quote(3));
    Pass();
    EXPECT_EQ(Numbers(), (std::vector<uint64_t>{7, 8}));
    CloseChannel(3);
    Pass();
    OpenChannel(3);
    Pass();
    Come(10, 3, Quote(4));
    Come(10, 4, Quote(5));
    Pass();
    EXPECT_EQ(Numbers(), (std::vector<uint64_t>{1, 2}));
    EXPECT_NE(m_loop->StatusLine().find(" unheard=1"), std::string::npos);
}

TEST_F(Relaying, ABodyOfAnotherBoardIsLeftAsItIsAndAShortOneToo) {
    OpenChannel(3);
    Pass();
    Come(9, 41, Quote(41, 'r'), false);
    Come(9, 42, Quote(42, 's', 111));
    Come(9, 43, Quote(43, 't', 8));
    Pass();
    EXPECT_EQ(Drain(3),
              (std::vector<std::string>{Quote(41, 'r'), Quote(42, 's', 111), Quote(43, 't', 8)}));
}

TEST_F(Relaying, AReaderThatIsTooSlowLosesMessagesAsWithAnyBoard) {
    OpenChannel(3);
    Pass();
    m_board->Channels()[3].LimitRoom(320);  // two messages
    for (uint64_t k = 1; k <= 4; ++k) {
        Come(9, k, Quote(k));
    }
    Pass();
    EXPECT_EQ(Numbers(), (std::vector<uint64_t>{1, 2}));
    Come(9, 5, Quote(5));
    Pass();
    EXPECT_EQ(Numbers(), (std::vector<uint64_t>{5}));
    EXPECT_EQ(m_board->Channels()[3].Total().dropped, 2U);
    EXPECT_FALSE(m_traffic.IsBehind());
}

TEST_F(RelayingAStream, WhatWaitsInAStreamWaitsForAReaderButNotForever) {
    OpenChannel(3);
    Pass();
    m_board->Channels()[3].LimitRoom(320);
    for (uint64_t k = 1; k <= 5; ++k) {
        Come(9, k, Quote(k));
    }
    Pass();
    EXPECT_TRUE(m_traffic.IsBehind());
    Pass(100 * MS);
    EXPECT_EQ(Numbers(), (std::vector<uint64_t>{1, 2}));
    Pass();
    EXPECT_EQ(m_board->Channels()[3].Total().dropped, 0U);
    Pass(199 * MS);
    EXPECT_EQ(m_board->Channels()[3].Total().dropped, 0U);  // 5 waits
    Pass(MS);
    EXPECT_EQ(m_board->Channels()[3].Total().dropped, 1U);
    EXPECT_FALSE(m_traffic.IsBehind());
    Come(9, 6, Quote(6));
    Pass();
    EXPECT_EQ(m_board->Channels()[3].Total().dropped, 2U);  // it has shown that it is too slow
    EXPECT_EQ(Numbers(), (std::vector<uint64_t>{3, 4}));
    for (uint64_t k = 7; k <= 9; ++k) {
        Come(9, k, Quote(k));
    }
    Pass();
    EXPECT_TRUE(m_traffic.IsBehind());  // and is given its time again
    EXPECT_EQ(Numbers(), (std::vector<uint64_t>{7, 8}));
}

TEST_F(Relaying, TheListIsInTheTablesAndInTheBroadcast) {
    OpenChannel(0);
    Pass(MS, AUCTION);
    Put(Kind::Instruments, {}, "5,SR209\n2,SPD-SR209&SR301\nnonsense\n");
    Pass(MS, AUCTION);
    EXPECT_EQ(Name(0, 5), "SR209");
    EXPECT_EQ(Name(1, 2), "SPD-SR209&SR301");
    EXPECT_EQ(m_traffic.Instruments(0), 1U);
    EXPECT_EQ(m_traffic.Instruments(1), 1U);
    EXPECT_TRUE(Drain(0).empty());  // no host has asked for the broadcast
    ZceBoard::CRegisterFile host(m_memory->Shm());
    host.WriteWord(0x12, 1);
    for (int k = 0; k < 50; ++k) {
        Pass(100 * MS, AUCTION);
    }
    const std::vector<std::string> packets = Drain(0);
    ASSERT_FALSE(packets.empty());
    EXPECT_EQ(packets[0].substr(0, 4), Little(2, 4));
    EXPECT_NE(packets[0].find("SR209"), std::string::npos);
    EXPECT_NE(packets[0].find("SPD-SR209&SR301"), std::string::npos);
    // A reset of the board empties the tables: the names come back.
    host.WriteWord(0x10, 1);
    host.WriteWord(0x10, 0);
    EXPECT_EQ(Name(0, 5), "");
    Pass(300 * MS);
    EXPECT_EQ(Name(0, 5), "SR209");
    // A list that has grown.
    Put(Kind::Instruments, {}, "5,SR209\n2,SPD-SR209&SR301\n6,SR301\n");
    Pass();
    EXPECT_EQ(Name(0, 6), "SR301");
    Drain(0);
    host.WriteWord(0x12, 1);
    for (int k = 0; k < 50; ++k) {
        Pass(100 * MS, AUCTION);
    }
    const std::vector<std::string> more = Drain(0);
    ASSERT_FALSE(more.empty());
    EXPECT_NE(more[0].find("SR301"), more[0].rfind("SR301"));  // in the combination, and alone
}

TEST_F(Relaying, APauseHoldsWhatComes) {
    OpenChannel(3);
    Pass();
    m_memory->Shm();
    m_traffic.Hold({TRADING * SECOND, m_realNs});
    EXPECT_EQ(m_traffic.Time().hhmmss, 90105U);
    m_traffic.Step(SECOND);
    EXPECT_EQ(m_traffic.Time().hhmmss, 90106U);
}

}  // namespace

}  // namespace boardtest
