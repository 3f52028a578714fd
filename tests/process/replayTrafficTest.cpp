#include "traffic/ReplayTraffic.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "captureBytes.h"
#include "channelFixture.h"
#include "nanoseconds.h"
#include "process/BoardLoop.h"

namespace boardtest {

namespace {

using velatest::Big;
using velatest::CaptureBytes;
using velatest::Little;
using velatest::Prefix;

constexpr uint64_t NINE = 1795165200;  // 2026-11-20 09:00:00 UTC

// A message of a type, `size` bytes in all, filled with a letter.
std::string Message(uint32_t type, char fill, size_t size = 148) {
    std::string bytes = Little(type, 4);
    bytes.resize(size, fill);
    return bytes;
}

// A map packet of two instruments: SR209 at index 5, and a combination at index 2.
std::string MapPacket() {
    const std::string first = Big(14, 2) + Little(0, 4) + Little(0, 1) + Big(5, 2) + "SR209";
    const std::string second = Big(20, 2) + Little(2, 1) + Big(2, 2) + "SPD-SR209&SR301";
    return Little(2, 4) + Little(0, 8) + Big(first.size() + second.size(), 2) + first + second;
}

class Replaying : public ChannelFixture {
  protected:
    Replaying() {
        setenv("TZ", "UTC", 1);
        tzset();
        m_path = testing::TempDir() + "/zcereplay.XXXXXX";
        close(mkstemp(m_path.data()));
    }
    ~Replaying() override { unlink(m_path.c_str()); }

    // Three messages on two channels within 300 ms.
    static CaptureBytes Small() {
        CaptureBytes capture;
        capture.Add(NINE, 0, Prefix(1, 0, 1) + MapPacket());
        capture.Add(NINE, 100 * MS, Prefix(1, 3, 1) + Message(17, 'a'));
        capture.Add(NINE, 300 * MS, Prefix(1, 0, 2) + Message(20, 'b', 244));
        return capture;
    }
    bool ReadThrough(const CaptureBytes& capture) {
        capture.Write(m_path);
        m_summary = {};
        return ZceBoard::ReadThrough(m_path, m_summary, m_error);
    }
    void Begin(const CaptureBytes& capture, int64_t speedMilli, uint32_t bus = 0) {
        ASSERT_TRUE(ReadThrough(capture)) << m_error;
        m_memory = MakeBoard();
        m_board = std::make_unique<ZceBoard::CBoard>(*m_memory);
        m_traffic = std::make_unique<ZceBoard::CReplayTraffic>(m_path, m_summary, bus, speedMilli);
        ASSERT_TRUE(m_traffic->Open(m_error)) << m_error;
        m_loop = std::make_unique<ZceBoard::CBoardLoop>(*m_board, *m_traffic, 0);
    }
    void Pass(int64_t ns) {
        for (int64_t left = ns; left >= 0; left -= MS) {
            m_loop->Pass({0, m_realNs});
            m_realNs += left != 0 ? MS : 0;
        }
    }

