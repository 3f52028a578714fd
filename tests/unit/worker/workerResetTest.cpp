// ChkAndRst: by date, clock and counters, the board is reset or kept.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "DataType/ZceFpgaServ.h"
#include "workerBench.h"

namespace {

using velatest::FakeClock;
using velatest::Lines_t;
using velatest::WorkerBench;

enum class Counters { still, moving };

class ChkAndRst : public WorkerBench {
  protected:
    ChkAndRst() {
        MakeMaster();
        drv->Record(false);
        drv->SetReg(0x11, 3);  // decoding
    }

    // The board of today's date at this host time; its clock goes with the host's.
    // Returns how often the tables were cleared whole.
    std::size_t ClearsAt(unsigned int time, Counters counters) {
        FakeClock::Set(20261120, time);
        FakeClock::ClearSleeps();
        drv->SetReg(0x104, time);
        drv->SetReg(0x105, time);
        drv->SetReg(0x106, 20261120);
        drv->SetReg(0x11, 3);
        FakeClock::OnSleep([this, counters](unsigned int) {
            if (counters == Counters::moving) {
                drv->SetReg(0x210e, drv->Reg(0x210e) + 1);
            }
        });
        log.Clear();
        EXPECT_EQ(chan->ChkAndRst(), 0);
        std::size_t clears = 0;
        for (const std::string& line : log.Lines()) {
            clears += line == "INFO [channel:0] Clear all inst table over" ? 1U : 0U;
        }
        return clears;
    }
    bool LookedAtCounters() const { return log.Has("INFO 0x11 register value:0x3"); }
    bool ResetsAt(unsigned int time, Counters counters) {
        const std::size_t clears = ClearsAt(time, counters);
        EXPECT_TRUE(clears == 0 || clears == 2) << time;
        return clears == 2;
    }
    void ExpectKept(unsigned int time) {
        EXPECT_FALSE(ResetsAt(time, Counters::still)) << time;
        EXPECT_FALSE(LookedAtCounters()) << time;
        EXPECT_FALSE(ResetsAt(time, Counters::moving)) << time;
    }
    void ExpectReset(unsigned int time) { EXPECT_TRUE(ResetsAt(time, Counters::moving)) << time; }
    void ExpectResetOnlyIfStill(unsigned int time) {
        EXPECT_TRUE(ResetsAt(time, Counters::still)) << time;
        EXPECT_TRUE(LookedAtCounters()) << time;
        EXPECT_FALSE(ResetsAt(time, Counters::moving)) << time;
    }
};

TEST_F(ChkAndRst, AnotherDateResetsAtOnceAndClearsTheTablesTwice) {
    drv->SetReg(0x106, 20261119);
    drv->Record(true);
    EXPECT_EQ(chan->ChkAndRst(), 0);
    EXPECT_EQ(log.Lines(), (Lines_t{"INFO First time read fpga date:20261119, system "
                                    "date:20261120.",
                                    "INFO [channel:0] Clear all inst table over",
                                    "INFO Reset and Clear fpga table over.",
                                    "INFO [channel:0] Clear all inst table over"}));
    // The date once, the reset line up and down, then 262,081 addresses, two writes each, in two
    // tables, twice.
    EXPECT_EQ(drv->Accesses().size(), 3U + 262081U * 2 * 2 * 2);
}

// Inside trading time, and outside it, where the date alone would have it reset.
TEST_F(ChkAndRst, WithoutALocalTimeTheBoardIsKept) {
    for (const unsigned int time : {70000U, 100000U}) {
        for (const unsigned int date : {0U, 20261119U, 20261120U}) {
            FakeClock::Set(20261120, time);
            drv->SetReg(0x106, date);
            log.Clear();
            FakeClock::FailLocalTime(true);
            EXPECT_EQ(chan->ChkAndRst(), 0);
            FakeClock::FailLocalTime(false);
            EXPECT_EQ(
                log.Lines(),
                (Lines_t{
                    "INFO First time read fpga date:" + std::to_string(date) + ", system date:0.",
                    "ERROR Unable to determine the local time, the fpga is not reset."}));
        }
    }
}

TEST_F(ChkAndRst, AFutureDateOfTheBoardResetsToo) {
    drv->SetReg(0x106, 20261121);
    EXPECT_EQ(chan->ChkAndRst(), 0);
    EXPECT_TRUE(log.Has("INFO Reset and Clear fpga table over."));
}

TEST_F(ChkAndRst, ResetsFromMidnightUpTo080000) {
    ExpectReset(0);
    ExpectReset(75959);
    ExpectReset(80000);
}

TEST_F(ChkAndRst, KeepsFrom080001To085959) {
    ExpectKept(80001);
    ExpectKept(83000);
    ExpectKept(85959);
}

TEST_F(ChkAndRst, From090000To101450ResetsOnlyAStandingBoard) {
    ExpectResetOnlyIfStill(90000);
    ExpectResetOnlyIfStill(90001);
    ExpectResetOnlyIfStill(101449);
    ExpectResetOnlyIfStill(101450);
}

TEST_F(ChkAndRst, KeepsInTheMorningBreak) {
    ExpectKept(101451);
    ExpectKept(102959);
}

TEST_F(ChkAndRst, From103000To113000ResetsOnlyAStandingBoard) {
    ExpectResetOnlyIfStill(103000);
    ExpectResetOnlyIfStill(103001);
    ExpectResetOnlyIfStill(113000);
}

TEST_F(ChkAndRst, KeepsAtNoon) {
    ExpectKept(113001);
    ExpectKept(132959);
}

TEST_F(ChkAndRst, From133000To155959ResetsOnlyAStandingBoard) {
    ExpectResetOnlyIfStill(133000);
    ExpectResetOnlyIfStill(145959);
    ExpectResetOnlyIfStill(150000);
    ExpectResetOnlyIfStill(155959);
}

TEST_F(ChkAndRst, At160000ResetsAMovingBoardAfterALookAtItsCounters) {
    EXPECT_TRUE(ResetsAt(160000, Counters::moving));
    EXPECT_TRUE(LookedAtCounters());
}

TEST_F(ChkAndRst, From160001To201500ResetsWithoutALookAtTheCounters) {
    ExpectReset(160001);
    EXPECT_FALSE(LookedAtCounters());
    ExpectReset(201459);
    ExpectReset(201500);
    EXPECT_FALSE(LookedAtCounters());
}

TEST_F(ChkAndRst, KeepsFrom201501To205959) {
    ExpectKept(201501);
    ExpectKept(205510);
    ExpectKept(205959);
}

TEST_F(ChkAndRst, From210000To232959ResetsOnlyAStandingBoard) {
    ExpectResetOnlyIfStill(210000);
    ExpectResetOnlyIfStill(210001);
    ExpectResetOnlyIfStill(232959);
}

TEST_F(ChkAndRst, At233000ResetsAMovingBoardAfterALookAtItsCounters) {
    EXPECT_TRUE(ResetsAt(233000, Counters::moving));
    EXPECT_TRUE(LookedAtCounters());
}

TEST_F(ChkAndRst, From233001ToMidnightResetsWithoutALookAtTheCounters) {
    ExpectReset(233001);
    EXPECT_FALSE(LookedAtCounters());
    ExpectReset(235959);
}

TEST_F(ChkAndRst, ABoardThatDoesNotDecodeIsKeptThoughItsCountersStandStill) {
    FakeClock::SetTime(93000);
    drv->SetReg(0x104, 93000);
    drv->SetReg(0x11, 0);
    EXPECT_EQ(chan->ChkAndRst(), 0);
    EXPECT_FALSE(log.Has("INFO Reset and Clear fpga table over."));
    EXPECT_TRUE(log.Has("INFO 0x11 register value:0x0"));
}

TEST_F(ChkAndRst, TheBoardsClockCountsInTradingTime) {
    FakeClock::SetTime(101500);  // the host says break
    drv->SetReg(0x104, 101450);
    EXPECT_EQ(chan->ChkAndRst(), 0);
    EXPECT_TRUE(log.Has("INFO Reset and Clear fpga table over."));
}

TEST_F(ChkAndRst, ADateThatChangesBetweenTheTwoReadingsKeepsTheBoard) {
    FakeClock::SetTime(73000);
    drv->QueueReads(0x106, {20261120, 20261121});
    const unsigned long writesBefore = drv->WriteCount();
    EXPECT_EQ(chan->ChkAndRst(), 0);
    EXPECT_EQ(log.Lines(),
              (Lines_t{"INFO First time read fpga date:20261120, system date:20261120.",
                       "INFO System time:73000."}));
    EXPECT_EQ(drv->WriteCount(), writesBefore);
}

TEST_F(ChkAndRst, AMidnightBetweenTheTwoReadingsKeepsTheBoard) {
    FakeClock::SetTime(235959);
    int reads = 0;
    drv->OnAccess([&reads](const velatest::DrvAccess& access) {
        if (access.addr == 0x106 && ++reads == 1) {
            FakeClock::Set(20261121, 0);
        }
    });
    chan->ChkAndRst();
    EXPECT_FALSE(log.Has("INFO Reset and Clear fpga table over."));
}

TEST_F(ChkAndRst, AClockThatCannotBeReadKeepsTheBoard) {
    FakeClock::SetTime(93000);
    drv->FailReads(0x104);
    EXPECT_EQ(chan->ChkAndRst(), 0);
    EXPECT_TRUE(log.Has("ERROR [channel:0] 1 Unable to read time stamp !"));
    EXPECT_FALSE(log.Has("INFO 0x11 register value:0x3"));
    EXPECT_FALSE(log.Has("INFO Reset and Clear fpga table over."));
}

TEST_F(ChkAndRst, ADateThatCannotBeReadResets) {
    drv->FailReads(0x106);
    EXPECT_EQ(chan->ChkAndRst(), 0);
    EXPECT_TRUE(log.Has("INFO First time read fpga date:0, system date:20261120."));
    EXPECT_TRUE(log.Has("INFO Reset and Clear fpga table over."));
}

}  // namespace
