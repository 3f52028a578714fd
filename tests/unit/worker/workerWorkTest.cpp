// The worker's Work, its stream, its polls.

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "fakeEnyx.h"
#include "workerBench.h"

namespace {

using velatest::DrvAccess;
using velatest::FakeClock;
using velatest::FakeEnyx;
using velatest::FileText;
using velatest::Lines_t;
using velatest::Peer;
using velatest::PutFile;
using velatest::StdoutCapture;
using velatest::WorkerBench;

std::vector<std::uint8_t> Message(std::uint8_t type) {
    return {type, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8, 0xB0, 0xB1};
}

class WorkerWork : public WorkerBench {};

TEST_F(WorkerWork, OutsideTradingTimeANewFileThenTheBroadcastThenTheStream) {
    PutFile("bin", "old");
    MakeMaster();
    FakeClock::SetTime(83000);
    EXPECT_EQ(chan->Work(&parms), 0);
    EXPECT_EQ(FileText("bin"), "");
    EXPECT_EQ(drv->Accesses(), (std::vector<DrvAccess>{{"WriteInt32_Log", 0x12, 1}}));
    EXPECT_EQ(log.Lines(), (Lines_t{"INFO Fpga start transmit inst map pkt.",
                                    "INFO Init dma channel :CUSTOM_CHAN0_DATA success."}));
}

TEST_F(WorkerWork, InsideTradingTimeRecoveredAndSubscribedBeforeTheStreamOpens) {
    MakeMaster(std::string(masterIni) + "[channel0]\ninsts=SR209\noptions=no\n");
    FakeClock::Set(20261120, 93000);
    PutFile("bin",
            "7,SR209\n8,AP301\ncontract's_corresponding_time=20261120085510\nbin_file_over_tag");
    bool streamWasOpen = false;
    drv->OnAccess([&streamWasOpen](const DrvAccess&) {
        streamWasOpen = streamWasOpen || FakeEnyx::CountOf("a2c_stream_create") > 0;
    });
    EXPECT_EQ(chan->Work(&parms), 0);
    EXPECT_FALSE(streamWasOpen);
    EXPECT_EQ(drv->Accesses(), (std::vector<DrvAccess>{{"WriteInt32_Log", 0x12, 0},
                                                       {"WriteInt32_LogWithRead", 0x11001, 1},
                                                       {"WriteInt32_LogWithRead", 0x11000, 0x1C0},
                                                       {"WriteInt32_LogWithRead", 0x11002, 0x1C0},
                                                       {"ReadInt32", 0x11003, 1},
                                                       {"WriteInt32_Log", 0x11, 3}}));
    const Lines_t lines = log.Lines();
    const auto at = [&lines](const std::string& line) {
        const auto found = std::find(lines.begin(), lines.end(), line);
        EXPECT_NE(found, lines.end()) << line;
        return found - lines.begin();
    };
    EXPECT_LT(at("INFO Fpga stop transmit inst map pkt."), at("INFO Now begin recover all inst"));
    EXPECT_LT(at("INFO Now begin recover all inst"),
              at("INFO Begin match needed inst! AllInstNum:2."));
    EXPECT_LT(at("INFO Begin match needed inst! AllInstNum:2."),
              at("INFO Subscribes:Write to fpga Over!"));
    EXPECT_LT(at("INFO Subscribes:Write to fpga Over!"),
              at("INFO Now Fpga start trans subscribe result! write 0x11 value:0x3."));
    EXPECT_EQ(lines.back(), "INFO Init dma channel :CUSTOM_CHAN0_DATA success.");
    // The flags of the map packets are left alone.
    EXPECT_EQ(Peer::AllSubsOver(), 0);
    EXPECT_EQ(Peer::CallTimeExpired(), 0);
    EXPECT_EQ(Peer::LoadMapEnabled(), 1);
}

TEST_F(WorkerWork, TheTradingTimeIsThatOfTheSecond) {
    MakeMaster();
    FakeClock::Set(20261120, 90000);
    EXPECT_EQ(chan->Work(&parms), 0);
    EXPECT_EQ(drv->Accesses(), (std::vector<DrvAccess>{{"WriteInt32_Log", 0x12, 1}}));
}

TEST_F(WorkerWork, ANonMasterOnlyOpensItsStream) {
    MakeWorker(channel3Ini);
    FakeClock::SetTime(93000);
    ASSERT_EQ(chan->Init(&parms), 0);
    log.Clear();
    parms.chanName = "CUSTOM_CHAN3_DATA";
    EXPECT_EQ(chan->Work(&parms), 0);
    EXPECT_TRUE(drv->Accesses().empty());
    EXPECT_EQ(FileText("bin"), "(none)");
    EXPECT_EQ(log.Lines(), Lines_t{"INFO Init dma channel :CUSTOM_CHAN3_DATA success."});
    log.Clear();
    DropWorker();
    EXPECT_EQ(log.Lines(),
              (Lines_t{"INFO [channel:3] DMA count info: backpress:0, dma2soft:0, fifo:0, error:0.",
                       "INFO dma channel CUSTOM_CHAN3_DATA has released."}));
}

TEST_F(WorkerWork, AStreamInUseFailsWithTheMastersChannel) {
    MakeMaster();
    FakeEnyx::SetStreamBusy("CUSTOM_CHAN0_DATA", true);
    EXPECT_EQ(chan->Work(&parms), -1);
    const Lines_t errors = log.LinesOf("ERROR");
    ASSERT_GE(errors.size(), 2U);
    EXPECT_EQ(errors[errors.size() - 2], "Dma init busid:0, chanName:CUSTOM_CHAN0_DATA fail!");
    EXPECT_EQ(errors.back(), "[channel:0] Init dma fail! dma name CUSTOM_CHAN0_DATA.");
    EXPECT_NE(Peer::Dma(*chan), nullptr);  // freed by the worker's end
}

TEST_F(WorkerWork, AStreamInUseFailsWithChannel255OnANonMaster) {
    MakeWorker(channel3Ini);
    parms.chanName = "CUSTOM_CHAN3_DATA";
    FakeEnyx::SetStreamBusy("CUSTOM_CHAN3_DATA", true);
    EXPECT_EQ(chan->Work(&parms), -1);
    EXPECT_TRUE(log.Has("ERROR [channel:255] Init dma fail! dma name CUSTOM_CHAN3_DATA."));
}

TEST_F(WorkerWork, TheBusOfTheRecordIsOpened) {
    MakeWorker(channel3Ini);
    FakeEnyx::SetBoards({2});
    parms.busId = 2;
    parms.chanName = "CUSTOM_CHAN3_DATA";
    EXPECT_EQ(chan->InitDma(&parms), 0);
    parms.busId = 1;
    CZceDmaChanImpl other(drv, &api, cfg);
    EXPECT_EQ(other.InitDma(&parms), -1);
    EXPECT_TRUE(log.Has("ERROR Dma init busid:1, chanName:CUSTOM_CHAN3_DATA fail!"));
}

TEST_F(WorkerWork, InitDmaWithoutParametersFails) {
    MakeWorker(channel3Ini);
    EXPECT_EQ(chan->InitDma(nullptr), -1);
    EXPECT_EQ(log.Lines(), Lines_t{"ERROR Init dma null fail"});
    EXPECT_EQ(Peer::Dma(*chan), nullptr);
    EXPECT_EQ(chan->Work(nullptr), -1);
    EXPECT_TRUE(log.Has("ERROR [channel:255] Init dma fail! dma name ."));
}

TEST_F(WorkerWork, PollIsOneOnceAfterACallbackThenZero) {
    MakeWorker(channel3Ini);
    parms.chanName = "CUSTOM_CHAN3_DATA";
    ASSERT_EQ(chan->InitDma(&parms), 0);
    EXPECT_EQ(chan->PollOnce(), 0U);
    FakeEnyx::QueuePacket("CUSTOM_CHAN3_DATA", Message(19));
    EXPECT_EQ(chan->PollOnce(), 1U);
    EXPECT_EQ(chan->PollOnce(), 0U);
    ASSERT_EQ(spi.calls.size(), 1U);
    EXPECT_EQ(spi.calls[0].slot, 2);
    EXPECT_EQ(FakeEnyx::PollCount(), 3U);
}

TEST_F(WorkerWork, PollOfAMessageWithoutACallbackIsZero) {
    MakeWorker(channel3Ini);
    parms.chanName = "CUSTOM_CHAN3_DATA";
    ASSERT_EQ(chan->InitDma(&parms), 0);
    FakeEnyx::QueuePacket("CUSTOM_CHAN3_DATA", Message(21));
    EXPECT_EQ(chan->PollOnce(), 0U);
}

void Ignore(const unsigned char* /*msg*/, unsigned int /*len*/, void* /*user*/) {
    ADD_FAILURE() << "the handler is kept, not called";
}

TEST_F(WorkerWork, KeepRecvReceivesUntilItsFlagIsCleared) {
    MakeWorker(channel3Ini);
    parms.chanName = "CUSTOM_CHAN3_DATA";
    ASSERT_EQ(chan->InitDma(&parms), 0);
    bool run = true;
    class StoppingSpi : public velatest::RecordingSpi {
      public:
        void OnDmaType20Msg(const unsigned char* body) override {
            RecordingSpi::OnDmaType20Msg(body);
            *pbRun = false;
        }
        bool* pbRun = nullptr;
    } stopping;
    stopping.pbRun = &run;
    api.m_pSpi = &stopping;
    FakeEnyx::QueuePacket("CUSTOM_CHAN3_DATA", Message(17));
    FakeEnyx::QueuePacket("CUSTOM_CHAN3_DATA", Message(18));
    FakeEnyx::QueuePacket("CUSTOM_CHAN3_DATA", Message(20));
    FakeEnyx::QueuePacket("CUSTOM_CHAN3_DATA", Message(17));
    int user = 0;
    EXPECT_EQ(chan->KeepRecv(Ignore, &run, &user), 0);
    ASSERT_EQ(stopping.calls.size(), 3U);
    EXPECT_EQ(stopping.calls[0].slot, 0);
    EXPECT_EQ(stopping.calls[1].slot, 1);
    EXPECT_EQ(stopping.calls[2].slot, 3);
    EXPECT_EQ(Peer::User(*chan), (std::pair<DrvDmaHandler_t, void*>{Ignore, &user}));
}

TEST_F(WorkerWork, KeepRecvWithItsFlagClearedDoesNotPoll) {
    MakeWorker(channel3Ini);
    parms.chanName = "CUSTOM_CHAN3_DATA";
    ASSERT_EQ(chan->InitDma(&parms), 0);
    bool run = false;
    EXPECT_EQ(chan->KeepRecv(Ignore, &run, nullptr), 0);
    EXPECT_EQ(FakeEnyx::PollCount(), 0U);
}

TEST_F(WorkerWork, KeepRecvWithoutHandlerOrFlagIsRefused) {
    MakeWorker(channel3Ini);
    bool run = true;
    StdoutCapture out;
    EXPECT_EQ(chan->KeepRecv(nullptr, &run, nullptr), -1);
    EXPECT_EQ(chan->KeepRecv(Ignore, nullptr, nullptr), -1);
    EXPECT_EQ(out.Text(), "Invalid parameter. \nInvalid parameter. \n");
}

TEST_F(WorkerWork, KeepRecvBeforeTheStreamIsOpenIsRefused) {
    MakeWorker(channel3Ini);
    bool run = true;
    EXPECT_EQ(chan->KeepRecv(Ignore, &run, nullptr), -1);
    EXPECT_EQ(log.Lines(), Lines_t{"WARN KeepRecv before the DMA stream is open: there is nothing "
                                   "to receive from."});
}

}  // namespace
