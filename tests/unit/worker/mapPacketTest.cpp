// Instrument-map packets: learning the list, and the turn to subscription.

#include "mapPacket.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "workerBench.h"

namespace {

using velatest::Bytes_t;
using velatest::DrvAccess;
using velatest::FakeClock;
using velatest::FileText;
using velatest::Lines_t;
using velatest::MapPacket;
using velatest::Peer;
using velatest::WorkerBench;
using Insts_t = std::map<std::string, unsigned short>;

// A master that learns: 08:40, the board's clock read once, a new cache file.
class MapPackets : public WorkerBench {
  protected:
    void Learn(const std::string& ini = masterIni) {
        MakeMaster(ini);
        FakeClock::SetTime(84000);
        drv->SetReg(0x104, 84000);
        EXPECT_EQ(chan->Work(&parms), 0);
        Receive(MapPacket().PacketOfLength(0), 1);
        drv->SetReg(0x104, 84001);
        drv->ClearAccesses();
        log.Clear();
    }
    void Receive(const Bytes_t& packet, std::size_t padding = 0) {
        Bytes_t exact(packet);
        exact.resize(packet.size() + padding);
        CZceDmaChanImpl::DmaEntrance(exact.data(), static_cast<unsigned int>(exact.size()), chan);
    }
    // The board's clock says that the auction is over.
    void Expire() {
        FakeClock::SetTime(85511);
        drv->SetReg(0x104, 85510);
    }
    Insts_t& Insts() { return Peer::Insts(*chan); }
};

TEST_F(MapPackets, RecordsOfAPacketAreEnteredAndWritten) {
    Learn();
    Receive(
        MapPacket().Add("SR209", 7).Add("AP301", 0x1234).Add("SPD-SR209&SR301", 65535).Packet());
    EXPECT_EQ(Insts(), (Insts_t{{"SR209", 7}, {"AP301", 0x1234}, {"SPD-SR209&SR301", 65535}}));
    EXPECT_EQ(FileText("bin"), "7,SR209\n4660,AP301\n65535,SPD-SR209&SR301\n");
    EXPECT_EQ(Peer::ParsedCnt(*chan), 3UL);
    EXPECT_EQ(log.Lines(), (Lines_t{"INFO Write to bin :index:7,inst:SR209,",
                                    "INFO Write to bin :index:4660,inst:AP301,",
                                    "INFO Write to bin :index:65535,inst:SPD-SR209&SR301,"}));
}

TEST_F(MapPackets, TheFirstRecordOfEachPacketHasTheLongHead) {
    Learn();
    Receive(MapPacket().Add("SR209", 7).Add("AP301", 8).Packet());
    Receive(MapPacket().Add("CF301", 9).Add("TA301", 10).Packet());
    EXPECT_EQ(Insts(), (Insts_t{{"SR209", 7}, {"AP301", 8}, {"CF301", 9}, {"TA301", 10}}));
}

TEST_F(MapPackets, ARecordByHandToTheByte) {
    Learn();
    Receive({2, 0,  0,    0,    0,    0,   0,    0,    0,    0,   0,   0,  // type, the board's
             0, 18,                                                        // record area
             0, 11, 9,    9,    9,    9,   0x55, 0x01, 0x02, 'S', 'R',     // 258,SR
             0, 7,  0x55, 0x03, 0x04, 'A', 'P'});                          // 772,AP
    EXPECT_EQ(Insts(), (Insts_t{{"SR", 258}, {"AP", 772}}));
}

TEST_F(MapPackets, TheSameNameTwiceIsOneEntryWithTheLaterIndexAndOneLineWithTheFirst) {
    Learn();
    Receive(MapPacket().Add("SR209", 7).Packet());
    Receive(MapPacket().Add("SR209", 8).Packet());
    EXPECT_EQ(Insts(), (Insts_t{{"SR209", 8}}));
    EXPECT_EQ(FileText("bin"), "7,SR209\n");
    EXPECT_EQ(Peer::ParsedCnt(*chan), 2UL);
}

TEST_F(MapPackets, AFirstRecordOfNineBytesHasAnEmptyName) {
    Learn();
    Receive(MapPacket().Add("", 7).Packet());
    EXPECT_EQ(Insts(), (Insts_t{{"", 7}}));
    EXPECT_EQ(FileText("bin"), "7,\n");
}

TEST_F(MapPackets, ANameEndsAtItsFirstZeroByte) {
    Learn();
    Receive(MapPacket().Add(std::string_view("SR\0CF", 5), 7).Packet());
    EXPECT_EQ(Insts(), (Insts_t{{"SR", 7}}));
}

TEST_F(MapPackets, ANameOf63BytesIsTaken) {
    Learn();
    const std::string name(63, 'A');
    Receive(MapPacket().Add(name, 7).Add(name + "", 8).Packet());
    EXPECT_EQ(Insts(), (Insts_t{{name, 8}}));
}

TEST_F(MapPackets, FourteenBytesAreUnexpectedAndChangeNothing) {
    Learn();
    Receive(MapPacket().PacketOfLength(0));
    EXPECT_EQ(log.Lines(), Lines_t{"WARN Unexpect dma size, size 14"});
    EXPECT_TRUE(Insts().empty());
    EXPECT_TRUE(drv->Accesses().empty());
}

TEST_F(MapPackets, AnyShorterPacketIsUnexpectedToo) {
    Learn();
    Receive({2, 0, 0, 0});
    Receive({2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    EXPECT_EQ(log.Lines(),
              (Lines_t{"WARN Unexpect dma size, size 4", "WARN Unexpect dma size, size 11"}));
}

TEST_F(MapPackets, FifteenBytesWithALengthOfZeroOrOneHoldNoRecord) {
    Learn();
    Receive(MapPacket().PacketOfLength(0), 1);
    Receive(MapPacket().PacketOfLength(1), 1);
    EXPECT_TRUE(Insts().empty());
    EXPECT_EQ(log.Lines(), Lines_t{});
}

TEST_F(MapPackets, EachPacketLooksAtTheBoardsClocks) {
    Learn();
    Receive(MapPacket().Add("SR209", 7).Packet());
    EXPECT_EQ(drv->Accesses(),
              (std::vector<DrvAccess>{{"ReadInt32", 0x104, 84001}, {"ReadInt32", 0x105, 0}}));
}

TEST_F(MapPackets, TheWalkReturnsTheLastRecordsLengthOrTheAreas) {
    Learn();
    Bytes_t packet = MapPacket().Add("SR209", 7).Add("AP3", 8).Packet();
    EXPECT_EQ(chan->LoadtoMapFromMac(packet.data(), 36), 8U);
    EXPECT_EQ(Insts().size(), 2U);
    packet = MapPacket().PacketOfLength(1);
    packet.push_back(0);
    EXPECT_EQ(chan->LoadtoMapFromMac(packet.data(), 15), 1U);
}

TEST_F(MapPackets, OneRecordReportsItsLength) {
    Learn();
    const Bytes_t first = {0, 11, 0, 0, 0, 0, 0x77, 1, 2, 'S', 'R'};
    const Bytes_t later = {0, 7, 0x77, 1, 3, 'A', 'P'};
    unsigned int length = 0;
    chan->LoadtoMapFromEachMsg(first.data(), 0, length);
    EXPECT_EQ(length, 11U);
    chan->LoadtoMapFromEachMsg(later.data(), 1, length);
    EXPECT_EQ(length, 7U);
    EXPECT_EQ(Insts(), (std::map<std::string, unsigned short>{{"SR", 258}, {"AP", 259}}));
}

TEST_F(MapPackets, Every8192ndRecordIsReportedWithTheEntriesBeforeIt) {
    Learn();
    Peer::ParsedCnt(*chan) = 8190;
    chan->LoadtomapFrmParsedMsg("SR209", 0, 7, 0);
    EXPECT_EQ(log.LinesOf("INFO").size(), 1U);
    log.Clear();
    chan->LoadtomapFrmParsedMsg("AP301", 0, 8, 0);
    EXPECT_EQ(log.Lines(), (Lines_t{"INFO Have parsed 8192 instrument id already, instnum:1.",
                                    "INFO Write to bin :index:8,inst:AP301,"}));
    log.Clear();
    Peer::ParsedCnt(*chan) = 16383;
    chan->LoadtomapFrmParsedMsg("AP301", 0, 8, 0);
    chan->LoadtomapFrmParsedMsg("AP301", 0, 8, 0);
    EXPECT_EQ(log.Lines(), Lines_t{"INFO Have parsed 16384 instrument id already, instnum:2."});
}

TEST_F(MapPackets, ANameThatTheFileCannotTakeIsInTheMapAllTheSame) {
    MakeMaster();
    ASSERT_EQ(symlink("/dev/full", "bin"), 0);
    FakeClock::SetTime(84000);
    ASSERT_EQ(chan->Work(&parms), 0);
    log.Clear();
    Receive(MapPacket().Add("SR209", 7).Add("AP301", 8).Packet());
    EXPECT_EQ(Insts().size(), 2U);
    EXPECT_EQ(log.LinesOf("WARN").size(), 1U);
}

TEST_F(MapPackets, InTradingTimeAPacketOnlyClosesTheTransfer) {
    Learn();
    Expire();
    FakeClock::SetTime(90001);
    Receive(MapPacket().Add("SR209", 7).Packet());
    Receive(MapPacket().PacketOfLength(0));  // before its length is looked at
    EXPECT_TRUE(Insts().empty());
    EXPECT_EQ(Peer::CallTimeExpired(), 0);
    EXPECT_EQ(drv->Accesses(),
              (std::vector<DrvAccess>{{"WriteInt32_Log", 0x12, 0}, {"WriteInt32_Log", 0x12, 0}}));
    const std::string warning =
        "WARN Now is in trade time! Note that you should start program before each trade!";
    EXPECT_EQ(log.Lines(), (Lines_t{warning, "INFO Fpga stop transmit inst map pkt.", warning,
                                    "INFO Fpga stop transmit inst map pkt."}));
}

TEST_F(MapPackets, TheEndOfTheAuctionClosesTheFileAndStopsTheLearning) {
    Learn();
    Receive(MapPacket().Add("SR209", 7).Packet());
    log.Clear();
    Expire();
    Receive(MapPacket().Add("AP301", 8).Packet());
    EXPECT_EQ(Insts(), (Insts_t{{"SR209", 7}}));
    EXPECT_EQ(FileText("bin"),
              "7,SR209\ncontract's_corresponding_time=20261120085510\nbin_file_over_tag");
    EXPECT_EQ(log.Lines(),
              (Lines_t{"INFO Call auction time has expired, totally parse 1 instrumentid.",
                       "INFO Write end tag to bin."}));
    EXPECT_EQ(Peer::CallTimeExpired(), 1);
    EXPECT_EQ(Peer::LoadMapEnabled(), 0);
    EXPECT_EQ(Peer::AllSubsOver(), 0);
}

TEST_F(MapPackets, ThePacketAfterTheEndSubscribesAndClosesTheTransfer) {
    Learn(std::string(masterIni) + "[channel0]\ninsts=SR209\noptions=no\n");
    Receive(MapPacket().Add("SR209", 7).Add("AP301", 8).Packet());
    Expire();
    Receive(MapPacket().PacketOfLength(0), 1);
    drv->ClearAccesses();
    log.Clear();
    Receive(MapPacket().Add("CF301", 9).Packet());
    EXPECT_EQ(Insts().size(), 2U);
    EXPECT_EQ(drv->Accesses(), (std::vector<DrvAccess>{{"WriteInt32_LogWithRead", 0x11001, 1},
                                                       {"WriteInt32_LogWithRead", 0x11000, 0x1C0},
                                                       {"WriteInt32_LogWithRead", 0x11002, 0x1C0},
                                                       {"ReadInt32", 0x11003, 1},
                                                       {"WriteInt32_Log", 0x11, 3},
                                                       {"WriteInt32_Log", 0x12, 0}}));
    const Lines_t lines = log.Lines();
    ASSERT_GE(lines.size(), 3U);
    EXPECT_EQ(lines[lines.size() - 3],
              "INFO Now Fpga start trans subscribe result! write 0x11 value:0x3.");
    EXPECT_EQ(lines[lines.size() - 2], "INFO Fpga stop transmit inst map pkt.");
    EXPECT_EQ(lines.back(), "INFO All channel subs over.");
    EXPECT_EQ(Peer::AllSubsOver(), 1);
}

TEST_F(MapPackets, APacketOfAnyLengthStartsTheSubscription) {
    Learn();
    Expire();
    Receive(MapPacket().PacketOfLength(0), 1);
    log.Clear();
    Receive({2, 0, 0, 0});
    EXPECT_EQ(log.Lines().back(), "INFO All channel subs over.");
}

TEST_F(MapPackets, AfterTheSubscriptionPacketsAreIgnoredWithoutAMessage) {
    Learn();
    Expire();
    Receive(MapPacket().PacketOfLength(0), 1);
    Receive(MapPacket().PacketOfLength(0), 1);
    drv->ClearAccesses();
    log.Clear();
    Receive(MapPacket().Add("SR209", 7).Packet());
    Receive(MapPacket().PacketOfLength(0), 1);
    EXPECT_EQ(log.Lines(), Lines_t{});
    EXPECT_TRUE(drv->Accesses().empty());
    EXPECT_TRUE(Insts().empty());
    Receive(MapPacket().PacketOfLength(0));
    EXPECT_EQ(log.Lines(), Lines_t{"WARN Unexpect dma size, size 14"});
}

TEST_F(MapPackets, AtTheEndWithoutACacheFileNothingIsWritten) {
    MakeMaster();
    Peer::FirstTmRead() = 1;
    Expire();
    log.Clear();
    Receive(MapPacket().PacketOfLength(0), 1);
    EXPECT_EQ(log.Lines(),
              Lines_t{"INFO Call auction time has expired, totally parse 0 instrumentid."});
    EXPECT_EQ(FileText("bin"), "(none)");
    EXPECT_EQ(CZceDmaChanImpl::g_uiContractSettleTm, 20261120085510UL);
}

// A master that started inside trading time: packets after 15:00 are learnt like any others.
TEST_F(MapPackets, AfterAStartInTradingTimeTheAfternoonsPacketsAreLearnt) {
    MakeMaster();
    FakeClock::Set(20261120, 145900);
    ASSERT_EQ(chan->Work(&parms), 0);
    FakeClock::SetTime(150000);
    Receive(MapPacket().Add("SR209", 7).Packet());
    EXPECT_EQ(Insts(), (Insts_t{{"SR209", 7}}));
    EXPECT_EQ(FileText("bin"), "(none)");
}

TEST_F(MapPackets, TheNightAuctionEndsInTheNightWindow) {
    MakeMaster();
    FakeClock::SetTime(204000);
    drv->SetReg(0x104, 204000);
    ASSERT_EQ(chan->Work(&parms), 0);
    Receive(MapPacket().Add("SR209", 7).Packet());
    FakeClock::SetTime(205513);
    drv->SetReg(0x104, 205512);
    Receive(MapPacket().Add("AP301", 8).Packet());
    EXPECT_EQ(FileText("bin"),
              "7,SR209\ncontract's_corresponding_time=20261120205512\nbin_file_over_tag");
}

}  // namespace
