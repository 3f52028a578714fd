// A start at every minute of the day and at every bound of a rule, on every state of the board and
// of the cache file: it takes the branch that the table of the day gives. Each hour is a case of
// its own, so that they run beside each other.

#include <cstdio>
#include <numeric>

#include "check/WhenStart.h"
#include "dayTable.h"
#include "slowBuild.h"
#include "startBench.h"

namespace velatest {
namespace {

// A slow build tries every so many minutes alone, and one in so many of the states everywhere.
constexpr unsigned int minuteStep = slowBuild ? 60 : 1;
constexpr unsigned int stateStep = 12;
constexpr unsigned int otherDayStateStep = 48;
constexpr unsigned int otherDayStep = 3;

constexpr unsigned int today = 20261120;
constexpr unsigned int yesterday = 20261119;
constexpr unsigned long clearedWords = 262081;  // of one table, by one clearing
constexpr unsigned long unsubscribedWords = 6UL * 4096;

// The one instrument of the cache file, and those of the board's tables, which an empty board has
// gathered after ten seconds.
constexpr const char* cachedName = "TA209";
constexpr unsigned short cachedIndex = 7;
constexpr const char* boardSgl = "SR209";
constexpr unsigned short boardSglIndex = 5;
constexpr const char* boardCmb = "SPD-SR209&SR301";
constexpr unsigned short boardCmbIndex = 3;

struct Counts {
    unsigned int starts = 0;
    unsigned int resets = 0;
    unsigned int keeps = 0;
    unsigned int learns = 0;
    unsigned int fromCache = 0;
    unsigned int fromTables = 0;
    unsigned int waits = 0;  // starts that waited for the board to gather the list
    unsigned long waitSeconds = 0;
};

// A complete file of the session in which `second` lies.
std::string GoodCache(unsigned int second, unsigned int date) {
    const unsigned int time = second < SecondsOf(150000) ? 85510 : 205510;
    return std::to_string(cachedIndex) + "," + cachedName +
           "\ncontract's_corresponding_time=" + std::to_string(date * 1000000UL + time) +
           "\nbin_file_over_tag";
}

// Several kinds in turn: of yesterday, of the other session of today, of a time of no session.
std::string StaleCache(unsigned int second, unsigned int turn) {
    const bool day = second < SecondsOf(150000);
    const unsigned long times[] = {
        yesterday * 1000000UL + (day ? 85510 : 205510), yesterday * 1000000UL + 205510,
        today * 1000000UL + (day ? 205510 : 85510),     today * 1000000UL + (day ? 103000 : 220000),
        today * 1000000UL + (day ? 75959 : 195959),
    };
    return std::to_string(cachedIndex) + "," + cachedName +
           "\ncontract's_corresponding_time=" + std::to_string(times[turn % std::size(times)]) +
           "\nbin_file_over_tag";
}

class MinuteSweep : public testing::TestWithParam<unsigned int> {
  public:
    MinuteSweep() {
        PutFile("test.ini",
                "[config]\ndevice=xilinx0:0\n[channel0]\ninsts=all\noptions=recv\nspd=recv\n");
        FakeClock::OnSleep([this](unsigned int seconds) {
            if (seconds >= 10) {
                GatherNames();
            }
        });
    }

    void Try(const StartCase& start, unsigned int turn) {
        m_bin = PutCache(start, turn);
        PutBoard(start);
        FakeClock::Set(today, TimeOf(start.second));
        bench.Start();
        ASSERT_FALSE(HasFatalFailure());
        const StartResult expected = ExpectedStart(start);
        Check(start, expected);
        CheckWhen(start);
        Count(expected);
        bench.Stop();
    }

    void PutBoard(const StartCase& start) {
        bench.board.Clear();
        bench.board.tradeDate = start.todaysBoard ? today : yesterday;
        bench.board.decode = start.counters == Counters::NotDecoding ? 0 : 3;
        bench.board.counters = start.counters == Counters::Moving
                                   ? CompactBoard::Counters::Moving
                                   : CompactBoard::Counters::Standing;
        GatherNames();
        bench.board.sgl.Mask(boardSglIndex) = 0xFFFF;  // subscribed before this start
        bench.board.cmb.Mask(boardCmbIndex) = 0xFFFF;
    }
    void GatherNames() {
        CompactBoard::PutName(bench.board.sgl, boardSglIndex, boardSgl);
        CompactBoard::PutName(bench.board.cmb, boardCmbIndex, boardCmb);
    }

