// A start of the master inside trading time, as whole processes on the software board: where the
// instrument list comes from, how long the start waits, and that each channel is given what its
// rules ask for.

#include <gmock/gmock.h>
#include <signal.h>  // NOLINT(modernize-deprecated-headers): SIGKILL

#include <cstdio>
#include <ostream>
#include <sstream>

#include "startDay.h"

using testing::HasSubstr;
using testing::Not;

namespace velatest {

namespace {

constexpr const char* streamOpen = "Init dma channel :CUSTOM_CHAN0_DATA success.";
constexpr const char* fromCache = "Get inst from bin success\n";
constexpr const char* fromTables = "New round, fetch from fpga, inst count:54.\n";
constexpr const char* fromEmptyTables = "New round, fetch from fpga, inst count:0.\n";
constexpr const char* boardReset = "Reset and Clear fpga table over.\n";

// Finding the board's core takes a second; a look at the parse counters two, a reset one.
constexpr unsigned int openSeconds = 1;
constexpr unsigned int lookSeconds = 2;
constexpr unsigned int resetSeconds = 1;

class StartInTradingTime : public StartDay {
  protected:
    // A start at this time, through all its waits; its output until the stream is open.
    std::string StartAt(unsigned int hhmmss, const std::string& name) {
        m_clock.Set(today, hhmmss);
        m_begun = hhmmss;
        m_master = Start(name);
        EXPECT_TRUE(m_master->WaitFor(streamOpen)) << m_master->Output();
        return m_master->Output();
    }
    void ExpectTook(unsigned int seconds) const {
        EXPECT_EQ(m_clock.TimeOfDay(), TimeOfSeconds(DaySeconds(m_begun) + seconds));
    }
    // As the table says, for channel 0's master and for another process on channel 3.
    void ExpectAllDelivered(const std::string& name) {
        auto second = Start("second", 3);
        EXPECT_EQ(Delivered(*second, "second"), Wanted(3, m_listed));
        ExpectDelivered(*m_master, name, m_listed);
    }

