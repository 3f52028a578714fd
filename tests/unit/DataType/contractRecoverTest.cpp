// Rebuilding the instrument list inside trading time, and the report of what it lacks.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <mutex>
#include <thread>

#include "contractFixture.h"
#include "fakeClock.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::Pair;
using velatest::ContractRig;
using velatest::FakeClock;
using velatest::LogCapture;
using velatest::TempDir;
using Table = velatest::FakeDrv::Table;

constexpr unsigned int recoveryDay = 20261120;

// A recovery in a working directory of its own, on the morning of a trading day.
struct RecoverRig : ContractRig {
    RecoverRig() : dir(TempDir::Enter::yes) {
        Drv().Record(false);
        Drv().SetReg(0x106, recoveryDay);
        SetTimes(100000, 100000);
    }
    void SetTimes(unsigned int now, unsigned int boardTime) {
        FakeClock::Set(recoveryDay, now);
        Drv().SetReg(0x104, boardTime);
    }
    void SetReseted(bool reseted) { velatest::OpenFpgaServ::m_bReseted = reseted; }
    void WriteBin(const std::string& text) {
        std::FILE* file = std::fopen("bin", "w");
        ASSERT_NE(file, nullptr);
        std::fputs(text.c_str(), file);
        std::fclose(file);
    }

    TempDir dir;
};

const char* const goodBin =
    "3,SR209\n7,CF209\ncontract's_corresponding_time=20261120085600\nbin_file_over_tag";

std::vector<std::string> Without(const std::vector<std::string>& lines, const std::string& part) {
    std::vector<std::string> rest;
    for (const std::string& line : lines) {
        if (line.find(part) == std::string::npos) {
            rest.push_back(line);
        }
    }
    return rest;
}

TEST(RecoverFromBin, LoadsTheFile) {
    RecoverRig rig;
    rig.WriteBin(goodBin);
    const LogCapture log;
    EXPECT_EQ(rig.serv.RecoverInstsFromBin(), 0);
    EXPECT_THAT(rig.insts, ElementsAre(Pair("CF209", 7), Pair("SR209", 3)));
    EXPECT_EQ(log.Lines().back(), "INFO Get inst from bin success");
}

TEST(RecoverFromBin, MissingFileFails) {
    RecoverRig rig;
    const LogCapture log;
    EXPECT_EQ(rig.serv.RecoverInstsFromBin(), -1);
    EXPECT_THAT(log.Lines(), Not(Contains("INFO Get inst from bin success")));
}

TEST(RecoverFromFpga, FetchesTheTables) {
    RecoverRig rig;
    rig.Drv().SetTableName(Table::Sgl, 3, "SR209");
    EXPECT_TRUE(rig.serv.RecoverInstsFromFpga());
    EXPECT_THAT(rig.insts, ElementsAre(Pair("SR209", 3)));
}

TEST(RecoverAll, BinAndNoResetDoNotWait) {
    RecoverRig rig;
    rig.WriteBin(goodBin);
    const LogCapture log;
    EXPECT_EQ(rig.serv.RecoverAllInst(), 0);
    EXPECT_THAT(FakeClock::Sleeps(), IsEmpty());
    EXPECT_EQ(rig.Drv().ReadCount() + rig.Drv().WriteCount(), 0U);
    const std::vector<std::string> lines = log.Lines();
    ASSERT_GE(lines.size(), 4U);
    EXPECT_EQ(lines.front(), "INFO Now begin recover all inst");
    EXPECT_EQ(lines[lines.size() - 3], "INFO Get inst from bin success");
    EXPECT_EQ(lines[lines.size() - 2], "INFO Bin inst count:2");
    EXPECT_EQ(lines[lines.size() - 1], "INFO Fetch all inst from fpga over! insts count:2.");
}

TEST(RecoverAll, BinAfterResetWaits120SecondsAndReadsNoTable) {
    RecoverRig rig;
    rig.WriteBin(goodBin);
    rig.SetReseted(true);
    const LogCapture log;
    EXPECT_EQ(rig.serv.RecoverAllInst(), 0);
    EXPECT_THAT(FakeClock::Sleeps(), ElementsAre(120));
    EXPECT_EQ(rig.Drv().ReadCount() + rig.Drv().WriteCount(), 0U);
    const std::vector<std::string> lines = log.Lines();
    ASSERT_GE(lines.size(), 3U);
    EXPECT_EQ(lines[lines.size() - 3],
              "INFO We wait for fpga gather enough inst, please wait 120 second...");
    EXPECT_EQ(lines[lines.size() - 2], "INFO Bin inst count:2");
}