    std::string m_path;
    std::string m_error;
    ZceBoard::CaptureSummary m_summary;
    std::unique_ptr<ZceBoard::CBoard> m_board;
    std::unique_ptr<ZceBoard::CReplayTraffic> m_traffic;
    std::unique_ptr<ZceBoard::CBoardLoop> m_loop;
    int64_t m_realNs = 5 * SECOND;
};

TEST_F(Replaying, BeginsWhenAllChannelsOfTheCaptureAreOpen) {
    Begin(Small(), 1000);
    OpenChannel(0);
    Pass(SECOND);
    EXPECT_TRUE(Drain(0).empty());
    EXPECT_NE(m_loop->StatusLine().find(" waiting-for-channels=3"), std::string::npos);
    EXPECT_EQ(m_traffic->Time().hhmmss, 90000U);
    OpenChannel(3);
    Pass(0);
    EXPECT_EQ(Drain(0), std::vector<std::string>{MapPacket()});
}

TEST_F(Replaying, KeepsTheCapturesPaceAndTheBytesAndTellsItsTime) {
    Begin(Small(), 1000);
    OpenChannel(0);
    OpenChannel(3);
    Pass(99 * MS);
    EXPECT_EQ(Drain(0).size(), 1U);
    EXPECT_TRUE(Drain(3).empty());
    Pass(MS);
    EXPECT_EQ(Drain(3), std::vector<std::string>{Message(17, 'a')});
    Pass(199 * MS);
    EXPECT_TRUE(Drain(0).empty());
    EXPECT_FALSE(m_loop->IsOver());
    Pass(MS);
    EXPECT_FALSE(m_loop->IsOver());  // the last one still lies in the ring
    EXPECT_EQ(Drain(0), (std::vector<std::string>{Message(20, 'b', 244)}));
    Pass(0);
    EXPECT_TRUE(m_loop->IsOver());
    EXPECT_EQ(m_traffic->Time().dayNs, uint64_t{9} * 3600 * SECOND + 300 * MS);
    EXPECT_EQ(m_loop->LastLines().substr(0, m_loop->LastLines().find('\n')),
              "replay bus=0 sent=3 of=3 unheard=0 recorder-lost=0");
}

TEST_F(Replaying, ASpeedIsAMultipleOfThePace) {
    Begin(Small(), 10000);
    OpenChannel(0);
    OpenChannel(3);
    Pass(9 * MS);
    EXPECT_TRUE(Drain(3).empty());
    Pass(MS);
    EXPECT_EQ(Drain(3).size(), 1U);
}

TEST_F(Replaying, AtTheGreatestSpeedNothingWaitsForTheClock) {
    Begin(Small(), 0);
    OpenChannel(0);
    OpenChannel(3);
    Pass(0);
    EXPECT_EQ(Drain(0).size(), 2U);
    EXPECT_EQ(Drain(3).size(), 1U);
    Pass(0);
    EXPECT_TRUE(m_loop->IsOver());
}

TEST_F(Replaying, WaitsForAFullRingAndDropsNothing) {
    CaptureBytes capture;
    for (size_t k = 0; k < 3000; ++k) {
        capture.Add(NINE, 0, Prefix(1, 4, k + 1) + Message(17, static_cast<char>(k), 1500));
    }
    Begin(capture, 1000);
    OpenChannel(4);
    Pass(0);
    EXPECT_NE(m_loop->StatusLine().find(" waiting-for-reader=4"), std::string::npos)
        << m_loop->StatusLine();
    std::vector<std::string> got;
    for (int k = 0; k < 10 && !m_loop->IsOver(); ++k) {
        for (const std::string& message : Drain(4)) {
            got.push_back(message);
        }
        Pass(0);
    }
    for (const std::string& message : Drain(4)) {
        got.push_back(message);
    }
    ASSERT_EQ(got.size(), 3000U);
    for (size_t k = 0; k < got.size(); ++k) {
        ASSERT_EQ(got[k], Message(17, static_cast<char>(k), 1500)) << k;
    }
    EXPECT_EQ(m_board->Channels()[4].Total().dropped, 0U);
}

TEST_F(Replaying, WhatNobodyIsThereToReceiveIsCounted) {
    Begin(Small(), 1000);
    OpenChannel(0);
    OpenChannel(3);
    Pass(50 * MS);
    CloseChannel(3);
    Pass(SECOND);
    EXPECT_EQ(Drain(0).size(), 2U);
    Pass(0);
    EXPECT_TRUE(m_loop->IsOver());
    EXPECT_EQ(m_traffic->LastWords(), "replay bus=0 sent=2 of=3 unheard=1 recorder-lost=0\n");
}

TEST_F(Replaying, TheNamesOfTheMapPacketsAreInTheTablesAndAgainAfterAReset) {
    Begin(Small(), 1000);
    ZceBoard::CRegisterFile host(m_memory->Shm());
    Pass(0);
    EXPECT_EQ(host.LoadName(0, 5), "SR209");
    EXPECT_EQ(host.LoadName(1, 2), "SPD-SR209&SR301");
    host.WriteWord(0x10, 1);
    host.WriteWord(0x10, 0);
    EXPECT_EQ(host.LoadName(0, 5), "");
    Pass(300 * MS);
    EXPECT_EQ(host.LoadName(0, 5), "SR209");
    EXPECT_EQ(host.LoadName(1, 2), "SPD-SR209&SR301");
}

TEST_F(Replaying, ThePlayedMessagesMoveTheParseCounters) {
    Begin(Small(), 0);
    OpenChannel(0);
    OpenChannel(3);
    Pass(0);
    const ZceBoard::CRegisterFile host(m_memory->Shm());
    EXPECT_EQ(host.ReadWord(0x200b), 1U);
    EXPECT_EQ(host.ReadWord(0x200e), 1U);
    EXPECT_EQ(host.ReadWord(0x210b), 1U);
    EXPECT_EQ(host.ReadWord(0x200c), 0U);
}

TEST_F(Replaying, PlaysTheMessagesOfItsBusAlone) {
    CaptureBytes capture = Small();
    capture.Add(NINE, 400 * MS, Prefix(1, 9, 1, 2) + Message(18, 'c'));
    Begin(capture, 0, 2);
    EXPECT_EQ(m_summary.buses.size(), 2U);
    OpenChannel(9);
    OpenChannel(0);
    Pass(0);
    EXPECT_EQ(Drain(9), std::vector<std::string>{Message(18, 'c')});
    EXPECT_TRUE(Drain(0).empty());
    Pass(0);
    EXPECT_TRUE(m_loop->IsOver());
}

TEST_F(Replaying, ACutCaptureIsPlayedUpToTheCutAndSaysSo) {
    const std::string whole = Small().Bytes();
    std::ofstream(m_path, std::ios::binary) << whole.substr(0, whole.size() - 1);
    ASSERT_TRUE(ZceBoard::ReadThrough(m_path, m_summary, m_error)) << m_error;
    EXPECT_EQ(m_summary.buses[0].messages, 2U);
    m_memory = MakeBoard();
    m_board = std::make_unique<ZceBoard::CBoard>(*m_memory);
    m_traffic = std::make_unique<ZceBoard::CReplayTraffic>(m_path, m_summary, 0, 0);
    ASSERT_TRUE(m_traffic->Open(m_error));
    m_loop = std::make_unique<ZceBoard::CBoardLoop>(*m_board, *m_traffic, 0);
    OpenChannel(0);
    OpenChannel(3);
    Pass(0);
    Drain(0);
    Drain(3);
    Pass(0);
    EXPECT_TRUE(m_loop->IsOver());
    const std::string words = m_traffic->LastWords();
    EXPECT_EQ(words.substr(0, words.find('\n') + 1),
              "replay bus=0 sent=2 of=2 unheard=0 recorder-lost=0\n");
    EXPECT_NE(words.find("replay " + m_path + ": packet 3: "), std::string::npos) << words;
}

TEST_F(Replaying, WhileAReaderIsTooSlowTheCapturesTimeStandsStill) {
    CaptureBytes capture;
    for (size_t k = 0; k < 2000; ++k) {
        capture.Add(NINE, 0, Prefix(1, 4, k + 1) + Message(17, 'x', 1500));
    }
    Begin(capture, 1000);
    OpenChannel(4);
    Pass(10 * SECOND);
    EXPECT_TRUE(m_traffic->IsBehind());
    EXPECT_EQ(m_traffic->Time().hhmmss, 90000U);
}

TEST_F(Replaying, AClockThatWasSetDuringTheRecordingIsNamed) {
    CaptureBytes capture;
    capture.Add(1, 0, Prefix(1, 0, 1) + Message(17, 'x'));
    capture.Add(NINE, 0, Prefix(1, 0, 2) + Message(17, 'x'));
    EXPECT_FALSE(ReadThrough(capture));
    EXPECT_EQ(m_error, m_path + ": packet 2: its time is more than 7 days from the one before");
}

// A pcapng file has 64 bits of microseconds: the last one that fits, and the next, which is the
// first one of all when it is taken for ns.
TEST_F(Replaying, TimesBeyondWhatNanosecondsCanSayAreFarApart) {
    const auto block = [](uint64_t kind, std::string body) {
        body.resize((body.size() + 3) / 4 * 4);
        const std::string size = Little(body.size() + 12, 4);
        return Little(kind, 4) + size + body + size;
    };
    const std::string packet = Prefix(1, 0, 1) + Message(17, 'x');
    std::string file = block(0x0A0D0D0A, Little(0x1A2B3C4D, 4) + Little(1, 4) + Little(~0ULL, 8)) +
                       block(1, Little(147, 4) + Little(0, 4));
    for (const uint64_t us : {9'223'372'036'854'775ULL, 9'223'372'036'854'776ULL}) {
        file += block(6, Little(0, 4) + Little(us >> 32, 4) + Little(us, 4) +
                             Little(packet.size(), 4) + Little(packet.size(), 4) + packet);
    }
    std::ofstream(m_path, std::ios::binary) << file;
    EXPECT_FALSE(ZceBoard::ReadThrough(m_path, m_summary, m_error));
    EXPECT_EQ(m_error, m_path + ": packet 2: its time is more than 7 days from the one before");
}

TEST_F(Replaying, HasNoClockToBeAdvanced) {
    Begin(Small(), 1000);
    EXPECT_EQ(m_traffic->AdvanceTo(100000), ENOTSUP);
}

TEST_F(Replaying, ACaptureWithoutAMessageOrOfAnImpossibleBusIsRefused) {
    EXPECT_FALSE(ReadThrough(CaptureBytes()));
    EXPECT_EQ(m_error, m_path + ": there is no message in it");
    CaptureBytes capture = Small();
    capture.Add(NINE, 0, Prefix(1, 0, 3, 10) + Message(17, 'x'));
    EXPECT_FALSE(ReadThrough(capture));
    EXPECT_EQ(m_error, m_path + ": packet 4: bus 10; there are only 0 to 9");
    CaptureBytes unknown;
    unknown.Add(NINE, 0, Prefix(1, 0, 1, 65535) + Message(17, 'x'));
    EXPECT_TRUE(ReadThrough(unknown)) << m_error;
    EXPECT_EQ(m_summary.buses.count(0), 1U);
}

}  // namespace

}  // namespace boardtest