    unsigned int m_begun = 0;
    std::unique_ptr<Process> m_master;
};

// ---- On a board that ran in this session -------------------------------------------------------

struct Session {
    const char* name;
    bool night;
    unsigned int start;
    unsigned int otherSession;  // a time at which the other session's file would be made
};
std::ostream& operator<<(std::ostream& out, const Session& row) {
    return out << row.name;
}
constexpr Session sessions[] = {{"Day", false, 93000, 205511}, {"Night", true, 213000, 85511}};

class StartInSession : public StartInTradingTime, public testing::WithParamInterface<Session> {
  protected:
    void SetUp() override {
        StartInTradingTime::SetUp();
        ASSERT_FALSE(HasFatalFailure());
        RunSession("master", today, GetParam().night);
    }
    // Nothing was reset, so the start took no longer than the look at a board that works.
    void ExpectKept(const std::string& output) const {
        EXPECT_THAT(output, Not(HasSubstr(boardReset)));
        EXPECT_THAT(output, Not(HasSubstr("Left ")));
        EXPECT_THAT(output, Not(HasSubstr("please wait 120 second")));
        ExpectTook(openSeconds + lookSeconds);
    }
};

TEST_P(StartInSession, RecoversFromTheCacheFileOfTheSameSession) {
    const std::string before = ReadFile(Path("master/bin"));
    const std::string output = StartAt(GetParam().start, "master");
    EXPECT_THAT(output, HasSubstr("Bin is validate\n"));
    EXPECT_THAT(output, HasSubstr(fromCache));
    EXPECT_THAT(output, HasSubstr("Bin inst count:54\n"));
    EXPECT_THAT(output, HasSubstr("Fetch all inst from fpga over! insts count:54.\n"));
    EXPECT_THAT(output, Not(HasSubstr("New round, fetch from fpga")));
    ExpectKept(output);
    ExpectAllDelivered("master");
    EXPECT_EQ(ReadFile(Path("master/bin")), before) << "a start in the session leaves it alone";
}

TEST_P(StartInSession, RecoversFromTheTablesWithoutACacheFile) {
    const std::string output = StartAt(GetParam().start, "elsewhere");
    EXPECT_THAT(output, HasSubstr("Cannot open file:bin, errmsg:No such file or directory\n"));
    EXPECT_THAT(output, HasSubstr("Expire time 0 minute.\n"));
    EXPECT_THAT(output, HasSubstr(fromTables));
    ExpectKept(output);
    ExpectAllDelivered("elsewhere");
}

// A killed master leaves its cache file, and the board goes on for the next one.
TEST_P(StartInSession, ARestartAfterAKillGetsTheSameInstruments) {
    StartAt(GetParam().start, "master");
    ASSERT_TRUE(m_master->WaitFor("zce-recv type=")) << m_master->Output();
    m_master->Signal(SIGKILL);
    EXPECT_EQ(m_master->WaitEnd(), 128 + SIGKILL);
    const std::string output = StartAt(GetParam().start + 100, "master");
    EXPECT_THAT(output, HasSubstr(fromCache));
    ExpectKept(output);
    ExpectAllDelivered("master");
}

// The names in these files are not the exchange's: had one been believed, nothing would come.
TEST_P(StartInSession, DoesNotBelieveAStaleCacheFile) {
    const std::vector<Listed> foreign = {{0, 1, "XX101"}, {0, 2, "XX103"}};
    const bool night = GetParam().night;
    const std::string files[] = {
        CacheFile(foreign, today - 1, night ? 205511 : 85511),
        CacheFile(foreign, today, GetParam().otherSession),
        CacheFile(foreign, today, night ? 195959 : 75959),
        CacheFile(foreign, today, night ? 220000 : 103000),
    };
    unsigned int turn = 0;
    for (const std::string& file : files) {
        const std::string name = "stale" + std::to_string(turn++);
        Where(name);
        WriteFile(Path(name) + "/bin", file);
        const std::string output = StartAt(GetParam().start, name);
        EXPECT_THAT(output, HasSubstr(night ? "BinCreTime is not in the current date's 8-9 PM"
                                            : "BinCreTime is not in the current date's 8-9 AM"));
        EXPECT_THAT(output, HasSubstr("Bin is not validate\n"));
        EXPECT_THAT(output, HasSubstr(fromTables));
        ExpectKept(output);
        ExpectDelivered(*m_master, name, m_listed);
    }
}

TEST_P(StartInSession, DoesNotBelieveATornCacheFile) {
    const std::string whole = ReadFile(Path("master/bin"));
    const std::string::size_type cuts[] = {0,
                                           1,
                                           whole.find('\n'),
                                           whole.find('\n') + 1,
                                           whole.find("contract's"),
                                           whole.find("contract's") + 20,
                                           whole.find("bin_file_over_tag"),
                                           whole.size() - 1};
    for (const auto cut : cuts) {
        const std::string name = "torn" + std::to_string(cut);
        Where(name);
        WriteFile(Path(name) + "/bin", whole.substr(0, cut));
        const std::string output = StartAt(GetParam().start, name);
        EXPECT_THAT(output, HasSubstr("Bin file is not complete.\n")) << cut;
        EXPECT_THAT(output, HasSubstr(fromTables));
        ExpectKept(output);
        ExpectDelivered(*m_master, name, m_listed);
    }
}

INSTANTIATE_TEST_SUITE_P(Start, StartInSession, testing::ValuesIn(sessions),
                         [](const auto& session) { return session.param.name; });

// The tables of a board that ran in the morning do for the breaks too: nothing is waited for.
TEST_F(StartInTradingTime, ReadsTheTablesAtOnceInTheBreaksOfTheDay) {
    RunSession("master", today, false);
    for (const unsigned int inBreak : {101500U, 102958U, 113001U, 120000U, 132958U}) {
        const std::string name = "at" + std::to_string(inBreak);
        const std::string output = StartAt(inBreak, name);
        EXPECT_THAT(output, HasSubstr("Expire time 0 minute.\n"));
        EXPECT_THAT(output, HasSubstr(fromTables));
        EXPECT_THAT(output, Not(HasSubstr(boardReset)));
        ExpectTook(openSeconds);
        ExpectDelivered(*m_master, name, m_listed);
    }
}

// What a start after the auction's end has learnt stands in a cache file like any other, and a
// restart believes it: only without that file does it find the whole list.
TEST_F(StartInTradingTime, AfterALateStartTheWholeListComesWithoutItsCacheFile) {
    LetBoardLearn(today, 83100);
    StartAt(85700, "late");
    m_clock.Run(2);
    ASSERT_TRUE(m_master->WaitFor("All channel subs over.")) << m_master->Output();
    const std::vector<Listed> part = InCache(Path("late/bin"));
    EXPECT_LT(part.size(), m_listed.size());
    ExpectDelivered(*m_master, "late", part);

    EXPECT_THAT(StartAt(90500, "late"), HasSubstr(fromCache));
    ExpectDelivered(*m_master, "late", part);

    ASSERT_EQ(std::remove(Path("late/bin").c_str()), 0);
    EXPECT_THAT(StartAt(90600, "late"), HasSubstr(fromTables));
    ExpectDelivered(*m_master, "late", m_listed);
}

// ---- After a reset of the board ----------------------------------------------------------------
// The board is freshly started: its date is not today's, and it has heard nothing yet. A wait of
// four minutes that lies in a break, in which the exchange is silent, is of no use: such a start
// ends with nothing, deliberately.

struct Reset {
    const char* name;
    unsigned int start;
    bool cache;
    unsigned int waitSeconds;
    bool heard = true;  // whether the exchange repeats its list during the wait
};
std::ostream& operator<<(std::ostream& out, const Reset& row) {
    return out << row.name;
}
constexpr Reset resets[] = {
    {"MorningWithCache", 94000, true, 120},
    {"MorningWithout", 94000, false, 240},
    {"AfternoonWithCache", 134500, true, 120},
    {"AfternoonWithout", 134500, false, 240},
    {"MorningBreakWithCache", 102000, true, 120},
    {"MorningBreakWithout", 102000, false, 1200},
    {"FirstSecondOfTheBreak", 101448, false, 1200},
    {"LastSecondBeforeIt", 101447, false, 240, false},
    {"LastSecondOfTheBreak", 102958, false, 1200},
    {"FirstSecondAfterIt", 102959, false, 240},
    {"LunchWithCache", 120000, true, 120},
    {"LunchWithout", 120000, false, 240, false},
    {"NightWithCache", 220000, true, 120},
    {"NightWithout", 220000, false, 240},
};

class StartAfterReset : public StartInTradingTime, public testing::WithParamInterface<Reset> {};

TEST_P(StartAfterReset, WaitsForTheBoardToGatherTheList) {
    const Reset& row = GetParam();
    if (row.cache) {
        Where("master");
        WriteFile(Path("master/bin"),
                  CacheFile(m_listed, today, row.start < 150000 ? 85511 : 205511));
    }
    const std::string output = StartAt(row.start, "master");
    EXPECT_THAT(output, HasSubstr("First time read fpga date:0, system date:20261118.\n"));
    EXPECT_THAT(output, HasSubstr(boardReset));
    ExpectTook(openSeconds + resetSeconds + row.waitSeconds);
    EXPECT_EQ(CountIn(output, "please wait 120 second..."), row.cache ? 1U : 0U);
    EXPECT_EQ(CountIn(output, fromCache), row.cache ? 1U : 0U);
    EXPECT_EQ(CountIn(output, "Left "), row.cache ? 0 : row.waitSeconds / 10);
    if (!row.cache) {
        EXPECT_THAT(output, HasSubstr("Expire time " + std::to_string(row.waitSeconds / 60) +
                                      " minute.\n"));
        EXPECT_THAT(output, HasSubstr("Left " + std::to_string(row.waitSeconds) + " seconds\n"));
        EXPECT_THAT(output, HasSubstr("Left 10 seconds\n"));
        EXPECT_THAT(output, HasSubstr(row.heard ? fromTables : fromEmptyTables));
    }
    if (row.heard) {
        ExpectAllDelivered("master");
    } else {
        EXPECT_THAT(output, HasSubstr("All instrument count is zero.\n"));
        ExpectNothing(*m_master);
    }
}

INSTANTIATE_TEST_SUITE_P(Start, StartAfterReset, testing::ValuesIn(resets),
                         [](const auto& row) { return row.param.name; });

// ---- Under faketime -----------------------------------------------------------------------------
// The clock that a user without this test's one has: all programs below one faketime command share
// it, and a wait of four minutes takes four seconds at sixty times the speed.

class StartUnderFaketime : public Market {
  protected:
    void SetUp() override {
        m_environment.push_back("TZ=UTC");
        Process::Options where = Where("clock");
        where.environment.push_back("FAKETIME_DONT_RESET=1");
        // Keeps the clock, and says by which variables others come onto it.
        const std::string keeper =
            "env | grep -E 'FAKETIME|LD_PRELOAD'; echo pid $$; exec sleep 7200";
        m_keeper = std::make_unique<Process>(
            std::vector<std::string>{"faketime", "-f", "@2026-11-18 09:40:00 x60", "sh", "-c",
                                     keeper},
            where);
        ASSERT_TRUE(m_keeper->WaitFor("\npid ")) << m_keeper->Output();
        std::istringstream lines(m_keeper->Output());
        for (std::string line; std::getline(lines, line);) {
            if (line.find('=') != std::string::npos) {
                m_environment.push_back(line);
            }
        }
    }
    // faketime itself waits for the shell's end, and then takes its own shared memory away.
    void TearDown() override {
        const std::string line = m_keeper->LastLine("pid ");
        if (!line.empty()) {
            kill(static_cast<pid_t>(std::stol(line.substr(4))), SIGTERM);
        }
        m_keeper->WaitEnd();
    }
    std::unique_ptr<Process> m_keeper;
};

TEST_F(StartUnderFaketime, ABoardThatWasResetIsReadAfterFourOfItsMinutes) {
    StartSmallBoard();
    auto master = Receive(0);
    ASSERT_TRUE(master->WaitFor("zce-recv type=")) << master->Output();
    EXPECT_THAT(master->Output(), HasSubstr("Expire time 4 minute.\n"));
    EXPECT_EQ(CountIn(master->Output(), "Left "), 24U);
    EXPECT_THAT(master->Output(), HasSubstr("New round, fetch from fpga, inst count:12.\n"));
    EXPECT_THAT(master->Output(), HasSubstr("[channel:0] Filter needed sgl count:4, cmb count:2."));
    StopBoard();
    ExpectSame(Finish(*master, 0), 0);
}

}  // namespace

}  // namespace velatest