TEST(RecoverAll, NoBinAndNoResetReadTheTablesAtOnce) {
    RecoverRig rig;
    rig.Drv().SetTableName(Table::Sgl, 3, "SR209");
    rig.Drv().SetTableName(Table::Cmb, 4, "SPD-A&B");
    const LogCapture log;
    EXPECT_EQ(rig.serv.RecoverAllInst(), 0);
    EXPECT_THAT(FakeClock::Sleeps(), IsEmpty());
    EXPECT_THAT(rig.insts, ElementsAre(Pair("SPD-A&B", 4), Pair("SR209", 3)));
    EXPECT_THAT(Without(log.Lines(), "Cannot open file"),
                ElementsAre("INFO Now begin recover all inst",
                            "INFO [channel:0] Current fpga time:100000. system time:100000.",
                            "INFO System time:100000.", "INFO Expire time 0 minute.",
                            "INFO New round, fetch from fpga, inst count:2.",
                            "INFO Fetch all inst from fpga over! insts count:2."));
    // What the tables gave is not kept in a cache file.
    EXPECT_EQ(access("bin", F_OK), -1);
}

// Whether both locks of the subscription could be taken by another thread.
bool LocksAreFree() {
    bool isFree = false;
    std::thread([&isFree] {
        const std::unique_lock<std::mutex> order(Vela2_U50::CContractServ::order_mutex,
                                                 std::try_to_lock);
        const std::unique_lock<std::mutex> tables(Vela2_U50::CZceFpgaServ::subscribe_mutex,
                                                  std::try_to_lock);
        isFree = order.owns_lock() && tables.owns_lock();
    }).join();
    return isFree;
}

// The wait without a cache file after a reset: its lines, each before its sleep of 10 seconds.
void ExpectWait(RecoverRig& rig, unsigned int seconds) {
    rig.SetReseted(true);
    unsigned long accessesAtLastSleep = 0;
    FakeClock::OnSleep([&](unsigned int) {
        EXPECT_TRUE(LocksAreFree());
        accessesAtLastSleep = rig.Drv().ReadCount() + rig.Drv().WriteCount();
    });
    const LogCapture log;
    EXPECT_EQ(rig.serv.RecoverAllInst(), 0);
    std::vector<std::string> expected;
    for (unsigned int left = seconds; left >= 10; left -= 10) {
        expected.push_back("INFO Left " + std::to_string(left) + " seconds");
    }
    std::vector<std::string> waits;
    for (const std::string& line : log.Lines()) {
        if (line.starts_with("INFO Left ")) {
            waits.push_back(line);
        }
    }
    EXPECT_EQ(waits, expected);
    EXPECT_EQ(waits.size(), seconds / 10);
    EXPECT_EQ(FakeClock::Sleeps(), std::vector<unsigned int>(seconds / 10, 10));
    // Of the board only the date and the two times are read before the wait is over.
    EXPECT_EQ(accessesAtLastSleep, 3U);
    EXPECT_GT(rig.Drv().ReadCount(), 1000U);
    EXPECT_TRUE(log.Has("INFO Expire time " + std::to_string(seconds / 60) + " minute."));
}

TEST(RecoverAll, NoBinAfterResetInTheMorningBreakWaits20Minutes) {
    RecoverRig rig;
    rig.SetTimes(102000, 102000);
    ExpectWait(rig, 1200);
}

TEST(RecoverAll, NoBinAfterResetOutsideTheBreakWaits4Minutes) {
    RecoverRig rig;
    rig.SetTimes(103500, 103500);
    ExpectWait(rig, 240);
}

TEST(RecoverAll, StaleBinReadsTheTables) {
    RecoverRig rig;
    rig.WriteBin("3,SR209\ncontract's_corresponding_time=20261119085600\nbin_file_over_tag");
    rig.Drv().SetTableName(Table::Sgl, 8, "SR209");
    EXPECT_EQ(rig.serv.RecoverAllInst(), 0);
    EXPECT_THAT(rig.insts, ElementsAre(Pair("SR209", 8)));
}

TEST(RecoverAll, NothingFoundIsCountedAsZero) {
    RecoverRig rig;
    const LogCapture log;
    EXPECT_EQ(rig.serv.RecoverAllInst(), 0);
    EXPECT_EQ(log.Lines().back(), "INFO Fetch all inst from fpga over! insts count:0.");
}

struct ExpireCase {
    unsigned int now;
    unsigned int boardTime;
    unsigned int minutes;  // after a reset
};

// The board's time is taken only when its number is near the host's: otherwise the host's is.
const std::vector<ExpireCase> expireCases = {
    // The break by the board's clock, bounds inclusive.
    {101500, 101449, 4},
    {101500, 101450, 20},
    {101500, 101451, 20},
    {102900, 102959, 20},
    {102900, 103000, 20},
    {102900, 103001, 4},
    {101449, 101449, 4},
    {103000, 103000, 20},
    {103001, 103001, 4},
    // The host's clock alone, its difference to the board's too large.
    {102000, 0, 20},
    {113000, 0, 4},
    {95000, 0, 4},
    // The host's clock outside the break, the board's inside it and near.
    {101000, 101500, 20},
    {104500, 103000, 20},
    {140000, 0, 4},
    {211500, 0, 4},
    {90001, 90001, 4},
};

