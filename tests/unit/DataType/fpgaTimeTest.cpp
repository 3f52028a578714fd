// The time of day to rely on.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "fakeClock.h"
#include "fpgaFixture.h"
#include "logCapture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using velatest::FakeClock;
using velatest::FpgaRig;
using velatest::LogCapture;
using velatest::Read;

constexpr unsigned int today = 20261120;

struct RealTimeCase {
    unsigned int now;
    unsigned int timeA;
    unsigned int timeB;
    unsigned int result;
};

// The hhmmss numbers are compared as they are, not as seconds.
const std::vector<RealTimeCase> tradingCases = {
    {93000, 93005, 93010, 93010},
    {93000, 93010, 93005, 93010},
    {100000, 93005, 93010, 100000},
    {93000, 93000, 0, 93000},
    // 1799 ahead, 1800 ahead
    {93000, 0, 94799, 94799},
    {93000, 0, 94800, 93000},
    {93000, 0, 94801, 93000},
    // 1799 behind, 1800 behind
    {95000, 93201, 0, 93201},
    {95000, 93200, 0, 95000},
    {95000, 93199, 0, 95000},
    {90001, 90000, 89999, 90000},
    {90001, 0, 0, 90001},
    {145959, 145959, 145958, 145959},
    {210001, 210000, 0, 210000},
    {210001, 235959, 0, 210001},
    {232959, 0xFFFFFFFF, 0, 232959},
};

TEST(GetRealTime, InsideTradingTimeTheBoardIsReliedOnWhenItIsNear) {
    for (const RealTimeCase& one : tradingCases) {
        SCOPED_TRACE(testing::Message() << one.now << " " << one.timeA << " " << one.timeB);
        FpgaRig rig(5);
        FakeClock::Set(today, one.now);
        rig.drv.SetReg(0x106, today);
        rig.drv.SetReg(0x104, one.timeA);
        rig.drv.SetReg(0x105, one.timeB);
        const LogCapture log;
        EXPECT_EQ(rig.serv.GetRealTime(), one.result);
        EXPECT_THAT(rig.drv.Accesses(), ElementsAre(Read(0x106, today), Read(0x104, one.timeA),
                                                    Read(0x105, one.timeB)));
        EXPECT_THAT(log.Lines(),
                    ElementsAre("INFO [channel:5] Current fpga time:" +
                                    std::to_string(std::max(one.timeA, one.timeB)) +
                                    ". system time:" + std::to_string(one.now) + ".",
                                "INFO System time:" + std::to_string(one.result) + "."));
    }
}

TEST(GetRealTime, OutsideTradingTimeNoRegisterIsRead) {
    for (const unsigned int now :
         {3000U, 80000U, 90000U, 150000U, 153000U, 210000U, 233000U, 235959U}) {
        FpgaRig rig;
        FakeClock::Set(today, now);
        rig.drv.SetReg(0x106, today);
        rig.drv.SetReg(0x104, now + 1);
        const LogCapture log;
        EXPECT_EQ(rig.serv.GetRealTime(), now);
        EXPECT_THAT(rig.drv.Accesses(), IsEmpty());
        EXPECT_THAT(log.Lines(), ElementsAre("INFO System time:" + std::to_string(now) + "."));
    }
}

TEST(GetRealTime, OtherDateLeavesTheBoardsTimeUnread) {
    FpgaRig rig;
    FakeClock::Set(today, 93000);
    rig.drv.SetReg(0x106, today - 1);
    rig.drv.SetReg(0x104, 93005);
    const LogCapture log;
    EXPECT_EQ(rig.serv.GetRealTime(), 93000U);
    EXPECT_THAT(rig.drv.Accesses(), ElementsAre(Read(0x106, today - 1)));
    EXPECT_THAT(log.Lines(), ElementsAre("INFO System time:93000."));
}

TEST(GetRealTime, OtherDateInTheAfternoonGivesTheSystemTime) {
    FpgaRig rig;
    FakeClock::Set(today, 153000);
    EXPECT_EQ(rig.serv.GetRealTime(), 153000U);
}

TEST(GetRealTime, TheFirstMinutesAfterMidnightGiveZero) {
    const std::map<unsigned int, unsigned int> results = {
        {0, 0}, {1, 0}, {1000, 0}, {1758, 0}, {1759, 0}, {1800, 1800}, {1801, 1801}};
    for (const auto& [now, result] : results) {
        FpgaRig rig;
        FakeClock::Set(today, now);
        const LogCapture log;
        EXPECT_EQ(rig.serv.GetRealTime(), result) << now;
        EXPECT_THAT(log.Lines(), ElementsAre("INFO System time:" + std::to_string(result) + "."));
    }
}

TEST(GetRealTime, WithoutLocalTimeItFails) {
    FpgaRig rig;
    FakeClock::Set(today, 93000);
    rig.drv.SetReg(0x106, today);
    const LogCapture log;
    FakeClock::FailLocalTime(true);
    EXPECT_EQ(rig.serv.GetRealTime(), 0xFFFFFFFFU);
    FakeClock::FailLocalTime(false);
    EXPECT_THAT(rig.drv.Accesses(), ElementsAre());
    EXPECT_THAT(log.Lines(), ElementsAre("ERROR Unable to determine the local time."));
}

TEST(GetRealTime, FailedFirstTimeReadFails) {
    FpgaRig rig(3);
    FakeClock::Set(today, 93000);
    rig.drv.SetReg(0x106, today);
    rig.drv.FailReads(0x104);
    const LogCapture log;
    EXPECT_EQ(rig.serv.GetRealTime(), 0xFFFFFFFFU);
    EXPECT_THAT(rig.drv.Accesses(), ElementsAre(Read(0x106, today), Read(0x104, 0)));
    EXPECT_THAT(log.Lines(), ElementsAre("ERROR [channel:3] 1 Unable to read time stamp !"));
}

TEST(GetRealTime, FailedSecondTimeReadFailsWithAnyChannelInItsLine) {
    FpgaRig rig(3);
    FakeClock::Set(today, 93000);
    rig.drv.SetReg(0x106, today);
    rig.drv.FailReads(0x105);
    const LogCapture log;
    EXPECT_EQ(rig.serv.GetRealTime(), 0xFFFFFFFFU);
    EXPECT_EQ(rig.drv.Accesses().size(), 3U);
    ASSERT_EQ(log.Lines().size(), 1U);
    EXPECT_THAT(log.Lines()[0],
                testing::MatchesRegex("ERROR \\[channel:[0-9]+\\] 2 Unable to read time stamp !"));
}

TEST(GetRealTime, FailedDateReadGivesTheSystemTime) {
    FpgaRig rig;
    FakeClock::Set(today, 93000);
    rig.drv.SetReg(0x106, today);
    rig.drv.SetReg(0x104, 93005);
    rig.drv.FailReads(0x106);
    EXPECT_EQ(rig.serv.GetRealTime(), 93000U);
    EXPECT_EQ(rig.drv.Accesses().size(), 1U);
}

}  // namespace
