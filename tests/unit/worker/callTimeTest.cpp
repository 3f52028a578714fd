// IsCallTimeExpired: the end of the call auction, from the board's two clocks.

#include <gtest/gtest.h>

#include "workerBench.h"

namespace {

using velatest::DrvAccess;
using velatest::FakeClock;
using velatest::Peer;
using velatest::WorkerBench;

class IsCallTimeExpired : public WorkerBench {
  protected:
    IsCallTimeExpired() { MakeMaster(); }

    // After a first call at 1, with the board's first clock at `time`.
    bool Expired(unsigned int time) {
        Peer::FirstTmRead() = 1;
        Peer::FirstTm() = 1;
        CZceDmaChanImpl::g_uiContractSettleTm = 0;
        drv->SetReg(0x104, time);
        drv->SetReg(0x105, 7);
        const bool expired = chan->IsCallTimeExpired();
        EXPECT_EQ(CZceDmaChanImpl::g_uiContractSettleTm, expired ? time : 0U);
        return expired;
    }
};

TEST_F(IsCallTimeExpired, ReadsBothClocksOnce) {
    EXPECT_FALSE(chan->IsCallTimeExpired());
    EXPECT_EQ(drv->Accesses(),
              (std::vector<DrvAccess>{{"ReadInt32", 0x104, 0}, {"ReadInt32", 0x105, 0}}));
}

TEST_F(IsCallTimeExpired, NeverAtTheFirstCallWhateverTheRegistersHold) {
    FakeClock::SetTime(85600);
    drv->SetReg(0x104, 85600);
    drv->SetReg(0x105, 85600);
    EXPECT_FALSE(chan->IsCallTimeExpired());
    EXPECT_EQ(Peer::FirstTmRead(), 1);
    EXPECT_EQ(Peer::FirstTm(), 85600U);
    EXPECT_EQ(CZceDmaChanImpl::g_uiContractSettleTm, 0UL);
}

TEST_F(IsCallTimeExpired, AFirstClockThatStandsStillGivesWayToTheSecond) {
    FakeClock::SetTime(85600);
    drv->SetReg(0x104, 85600);
    drv->SetReg(0x105, 85000);
    EXPECT_FALSE(chan->IsCallTimeExpired());
    EXPECT_FALSE(chan->IsCallTimeExpired());  // 85600 would be late enough, 85000 is not
    drv->SetReg(0x105, 85510);
    EXPECT_TRUE(chan->IsCallTimeExpired());
    EXPECT_EQ(CZceDmaChanImpl::g_uiContractSettleTm, 85510UL);
}

TEST_F(IsCallTimeExpired, AFirstClockThatMovesCounts) {
    FakeClock::SetTime(85600);
    drv->SetReg(0x104, 85000);
    drv->SetReg(0x105, 85600);
    EXPECT_FALSE(chan->IsCallTimeExpired());
    drv->SetReg(0x104, 85001);
    EXPECT_FALSE(chan->IsCallTimeExpired());
    drv->SetReg(0x104, 85512);
    EXPECT_TRUE(chan->IsCallTimeExpired());
    EXPECT_EQ(CZceDmaChanImpl::g_uiContractSettleTm, 85512UL);
}

TEST_F(IsCallTimeExpired, TheFirstTimeIsRememberedOnce) {
    FakeClock::SetTime(85600);
    drv->SetReg(0x104, 85000);
    chan->IsCallTimeExpired();
    drv->SetReg(0x104, 85001);
    chan->IsCallTimeExpired();
    EXPECT_EQ(Peer::FirstTm(), 85000U);
}

TEST_F(IsCallTimeExpired, ByDayFrom085510To093000) {
    FakeClock::SetTime(85600);
    EXPECT_FALSE(Expired(85509));
    EXPECT_TRUE(Expired(85510));
    EXPECT_TRUE(Expired(85511));
    EXPECT_TRUE(Expired(92999));
    EXPECT_TRUE(Expired(93000));
    EXPECT_FALSE(Expired(93001));
    EXPECT_FALSE(Expired(205510));
    EXPECT_FALSE(Expired(0));
    EXPECT_FALSE(Expired(0xFFFFFFFF));
}

TEST_F(IsCallTimeExpired, ByNightFrom205510To213000) {
    FakeClock::SetTime(205600);
    EXPECT_FALSE(Expired(205509));
    EXPECT_TRUE(Expired(205510));
    EXPECT_TRUE(Expired(205511));
    EXPECT_TRUE(Expired(212999));
    EXPECT_TRUE(Expired(213000));
    EXPECT_FALSE(Expired(213001));
    EXPECT_FALSE(Expired(85510));
    EXPECT_FALSE(Expired(0));
    EXPECT_FALSE(Expired(0xFFFFFFFF));
}

TEST_F(IsCallTimeExpired, TheNightWindowAppliesFromHour15) {
    FakeClock::SetTime(145959);
    EXPECT_TRUE(Expired(90000));
    EXPECT_FALSE(Expired(210000));
    FakeClock::SetTime(150000);
    EXPECT_FALSE(Expired(90000));
    EXPECT_TRUE(Expired(210000));
    FakeClock::SetTime(0);
    EXPECT_TRUE(Expired(90000));
    FakeClock::SetTime(235959);
    EXPECT_TRUE(Expired(210000));
}

// As numbers, so that some that are no time of day lie inside, too.
TEST_F(IsCallTimeExpired, TheWindowIsOneOfNumbers) {
    FakeClock::SetTime(85600);
    EXPECT_TRUE(Expired(85560));
    EXPECT_TRUE(Expired(85599));
    EXPECT_TRUE(Expired(89999));
    EXPECT_TRUE(Expired(90099));
    FakeClock::SetTime(205600);
    EXPECT_TRUE(Expired(205599));
    EXPECT_TRUE(Expired(209999));
}

TEST_F(IsCallTimeExpired, ClocksThatCannotBeReadAreZero) {
    FakeClock::SetTime(85600);
    drv->SetReg(0x104, 85600);
    drv->SetReg(0x105, 85600);
    drv->FailReads(0x104);
    drv->FailReads(0x105);
    EXPECT_FALSE(chan->IsCallTimeExpired());
    EXPECT_FALSE(chan->IsCallTimeExpired());
    EXPECT_EQ(Peer::FirstTm(), 0U);
}

}  // namespace