TEST(GetExpireTime, BreakByTheBoardsTime) {
    for (const bool reseted : {false, true}) {
        for (const ExpireCase& one : expireCases) {
            SCOPED_TRACE(testing::Message() << one.now << " " << one.boardTime << " " << reseted);
            RecoverRig rig;
            rig.SetTimes(one.now, one.boardTime);
            rig.SetReseted(reseted);
            const LogCapture log;
            const unsigned int minutes = reseted ? one.minutes : 0;
            EXPECT_EQ(rig.serv.GetExpireTime(), minutes);
            EXPECT_EQ(log.Lines().back(),
                      "INFO Expire time " + std::to_string(minutes) + " minute.");
            // Asked for in every case.
            EXPECT_EQ(rig.Drv().ReadCount(), 3U);
        }
    }
}

TEST(GetExpireTime, UnreadableBoardTimeIsNoBreak) {
    RecoverRig rig;
    rig.SetTimes(102000, 102000);
    rig.SetReseted(true);
    rig.Drv().FailReads(0x104);
    EXPECT_EQ(rig.serv.GetExpireTime(), 4U);
}

// The host's own time of day, 9:00:01 to 11:59:59, counts at its first reading: here the clock
// jumps into the break before it is read again for the time to rely on.
TEST(GetExpireTime, HostsTimeMustBeInTheMorningToo) {
    struct Jump {
        unsigned int first;
        std::int64_t seconds;  // from one reading to the next
        unsigned int minutes;
    };
    const std::vector<Jump> jumps = {{90000, 4560, 4},   // then 10:16:00
                                     {90001, 4560, 20},  // then 10:16:01
                                     {115959, -5400, 20},
                                     {120000, -5400, 4}};
    for (const Jump& jump : jumps) {
        SCOPED_TRACE(jump.first);
        RecoverRig rig;
        rig.SetReseted(true);
        rig.SetTimes(jump.first, 0);
        FakeClock::AdvanceNs(static_cast<std::uint64_t>(-jump.seconds * 1'000'000'000));
        FakeClock::StepPerReadNs(static_cast<std::uint64_t>(jump.seconds * 1'000'000'000));
        EXPECT_EQ(rig.serv.GetExpireTime(), jump.minutes);
        FakeClock::StepPerReadNs(0);
    }
}

TEST(IdChkPresent, ListsTheMissingIdsInOrder) {
    ContractRig rig;
    rig.insts = {{"SR209", 1}};
    rig.Rules(4).vecSubIds = {"YY888", "SR209", "XX999", "sr209"};
    EXPECT_FALSE(rig.serv.Id_chkPresent(4));
    EXPECT_THAT(rig.serv.m_vecLackIds, ElementsAre("YY888", "XX999", "sr209"));
    rig.Rules(5).vecSubIds = {"SR209"};
    EXPECT_TRUE(rig.serv.Id_chkPresent(5));
    EXPECT_THAT(rig.serv.m_vecLackIds, IsEmpty());
}

TEST(IdChkPresent, ClassesAreNotChecked) {
    ContractRig rig;
    rig.Rules(0).vecSubClasses = {"XX"};
    EXPECT_TRUE(rig.serv.Id_chkPresent(0));
}

TEST(DumpLackId, NamesTheMissingIdsOfEachChannel) {
    ContractRig rig;
    rig.insts = {{"SR209", 1}};
    rig.Rules(0).vecSubIds = {"SR209", "XX999"};
    rig.Rules(1).vecSubIds = {"SR209"};
    rig.Rules(2).vecSubClasses = {"ZZ"};
    rig.Rules(15).vecSubIds = {"XX999", "SR209", "YY888"};
    const LogCapture log;
    EXPECT_TRUE(rig.serv.DumpLackId());
    EXPECT_THAT(log.Lines(),
                ElementsAre("WARN [channel:0] Warning!! Hasn't receive these insts:XX999! The "
                            "program continues to run",
                            "WARN [channel:15] Warning!! Hasn't receive these insts:XX999,YY888! "
                            "The program continues to run"));
}

TEST(DumpLackId, EmptyListIsSaidAndNoChannelExamined) {
    ContractRig rig;
    rig.Rules(0).vecSubIds = {"XX999"};
    const LogCapture log;
    EXPECT_FALSE(rig.serv.DumpLackId());
    EXPECT_THAT(log.Lines(), ElementsAre("WARN All instrument count is zero."));
}

TEST(DumpLackId, NothingMissingSaysNothing) {
    ContractRig rig;
    rig.insts = {{"SR209", 1}};
    rig.Rules(0).vecSubIds = {"SR209"};
    const LogCapture log;
    EXPECT_TRUE(rig.serv.DumpLackId());
    EXPECT_THAT(log.Lines(), IsEmpty());
}

}  // namespace
