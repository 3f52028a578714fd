// The worker's Init: the order of everything it does, and its members.

#include <gtest/gtest.h>

#include <vector>

#include "workerBench.h"

namespace {

using velatest::DrvAccess;
using velatest::FakeClock;
using velatest::Lines_t;
using velatest::Peer;
using velatest::WorkerBench;
using Accesses_t = std::vector<DrvAccess>;

// The board's two tables: data register, then address register, for every word address.
void ExpectClear(Accesses_t& expected) {
    for (unsigned long addr = 0; addr <= 0x3FFC0; ++addr) {
        expected.push_back({"WriteInt32", 0x11001, 0});
        expected.push_back({"WriteInt32", 0x11000, addr});
    }
    for (unsigned long addr = 0; addr <= 0x3FFC0; ++addr) {
        expected.push_back({"WriteInt32", 0x12001, 0});
        expected.push_back({"WriteInt32", 0x12000, addr});
    }
}

void ExpectUnsubscribe(Accesses_t& expected) {
    for (int pass = 0; pass < 6; ++pass) {
        for (unsigned long addr = 0; addr <= 0x3FFC0; addr += 64) {
            expected.push_back({"WriteInt32", 0x11001, 0});
            expected.push_back({"WriteInt32", 0x11000, addr});
        }
        for (unsigned long addr = 0; addr <= 0x3FFC0; addr += 64) {
            expected.push_back({"WriteInt32", 0x12001, 0});
            expected.push_back({"WriteInt32", 0x12000, addr});
        }
    }
}

// EXPECT_EQ would print millions of accesses.
void ExpectSame(const Accesses_t& actual, const Accesses_t& expected) {
    EXPECT_EQ(actual.size(), expected.size());
    for (std::size_t i = 0; i < std::min(actual.size(), expected.size()); ++i) {
        ASSERT_EQ(actual[i], expected[i]) << "access " << i;
    }
}

class WorkerInit : public WorkerBench {};

TEST_F(WorkerInit, ConstructionZeroesEverythingAndTheChannelIs255) {
    MakeWorker(masterIni);
    EXPECT_EQ(Peer::Channel(*chan), 255U);
    EXPECT_EQ(Peer::GotData(*chan), 0U);
    EXPECT_EQ(Peer::ParsedCnt(*chan), 0U);
    EXPECT_TRUE(Peer::Insts(*chan).empty());
    EXPECT_EQ(Peer::Dma(*chan), nullptr);
    EXPECT_EQ(Peer::FpgaServ(*chan), nullptr);
    EXPECT_EQ(Peer::ContractServ(*chan), nullptr);
    EXPECT_EQ(Peer::BinFile(*chan), nullptr);
    EXPECT_EQ(Peer::User(*chan), (std::pair<DrvDmaHandler_t, void*>{nullptr, nullptr}));
    EXPECT_TRUE(drv->Accesses().empty());
}

TEST_F(WorkerInit, ProcessWideFlagsStartAsTheyShould) {
    EXPECT_EQ(Peer::SignalRegister(), 0);
    EXPECT_EQ(Peer::AllSubsOver(), 0);
    EXPECT_EQ(Peer::CallTimeExpired(), 0);
    EXPECT_EQ(Peer::LoadMapEnabled(), 1);
    EXPECT_EQ(Peer::FirstTmRead(), 0);
    EXPECT_EQ(CZceDmaChanImpl::g_uiContractSettleTm, 0UL);
}

TEST_F(WorkerInit, ANonMasterOnlyBindsTheCpu) {
    MakeWorker(channel3Ini);
    FakeClock::SetTime(83000);
    EXPECT_EQ(chan->Init(&parms), 0);
    EXPECT_EQ(Peer::Channel(*chan), 255U);
    EXPECT_EQ(Peer::FpgaServ(*chan), nullptr);
    EXPECT_EQ(Peer::BinFile(*chan), nullptr);
    EXPECT_TRUE(drv->Accesses().empty());
    EXPECT_EQ(log.Lines(), Lines_t{"INFO [channel:3] Doesn't need to bind cpu."});
}

TEST_F(WorkerInit, ColdStartIsThisSequenceOfLinesAndAccesses) {
    drv->SetReg(0x106, 20261119);
    MakeWorker(masterIni);
    EXPECT_EQ(chan->Init(&parms), 0);
    EXPECT_EQ(Peer::Channel(*chan), 0U);
    EXPECT_EQ(
        log.Lines(),
        (Lines_t{
            "INFO [channel:0] Doesn't need to bind cpu.",
            "INFO First time read fpga date:20261119, system date:20261120.",
            "INFO [channel:0] Clear all inst table over", "INFO Reset and Clear fpga table over.",
            "INFO [channel:0] Clear all inst table over", "INFO Current soft version 3.10.0.",
            "INFO Fiber linkstatus 0x103:0xf.", "INFO L1 and L5 switch on.",
            "INFO Update fpga addr 0x106 to 20261120 over", "INFO Unsubscribe all insts now"}));
    Accesses_t expected = {
        {"ReadInt32", 0x106, 20261119}, {"WriteInt32_Log", 0x10, 1}, {"WriteInt32_Log", 0x10, 0}};
    ExpectClear(expected);
    ExpectClear(expected);
    expected.push_back({"ReadInt32", 0x103, 0xF});
    expected.push_back({"WriteInt32", 0x106, 20261120});
    ExpectUnsubscribe(expected);
    ExpectSame(drv->Accesses(), expected);
    EXPECT_EQ(FakeClock::Sleeps(), std::vector<unsigned int>{1});
}

TEST_F(WorkerInit, AStartThatKeepsTheBoardIsThisSequenceOfLinesAndAccesses) {
    FakeClock::SetTime(83000);
    MakeWorker(masterIni);
    EXPECT_EQ(chan->Init(&parms), 0);
    EXPECT_EQ(log.Lines(),
              (Lines_t{"INFO [channel:0] Doesn't need to bind cpu.",
                       "INFO First time read fpga date:20261120, system date:20261120.",
                       "INFO System time:83000.", "INFO Current soft version 3.10.0.",
                       "INFO Fiber linkstatus 0x103:0xf.", "INFO L1 and L5 switch on.",
                       "INFO Update fpga addr 0x106 to 20261120 over",
                       "INFO Unsubscribe all insts now"}));
    Accesses_t expected = {{"ReadInt32", 0x106, 20261120},
                           {"ReadInt32", 0x106, 20261120},
                           {"ReadInt32", 0x103, 0xF},
                           {"WriteInt32", 0x106, 20261120}};
    ExpectUnsubscribe(expected);
    ExpectSame(drv->Accesses(), expected);
    EXPECT_TRUE(FakeClock::Sleeps().empty());
}

TEST_F(WorkerInit, NetRegistersAreProgrammedBetweenFibresAndDate) {
    MakeWorker(std::string(masterIni) + "L5_DSTPORT=7\nczce_level1=disabled\n");
    EXPECT_EQ(chan->Init(&parms), 0);
    const Accesses_t& accesses = drv->Accesses();
    ASSERT_GT(accesses.size(), 4U);
    EXPECT_EQ(accesses[2], (DrvAccess{"ReadInt32", 0x103, 0xF}));
    EXPECT_EQ(accesses[3], (DrvAccess{"WriteInt32", 0x304, 7}));
    EXPECT_EQ(accesses[4], (DrvAccess{"WriteInt32", 0x106, 20261120}));
    EXPECT_TRUE(log.Has("INFO L1 switch off and L5 switch on."));
}

// Every access failing in turn: the results of the services are not looked at.
TEST_F(WorkerInit, InitSucceedsWhateverTheBoardAnswers) {
    drv->FailReads(0x106);
    drv->FailReads(0x103);
    drv->FailWrites(0x106);
    drv->FailWrites(0x11000);
    drv->Record(false);
    MakeWorker(masterIni);
    EXPECT_EQ(chan->Init(&parms), 0);
    EXPECT_TRUE(log.Has("INFO First time read fpga date:0, system date:20261120."));
    EXPECT_TRUE(log.Has("INFO Unsubscribe all insts now"));
}

TEST_F(WorkerInit, MembersLieInTheirOrderBehindTheTable) {
    MakeWorker(masterIni);
    const std::vector<const void*> members = Peer::MembersInOrder(*chan);
    EXPECT_EQ(static_cast<const char*>(members.front()) - reinterpret_cast<const char*>(chan), 8);
    for (std::size_t i = 1; i < members.size(); ++i) {
        EXPECT_LT(members[i - 1], members[i]) << i;
    }
}

TEST_F(WorkerInit, OpenRecordHoldsBusCoreAndNameInThisOrder) {
    static_assert(sizeof(parms.busId) == 4 && sizeof(parms.coreId) == 4);
    const auto* const base = reinterpret_cast<const char*>(&parms);
    EXPECT_EQ(reinterpret_cast<const char*>(&parms.busId) - base, 0);
    EXPECT_EQ(reinterpret_cast<const char*>(&parms.coreId) - base, 4);
    EXPECT_EQ(reinterpret_cast<const char*>(&parms.chanName) - base, 8);
    EXPECT_EQ(sizeof(parms), 8 + sizeof(std::string));
}

TEST_F(WorkerInit, TheMastersEndDestroysTheRegisterDriver) {
    MakeMaster();
    DropWorker();
    EXPECT_EQ(drvDestroyed, 1);
    EXPECT_EQ(api.m_pDrv, nullptr);
}

TEST_F(WorkerInit, ANonMastersEndLeavesTheRegisterDriver) {
    MakeWorker(channel3Ini);
    ASSERT_EQ(chan->Init(&parms), 0);
    DropWorker();
    EXPECT_EQ(drvDestroyed, 0);
    EXPECT_EQ(api.m_pDrv, drv);
}

TEST_F(WorkerInit, AMasterThatWasNotInitialisedLeavesTheRegisterDriver) {
    MakeWorker(masterIni);
    DropWorker();
    EXPECT_EQ(drvDestroyed, 0);
}

}  // namespace
