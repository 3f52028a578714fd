// Midnight, the evening's session and a clock set back, as a whole start sees them: the board's
// date, the cache file, the flags of the call auction.

#include <functional>

#include "accessScript.h"
#include "fakeDrv.h"
#include "startBench.h"

namespace velatest {
namespace {

constexpr unsigned int friday = 20261120;
constexpr unsigned int saturday = 20261121;

class DayChange : public testing::Test {
  public:
    DayChange() {
        PutFile("test.ini", "[config]\ndevice=xilinx0:0\n[channel0]\ninsts=all\noptions=recv\n");
        bench.board.tradeDate = friday;
    }
    // A start of the master at this time.
    void StartAt(unsigned int date, unsigned int hhmmss) {
        FakeClock::Set(date, hhmmss);
        bench.log.Clear();
        bench.Start();
    }
    void ReceiveAt(unsigned int date, unsigned int hhmmss, const Insts_t& insts) {
        FakeClock::Set(date, hhmmss);
        bench.Receive(MapPacket(insts));
    }
    // Learns one instrument in the evening's call auction and subscribes it.
    void HoldTheEveningAuction() {
        StartAt(friday, 203000);
        ReceiveAt(friday, 205000, {{5, "SR209"}});
        ReceiveAt(friday, 205515, {{5, "SR209"}});
        ReceiveAt(friday, 205520, {{5, "SR209"}});
    }
    bool RecoversFromCache() {
        return bench.log.Has("INFO Get inst from bin success") &&
               !bench.log.Has("INFO Expire time 0 minute.");
    }

    StartBench bench{StartBench::Log::On};
};

// The reset's second leads into the next day, whose date the board is given.
TEST_F(DayChange, ResetJustBeforeMidnightGivesTheBoardTheNewDate) {
    StartAt(friday, 235958);
    EXPECT_EQ(LocalNow(), 0U);
    EXPECT_EQ(bench.board.resets, 1U);
    EXPECT_EQ(bench.board.tradeDate, saturday);
    EXPECT_EQ(bench.board.mapTrans, 1U);
    EXPECT_TRUE(bench.log.Has("INFO First time read fpga date:20261120, system date:20261120."));
    EXPECT_TRUE(bench.log.Has("INFO System time:235959."));
    EXPECT_TRUE(bench.log.Has("INFO Update fpga addr 0x106 to 20261121 over"));
}

TEST_F(DayChange, OneSecondAfterMidnightTheBoardIsOfAnotherDay) {
    StartAt(friday, 235959);
    EXPECT_EQ(bench.board.resets, 1U);
    EXPECT_EQ(bench.board.tradeDate, saturday);
    EXPECT_TRUE(bench.log.Has("INFO First time read fpga date:20261120, system date:20261121."));
    // No time of day was asked for.
    EXPECT_TRUE(bench.log.Has("INFO Reset and Clear fpga table over."));
    EXPECT_FALSE(bench.log.Has("INFO System time:0."));
}

TEST_F(DayChange, FirstMinutesOfADayCountAsMidnight) {
    bench.board.tradeDate = saturday;
    StartAt(saturday, 1758);
    EXPECT_TRUE(bench.log.Has("INFO System time:0."));
    EXPECT_EQ(bench.board.resets, 1U);
    StartAt(saturday, 1759);  // the open of the board takes a second
    EXPECT_TRUE(bench.log.Has("INFO System time:1800."));
    EXPECT_EQ(bench.board.resets, 2U);
}

// A board in memory whose date or whose host's day goes on between the two readings of the date.
class DateBetweenReadings : public testing::Test {
  public:
    DateBetweenReadings() {
        drv->SetReg(0x103, 0xF);
        drv->SetReg(0x106, friday);
    }
    void StartWithSecondReading(const std::function<void()>& change) {
        drv->OnAccess([this, change](const DrvAccess& access) {
            if (access.op == "ReadInt32" && access.addr == 0x106 && ++m_dateReads == 2) {
                change();
            }
        });
        FakeClock::Set(friday, 70000);  // a time at which the board would be reset
        bench.Start(drv);
    }

    StartBench bench;
    FakeDrv* drv = new FakeDrv;