    // The text of the file; "(none)" if there is none.
    static std::string PutCache(const StartCase& start, unsigned int turn) {
        std::string text = GoodCache(start.second, today);
        if (start.cache == Cache::Absent) {
            std::remove("bin");
            return "(none)";
        }
        if (start.cache == Cache::Stale) {
            text = StaleCache(start.second, turn);
        } else if (start.cache == Cache::Torn) {
            text.resize(turn % text.size());
        }
        PutFile("bin", text);
        return text;
    }

    void Check(const StartCase& start, const StartResult& expected) {
        SCOPED_TRACE(Shown(TimeOf(start.second)) + (start.todaysBoard ? " today's" : " another's") +
                     " counters " + std::to_string(static_cast<int>(start.counters)) + " cache " +
                     std::to_string(static_cast<int>(start.cache)));
        const CompactBoard& board = bench.board;
        EXPECT_EQ(FakeClock::Sleeps(), expected.sleeps);
        EXPECT_EQ(board.resets, expected.reset ? 1U : 0U);
        EXPECT_EQ(ResetedFlag::Get(), expected.reset);
        const bool learns = expected.way == Way::Learn;
        EXPECT_EQ(board.mapTrans, learns ? 1U : 0U);
        const unsigned int before =
            expected.reset || start.counters == Counters::NotDecoding ? 0 : 3;
        EXPECT_EQ(board.decode, learns ? before : 3U);
        const bool fromTables = expected.way == Way::FromTables;
        EXPECT_EQ(board.sgl.reads + board.cmb.reads > 10, fromTables);
        EXPECT_EQ(FileText("bin"), learns ? "" : m_bin);

        const std::map<std::string, unsigned short> cached = {{cachedName, cachedIndex}};
        const std::map<std::string, unsigned short> gathered = {{boardSgl, boardSglIndex},
                                                                {boardCmb, boardCmbIndex}};
        const std::map<std::string, unsigned short> none;
        EXPECT_EQ(bench.Insts(), learns ? none : fromTables ? gathered : cached);
        CheckTables(expected);
    }

    // What zce-check --when says of this start is what it did.
    void CheckWhen(const StartCase& start) {
        const ZceCheck::BoardState state =
            !start.todaysBoard                     ? ZceCheck::BoardState::OtherDay
            : start.counters == Counters::Moving   ? ZceCheck::BoardState::Moving
            : start.counters == Counters::Standing ? ZceCheck::BoardState::Still
                                                   : ZceCheck::BoardState::Idle;
        const ZceCheck::StartPlan plan = ZceCheck::PlanStart(start.second, state);
        EXPECT_EQ(plan.bReset, bench.board.resets == 1);
        const bool learns = bench.board.mapTrans == 1;
        EXPECT_EQ(plan.way != ZceCheck::ListWay::Recover, learns);
        const auto slept = FakeClock::Sleeps();
        const unsigned int wait =
            start.cache == Cache::Good ? plan.waitWithBin : plan.waitWithoutBin;
        EXPECT_EQ(plan.ready + wait - start.second,
                  std::accumulate(slept.begin(), slept.end(), 0U));
        EXPECT_EQ(plan.bLooksAtCounters, slept.size() > 2 && slept[1] == 1 && slept[2] == 1);
    }