  private:
    int m_dateReads = 0;
};

TEST_F(DateBetweenReadings, WithoutAChangeTheBoardIsReset) {
    StartWithSecondReading([] {});
    AccessScript script(drv->Accesses());
    script.Read(0x106, friday);
    script.Read(0x106, friday);
    script.Resets();
}

TEST_F(DateBetweenReadings, ABoardThatGoesOnKeepsWhatItHolds) {
    StartWithSecondReading([this] { drv->SetReg(0x106, saturday); });
    AccessScript script(drv->Accesses());
    script.Read(0x106, friday);
    script.Read(0x106, saturday);
    script.Read(0x103, 0xF);
    script.Write(0x106, friday);
    script.UnsubscribesAll();
    script.LoggedWrite(0x12, 1);
    script.End();
}

// Every reading of the clock takes a second here, so that midnight can come between the two of the
// date: the board, which after 23:30 would be reset, is then kept.
TEST(MidnightBetweenReadings, KeepsTheBoard) {
    StartBench bench;
    std::string course;  // from one start second to the next
    for (unsigned int hhmmss = 235940; hhmmss <= 235959; ++hhmmss) {
        bench.board.Clear();
        bench.board.tradeDate = friday;
        FakeClock::Set(friday, hhmmss);
        FakeClock::StepPerReadNs(1'000'000'000);
        bench.Start();
        FakeClock::StepPerReadNs(0);
        const char did = bench.board.resets == 0 ? 'k' : 'r';
        if (course.empty() || course.back() != did) {
            course += did;
        }
    }
    // Both readings on Friday, one on each day, both on Saturday with a board of Friday.
    EXPECT_EQ(course, "rkr");
}

// ---- the cache file ----

// The date in the file is that of the host when the end was found, the time the board's.
TEST_F(DayChange, CacheFileEndedAfterMidnightIsOfTheNewDay) {
    StartAt(friday, 235000);
    EXPECT_EQ(bench.board.mapTrans, 1U);
    ReceiveAt(friday, 235950, {{5, "SR209"}});
    // A host whose clock is far behind the board's: the board holds the morning's auction already.
    auto* const lateHost = new FakeDrv;
    lateHost->SetReg(0x103, 0xF);
    lateHost->SetReg(0x106, friday);
    bench.Start(lateHost);
    lateHost->SetReg(0x104, 85400);
    ReceiveAt(friday, 235955, {{5, "SR209"}});
    lateHost->SetReg(0x104, 85510);
    ReceiveAt(saturday, 5, {{6, "TA209"}});
    EXPECT_EQ(FileText("bin"),
              "5,SR209\ncontract's_corresponding_time=20261121085510\nbin_file_over_tag");
    EXPECT_EQ(CZceDmaChanImpl::g_uiContractSettleTm, 20261121085510UL);
    // Good for Saturday's session.
    bench.Stop();
    bench.board.tradeDate = saturday;
    StartAt(saturday, 93000);
    EXPECT_TRUE(RecoversFromCache());
}

TEST_F(DayChange, EveningsFileServesTheEveningAndNotTheNextMorning) {
    HoldTheEveningAuction();
    const std::string bin =
        "5,SR209\ncontract's_corresponding_time=20261120205515\nbin_file_over_tag";
    EXPECT_EQ(FileText("bin"), bin);
    EXPECT_TRUE(bench.log.Has("INFO All channel subs over."));

    StartAt(friday, 223000);
    EXPECT_TRUE(RecoversFromCache());
    EXPECT_EQ(bench.Insts().at("SR209"), 5);

    StartAt(saturday, 93000);
    EXPECT_FALSE(RecoversFromCache());
    EXPECT_TRUE(
        bench.log.Has("WARN BinCreTime is not in the current date's 8-9 AM range.current "
                      "time:20261121093002, bintime:20261120205515."));
    EXPECT_TRUE(bench.log.Has("INFO Expire time 4 minute."));
    EXPECT_EQ(FileText("bin"), bin) << "a stale file is left as it is";
}

TEST_F(DayChange, MorningsFileDoesNotServeTheEvening) {
    PutFile("bin", "5,SR209\ncontract's_corresponding_time=20261120085515\nbin_file_over_tag");
    StartAt(friday, 93000);
    EXPECT_TRUE(RecoversFromCache());
    StartAt(friday, 213000);  // a look at standing counters and a reset: three more seconds
    EXPECT_FALSE(RecoversFromCache());
    EXPECT_TRUE(
        bench.log.Has("WARN BinCreTime is not in the current date's 8-9 PM range. current "
                      "time:20261120213004, Bintime:20261120085515."));
}

// A start in the night's last second still recovers; one second later a new file is begun.
TEST_F(DayChange, NightSessionEndsWithItsLastSecond) {
    const char* const bin =
        "5,SR209\ncontract's_corresponding_time=20261120205515\nbin_file_over_tag";
    PutFile("bin", bin);
    StartAt(friday, 232958);  // not decoding: nothing but the open takes time
    EXPECT_EQ(LocalNow(), 232959U);
    EXPECT_TRUE(RecoversFromCache());
    EXPECT_EQ(FileText("bin"), bin);
    bench.board.decode = 0;
    StartAt(friday, 232959);
    EXPECT_EQ(LocalNow(), 233001U);  // the reset of the evening's gap
    EXPECT_EQ(bench.board.mapTrans, 1U);
    EXPECT_EQ(FileText("bin"), "");
}

// The day's and the night's windows of the call auction change with the hour 15.
TEST_F(DayChange, HourOfTheHostChoosesTheAuction) {
    bench.board.tradeDate = friday;
    auto* const drv = new FakeDrv;
    drv->SetReg(0x103, 0xF);
    drv->SetReg(0x106, friday);
    FakeClock::Set(friday, 150100);
    bench.Start(drv);
    drv->SetReg(0x104, 80000);
    ReceiveAt(friday, 150200, {{5, "SR209"}});
    drv->SetReg(0x104, 85600);  // the day's auction over, but it is not day
    ReceiveAt(friday, 150300, {{6, "TA209"}});
    EXPECT_EQ(Peer::CallTimeExpired(), 0);
    drv->SetReg(0x104, 205600);
    ReceiveAt(friday, 150400, {{7, "CF209"}});
    EXPECT_EQ(Peer::CallTimeExpired(), 1);
    EXPECT_EQ(bench.Insts().size(), 2U);
}

// ---- a clock set back ----

TEST_F(DayChange, ClockSetBackADayMeansAnotherDaysBoard) {
    bench.board.tradeDate = saturday;
    PutFile("bin", "5,SR209\ncontract's_corresponding_time=20261121085515\nbin_file_over_tag");
    StartAt(friday, 100000);
    EXPECT_EQ(bench.board.resets, 1U);
    EXPECT_EQ(bench.board.tradeDate, friday);
    EXPECT_TRUE(
        bench.log.Has("WARN BinCreTime is not in the current date's 8-9 AM range.current "
                      "time:20261120100002, bintime:20261121085515."));
    EXPECT_TRUE(bench.log.Has("INFO Expire time 4 minute."));
}

// What the auction's end has set stays set: the next packet subscribes although it is 08:20 again.
TEST_F(DayChange, ClockSetBackAfterTheAuctionsEndStillSubscribes) {
    StartAt(friday, 83000);
    ReceiveAt(friday, 85400, {{5, "SR209"}});
    ReceiveAt(friday, 85515, {{5, "SR209"}});
    ReceiveAt(friday, 82000, {{6, "TA209"}});
    EXPECT_EQ(bench.board.decode, 3U);
    EXPECT_EQ(bench.board.mapTrans, 0U);
    EXPECT_EQ(bench.board.sgl.Mask(5), 1U);
    EXPECT_EQ(bench.Insts().size(), 1U);
}

// Out of trading time again, the learning goes on where it was.
TEST_F(DayChange, ClockSetBackOutOfTheSessionLearnsOn) {
    StartAt(friday, 83000);
    ReceiveAt(friday, 85000, {{5, "SR209"}});
    ReceiveAt(friday, 90005, {{6, "TA209"}});  // in trading time: the transfer is closed
    EXPECT_EQ(bench.board.mapTrans, 0U);
    ReceiveAt(friday, 85000, {{7, "CF209"}});
    EXPECT_EQ(bench.Insts().size(), 2U);
    EXPECT_EQ(FileText("bin"), "5,SR209\n7,CF209\n");
    ReceiveAt(friday, 85510, {{8, "MA209"}});
    ReceiveAt(friday, 85511, {{8, "MA209"}});
    EXPECT_EQ(bench.board.sgl.Mask(5), 1U);
    EXPECT_EQ(bench.board.sgl.Mask(6), 0U);
    EXPECT_EQ(bench.board.sgl.Mask(7), 1U);
}

// Set back during the wait of a recovery: the wait is told in sleeps, not in times of day.
TEST_F(DayChange, ClockSetBackDuringTheWaitLeavesItsLength) {
    FakeClock::OnSleep([](unsigned int seconds) {
        if (seconds == 10) {
            FakeClock::Set(friday, 80000);
        }
    });
    bench.board.tradeDate = saturday;
    StartAt(friday, 100000);
    std::vector<unsigned int> sleeps = {1, 1};
    sleeps.insert(sleeps.end(), 24, 10);
    EXPECT_EQ(FakeClock::Sleeps(), sleeps);
    EXPECT_EQ(bench.board.decode, 3U);
    EXPECT_EQ(bench.board.mapTrans, 0U);
}

// The log goes on in the file of the later day, here of the later year.
TEST_F(DayChange, LogOfAStartThatCrossesMidnightIsInBothDaysFiles) {
    bench.board.tradeDate = 20281231;
    StartAt(20281231, 225000);  // the first line of that day
    StartAt(20281231, 235958);
    const std::string before = FileText(bench.log.Dir() + "/fpga_20281231.log");
    const std::string after = FileText(bench.log.Dir() + "/fpga_20290101.log");
    EXPECT_NE(before.find("][fpga]System time:235959."), std::string::npos);
    EXPECT_EQ(before.find("[20290101"), std::string::npos);
    EXPECT_EQ(after.find("[20281231"), std::string::npos);
    EXPECT_NE(after.find("][fpga]Reset and Clear fpga table over."), std::string::npos);
    EXPECT_NE(after.find("][fpga]Fpga start transmit inst map pkt."), std::string::npos);
    StartAt(20281231, 235000);  // set back: the file of the later day stays
    EXPECT_EQ(FileText(bench.log.Dir() + "/fpga_20281231.log"), before);
    EXPECT_NE(FileText(bench.log.Dir() + "/fpga_20290101.log").find("[20281231"),
              std::string::npos);
}

}  // namespace
}  // namespace velatest