    // The masks are those of the selection and no others; a reset clears every word twice.
    void CheckTables(const StartResult& expected) {
        CompactBoard& board = bench.board;
        const bool fromTables = expected.way == Way::FromTables;
        EXPECT_EQ(board.sgl.Mask(boardSglIndex), fromTables ? 1U : 0U);
        EXPECT_EQ(board.cmb.Mask(boardCmbIndex), fromTables ? 1U : 0U);
        EXPECT_EQ(board.sgl.Mask(cachedIndex), expected.way == Way::FromCache ? 1U : 0U);
        const unsigned long cleared = (expected.reset ? 2 * clearedWords : 0) + unsubscribedWords;
        EXPECT_EQ(board.sgl.stores, cleared + (expected.way == Way::Learn ? 0 : 1));
        EXPECT_EQ(board.cmb.stores, cleared + (fromTables ? 1 : 0));
        // Its names are gone, unless it had ten seconds to gather them again.
        const bool hasNames = !expected.reset || expected.sleeps.back() >= 10;
        EXPECT_EQ(board.sgl.Word(boardSglIndex, 4), hasNames ? 0x53523230U : 0U);
    }

    void Count(const StartResult& result) {
        ++counts.starts;
        ++(result.reset ? counts.resets : counts.keeps);
        ++(result.way == Way::Learn       ? counts.learns
           : result.way == Way::FromCache ? counts.fromCache
                                          : counts.fromTables);
        const bool waited = result.sleeps.back() >= 10;
        counts.waits += waited ? 1 : 0;
        for (const unsigned int seconds : result.sleeps) {
            counts.waitSeconds += seconds >= 10 ? seconds : 0;
        }
    }

    StartBench bench;
    Counts counts;

  private:
    std::string m_bin;
};

// At a bound of a rule every state of today's board is tried, and every third of another day's,
// which is reset whatever it does; at the other minutes one in twelve of today's, and at a quarter
// of them one of another day's. They take their turns.
std::vector<StartCase> CasesAt(const SweepSecond& at, unsigned int turn) {
    const bool everywhere = at.atBound && !slowBuild;
    std::vector<StartCase> cases;
    unsigned int number = turn;
    for (const bool todaysBoard : {true, false}) {
        const unsigned int boundStep = todaysBoard ? 1 : otherDayStep;
        const unsigned int minuteStateStep = todaysBoard ? stateStep : otherDayStateStep;
        const unsigned int step = SweepsAll() ? 1 : everywhere ? boundStep : minuteStateStep;
        for (const Counters counters :
             {Counters::Moving, Counters::Standing, Counters::NotDecoding}) {
            for (const Cache cache : {Cache::Good, Cache::Stale, Cache::Absent, Cache::Torn}) {
                if (number++ % step == 0) {
                    cases.push_back({at.second, todaysBoard, counters, cache});
                }
            }
        }
    }
    return cases;
}

TEST_P(MinuteSweep, TakesTheBranchOfTheTable) {
    const unsigned int hour = GetParam();
    unsigned int turn = 0;
    for (const SweepSecond& at : SecondsToTry(SweepsAll() ? 1 : minuteStep)) {
        ++turn;
        if (at.second / 3600 != hour) {
            continue;
        }
        for (const StartCase& start : CasesAt(at, turn)) {
            Try(start, turn);
            ASSERT_FALSE(HasFailure());
        }
    }
    std::printf(
        "minute sweep, hour %02u%s: starts %u, resets %u, keeps %u, learns %u, from the cache file "
        "%u, from the tables %u, waits %u (%lu s)\n",
        hour, slowBuild && !SweepsAll() ? " (reduced: every hour, a twelfth of the states)" : "",
        counts.starts, counts.resets, counts.keeps, counts.learns, counts.fromCache,
        counts.fromTables, counts.waits, counts.waitSeconds);
    EXPECT_EQ(counts.starts, counts.resets + counts.keeps);
    EXPECT_EQ(counts.starts, counts.learns + counts.fromCache + counts.fromTables);
    EXPECT_GT(counts.starts, 0U);
}

INSTANTIATE_TEST_SUITE_P(Hour, MinuteSweep, testing::Range(0U, 24U));

// The table itself: every second of the day is in exactly one row.
TEST(DayTable, CoversEverySecondOnce) {
    unsigned int next = 0;
    for (const BoardRow& row : BoardRows()) {
        EXPECT_EQ(SecondsOf(row.from), next);
        EXPECT_LE(row.from, row.to);
        next = SecondsOf(row.to) + 1;
    }
    EXPECT_EQ(next, 24U * 60 * 60);
}

}  // namespace
}  // namespace velatest
