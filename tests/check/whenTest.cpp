// What zce-check --when says of a start: at every bound of the day, in each state of the board, in
// words, as JSON, as a picture, and as the table of the operations page.

#include <gtest/gtest.h>

#include <array>
#include <ctime>
#include <string>
#include <vector>

#include "check/WhenDay.h"
#include "check/WhenStart.h"
#include "log/elog.h"
#include "program/Moment.h"
#include "programRun.h"
#include "wholeFile.h"

namespace velatest {
namespace {

using ZceCheck::BoardState;
using ZceCheck::ListWay;
using ZceCheck::PlanStart;
using ZceCheck::SecondOfTime;
using ZceCheck::StartPlan;
using ZceProgram::Moment;

ProgramRun When(const std::string& options) {
    return ProgramRun(ZCE_CHECK_PROGRAM " --when " + options + " 2>&1");
}

// "R? 124/244": reset, after a look at the counters; the list is there 124 s after the call with a
// cache file, 244 s without. "k day": kept, learnt in the auction of the day.
std::string PlanCode(const StartPlan& plan, unsigned int call) {
    const std::string board =
        std::string(plan.bReset ? "R" : "k") + (plan.bLooksAtCounters ? "? " : " ");
    if (plan.way == ListWay::TooLate) {
        return board + "late";
    }
    if (plan.way == ListWay::Recover) {
        return board + std::to_string(plan.ready + plan.waitWithBin - call) + "/" +
               std::to_string(plan.ready + plan.waitWithoutBin - call);
    }
    const unsigned int day = SecondOfTime(85510);
    const unsigned int night = SecondOfTime(205510);
    return board + (plan.auctionEnd == day                           ? "day"
                    : plan.auctionEnd == night                       ? "night"
                    : plan.auctionEnd == ZceCheck::DAY_SECONDS + day ? "tomorrow"
                                                                     : "?");
}

struct Bound {
    unsigned int call;
    std::array<const char*, 4> starts;  // board of another day; idle; moving; still
};

// A start looks one second after its call: a bound at 08:00:00 is met by the calls at 07:59:58 to
// 08:00:00. Behind a look at the counters come two seconds, behind a reset one.
constexpr Bound bounds[] = {
    {0, {"R day", "R day", "R day", "R day"}},
    {75958, {"R day", "R day", "R day", "R day"}},
    {75959, {"R day", "R day", "R day", "R day"}},
    {80000, {"R day", "k day", "k day", "k day"}},
    {85408, {"R day", "k day", "k day", "k day"}},
    {85409, {"R late", "k day", "k day", "k day"}},
    {85410, {"R late", "k late", "k late", "k late"}},
    {85957, {"R late", "k late", "k late", "k late"}},
    {85958, {"R late", "k late", "k late", "k late"}},
    {85959, {"R 122/242", "k late", "k? 3/3", "R? 124/244"}},
    {90000, {"R 122/242", "k 1/1", "k? 3/3", "R? 124/244"}},
    {101446, {"R 122/242", "k 1/1", "k? 3/3", "R? 124/1204"}},
    {101447, {"R 122/242", "k 1/1", "k? 3/3", "R? 124/1204"}},
    {101448, {"R 122/1202", "k 1/1", "k? 3/3", "R? 124/1204"}},
    {101449, {"R 122/1202", "k 1/1", "k? 3/3", "R? 124/1204"}},
    {101450, {"R 122/1202", "k 1/1", "k 1/1", "k 1/1"}},
    {102957, {"R 122/1202", "k 1/1", "k 1/1", "k 1/1"}},
    {102958, {"R 122/1202", "k 1/1", "k 1/1", "k 1/1"}},
    {102959, {"R 122/242", "k 1/1", "k? 3/3", "R? 124/244"}},
    {103000, {"R 122/242", "k 1/1", "k? 3/3", "R? 124/244"}},
    {112958, {"R 122/242", "k 1/1", "k? 3/3", "R? 124/244"}},
    {112959, {"R 122/242", "k 1/1", "k? 3/3", "R? 124/244"}},
    {113000, {"R 122/242", "k 1/1", "k 1/1", "k 1/1"}},
    {132958, {"R 122/242", "k 1/1", "k 1/1", "k 1/1"}},
    {132959, {"R 122/242", "k 1/1", "k? 3/3", "R? 124/244"}},
    {133000, {"R 122/242", "k 1/1", "k? 3/3", "R? 124/244"}},
    {145955, {"R 122/242", "k 1/1", "k? 3/3", "R? 124/244"}},
    {145956, {"R 122/242", "k 1/1", "k? 3/3", "R? night"}},
    {145957, {"R 122/242", "k 1/1", "k? night", "R? night"}},
    {145958, {"R night", "k 1/1", "k? night", "R? night"}},
    {145959, {"R night", "k night", "k? night", "R? night"}},
    {155958, {"R night", "k night", "k? night", "R? night"}},
    {155959, {"R night", "R night", "R? night", "R? night"}},
    {160000, {"R night", "R night", "R night", "R night"}},
    {201458, {"R night", "R night", "R night", "R night"}},
    {201459, {"R night", "R night", "R night", "R night"}},
    {201500, {"R night", "k night", "k night", "k night"}},
    {205408, {"R night", "k night", "k night", "k night"}},
    {205409, {"R late", "k night", "k night", "k night"}},
    {205410, {"R late", "k late", "k late", "k late"}},
    {205957, {"R late", "k late", "k late", "k late"}},
    {205958, {"R late", "k late", "k late", "k late"}},
    {205959, {"R 122/242", "k late", "k? 3/3", "R? 124/244"}},
    {210000, {"R 122/242", "k 1/1", "k? 3/3", "R? 124/244"}},
    {232954, {"R 122/242", "k 1/1", "k? 3/3", "R? 124/244"}},
    {232955, {"R 122/242", "k 1/1", "k? 3/3", "R? 124/244"}},
    {232956, {"R 122/242", "k 1/1", "k? 3/3", "R? tomorrow"}},
    {232957, {"R 122/242", "k 1/1", "k? tomorrow", "R? tomorrow"}},
    {232958, {"R tomorrow", "k 1/1", "k? tomorrow", "R? tomorrow"}},
    {232959, {"R tomorrow", "R tomorrow", "R? tomorrow", "R? tomorrow"}},
    {233000, {"R tomorrow", "R tomorrow", "R tomorrow", "R tomorrow"}},
    {235958, {"R tomorrow", "R tomorrow", "R tomorrow", "R tomorrow"}},
    {235959, {"R tomorrow", "R tomorrow", "R tomorrow", "R tomorrow"}},
};

TEST(WhenStart, AtEveryBoundOfTheDay) {
    for (const Bound& bound : bounds) {
        const unsigned int call = SecondOfTime(bound.call);
        for (std::size_t at = 0; at < bound.starts.size(); ++at) {
            const StartPlan plan = PlanStart(call, ZceCheck::BOARD_STATES[at]);
            EXPECT_EQ(PlanCode(plan, call), bound.starts.at(at))
                << "start at " << bound.call << ", board " << at;
            EXPECT_EQ(plan.looks, call + 1);
        }
    }
}

// How early is early enough depends on how long the exchange's round takes: four packets that come
// each second, every five seconds, every thirty.
TEST(WhenStart, TheRoundDecidesWhatIsTooLate) {
    struct Case {
        unsigned int round;
        BoardState state;
        unsigned int lastGood;
    };
    constexpr Case cases[] = {
        {4, BoardState::Idle, 85505},     {20, BoardState::Idle, 85449},
        {4, BoardState::OtherDay, 85504}, {20, BoardState::OtherDay, 85448},
        {4, BoardState::Moving, 205505},  {20, BoardState::Still, 205449},
        {120, BoardState::Idle, 85309},   {1, BoardState::Idle, 85508},
        {3600, BoardState::Idle, 195508},  // reset at that hour
    };
    for (const Case& one : cases) {
        const unsigned int call = SecondOfTime(one.lastGood);
        EXPECT_EQ(PlanStart(call, one.state, one.round).way, ListWay::Learn) << one.lastGood;
        EXPECT_EQ(PlanStart(call + 1, one.state, one.round).way, ListWay::TooLate) << one.lastGood;
    }
    // Without a round a packet must come all the same.
    EXPECT_EQ(PlanStart(SecondOfTime(85509), BoardState::Idle, 0).way, ListWay::TooLate);
}

TEST(WhenStart, GoodAgainIsTheFirstSecondThatIsNotTooLate) {
    const auto good = [](unsigned int call, const std::vector<BoardState>& states) {
        return ZceCheck::TimeOfSecond(ZceCheck::GoodFrom(SecondOfTime(call), states));
    };
    EXPECT_EQ(good(85410, {BoardState::Idle}), 90000U);
    EXPECT_EQ(good(85959, {BoardState::Idle}), 90000U);
    EXPECT_EQ(good(85500, {BoardState::Moving}), 85959U);
    EXPECT_EQ(good(85500, {BoardState::OtherDay, BoardState::Moving}), 85959U);
    EXPECT_EQ(good(85500, {BoardState::Idle, BoardState::Moving}), 90000U);
    EXPECT_EQ(good(205930, {BoardState::Still, BoardState::Idle}), 210000U);
    EXPECT_EQ(good(85409, {BoardState::Idle}), 85409U);
    EXPECT_EQ(good(120000, {BoardState::Idle}), 120000U);
}

TEST(WhenText, EachStateOfTheBoardHasALine) {
    const ProgramRun run = When("--at 2026-11-23T09:30:00");
    EXPECT_EQ(run.text,
              "Start of the master at 2026-11-23 09:30:00: it looks at the board at 09:30:01.\n"
              "board of another day: reset; the list is recovered, until 09:32:02 with the cache "
              "file of this session, until 09:34:02 without it.\n"
              "board used today, not decoding: kept; the list is recovered at once, at 09:30:01.\n"
              "board used today, its counters move: kept after a look at its counters; the list is "
              "recovered at once, at 09:30:03.\n"
              "board used today, its counters stand still: reset after a look at its counters; the "
              "list is recovered, until 09:32:04 with the cache file of this session, until "
              "09:34:04 without it.\n");
    EXPECT_EQ(run.status, 0);
}

TEST(WhenText, OneLineForTodaysBoardWhereItsStateDoesNotMatter) {
    EXPECT_EQ(When("--at '2026-11-23 23:59'").text,
              "Start of the master at 2026-11-23 23:59:00: it looks at the board at 23:59:01.\n"
              "board of another day: reset; the list is learnt, until 08:55:10 of the next day.\n"
              "board used today: reset; the list is learnt, until 08:55:10 of the next day.\n");
    EXPECT_EQ(When("--at 2026-11-23T08:30 --board still").text,
              "Start of the master at 2026-11-23 08:30:00: it looks at the board at 08:30:01.\n"
              "board used today, its counters stand still: kept; the list is learnt, until "
              "08:55:10.\n");
}

TEST(WhenText, TooLateSaysFromWhenOnAStartIsGoodAgain) {
    const ProgramRun run = When("--at 2026-11-23T08:55:30");
    EXPECT_EQ(run.text,
              "Start of the master at 2026-11-23 08:55:30: it looks at the board at 08:55:31.\n"
              "board of another day: reset; too late to learn the list, too early to recover it: a "
              "part of it, or nothing.\n"
              "board used today: kept; too late to learn the list, too early to recover it: a part "
              "of it, or nothing.\n"
              "TOO LATE: a start is good again from 09:00:00 on.\n");
    EXPECT_EQ(run.status, 3);
}

TEST(WhenStatus, ThreeInTheMomentsThatAreTooLateAloneAndTwoForAWrongCommandLine) {
    EXPECT_EQ(When("--at 08:54:08").status, 0);
    EXPECT_EQ(When("--at 08:54:09").status, 3);  // a board of another day is reset first
    EXPECT_EQ(When("--at 08:54:09 --board idle").status, 0);
    EXPECT_EQ(When("--at 08:54:10 --board idle").status, 3);
    EXPECT_EQ(When("--at 08:54:10 --board idle --round 30").status, 0);
    EXPECT_EQ(When("--at 08:59:59").status, 3);
    EXPECT_EQ(When("--at 08:59:59 --board moving").status, 0);
    EXPECT_EQ(When("--at 09:00:00").status, 0);
    EXPECT_EQ(When("--at 20:59:59 --json").status, 3);
    EXPECT_EQ(When("--at 21:00").status, 0);
    EXPECT_EQ(When("--at 24:00").status, 2);
    EXPECT_EQ(When("--at 24:00").text,
              "zce-check: --at: 24:00 is no time: HH:MM, HH:MM:SS or YYYY-MM-DDTHH:MM:SS\n");
    EXPECT_EQ(When("--board cold").status, 2);
    EXPECT_EQ(When("--round 0").status, 2);
    EXPECT_EQ(When("--table --json").status, 2);
}

TEST(WhenJson, HasTheSameAnswer) {
    const ProgramRun run = When("--at 2026-12-31T23:29:58 --board still --json");
    EXPECT_EQ(run.text, R"({
  "at": "2026-12-31T23:29:58",
  "round": 60,
  "too_late": false,
  "good_from": "2026-12-31T23:29:58",
  "starts": [
    {
      "board": "still",
      "looks": "2026-12-31T23:29:59",
      "looks_at_counters": true,
      "board_is": "reset",
      "list": "learn",
      "until": "2027-01-01T08:55:10"
    }
  ]
}
)");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(When("--at 2026-11-23T08:59:59 --board idle --json --round 30").text, R"({
  "at": "2026-11-23T08:59:59",
  "round": 30,
  "too_late": true,
  "good_from": "2026-11-23T09:00:00",
  "starts": [
    {
      "board": "idle",
      "looks": "2026-11-23T09:00:00",
      "looks_at_counters": false,
      "board_is": "kept",
      "list": "too late"
    }
  ]
}
)");
    const std::string recovers = When("--at 2026-11-23T10:20 --board other-day --json").text;
    EXPECT_NE(recovers.find(R"("until_with_cache_file": "2026-11-23T10:22:02")"),
              std::string::npos);
    EXPECT_NE(recovers.find(R"("until_without_cache_file": "2026-11-23T10:40:02")"),
              std::string::npos);
    EXPECT_NE(When("--at 10:20 --day --json").text.find(R"("day": [
    {
      "from": "00:00:00",
      "to": "08:00:00",
      "board_used_today": "reset",
      "list": "learnt in the auction of the day",
      "until": "08:55:10"
    },
)"),
              std::string::npos);
}

TEST(WhenDay, IsDrawn) {
    EXPECT_EQ(
        ZceCheck::DayPicture(ZceCheck::DayRows(), SecondOfTime(90530)),
        "hour   00 01 02 03 04 05 06 07 08 09 10 11 12 13 14 15 16 17 18 19 20 21 22 23\n"
        "board  RRRRRRRRRRRRRRRRRRRRRRRRkkk????????kkkkk????????RRRRRRRRRRRRRkk???????RR\n"
        "list   ddddddddddddddddddddddddddXrrrrrrrrrrrrrrrrrrnnnnnnnnnnnnnnnnnXrrrrrrrdd\n"
        "                                  ^ 09:05:30\n"
        "\n"
        "board used today: k kept, R reset, ? reset if it decodes and its counters stand still\n"
        "list: d learnt for the day, n learnt for the night, r recovered, X too late\n"
        "A column is 20 minutes; a reset or being too late for a minute of them is shown.\n"
        "\n"
        "00:00:00 to 08:00:00  reset; learnt in the auction of the day, until 08:55:10\n"
        "08:00:01 to 08:54:10  kept; learnt in the auction of the day, until 08:55:10\n"
        "08:54:11 to 09:00:00  kept; too late: a part of it, or nothing\n"
        "09:00:01 to 10:14:50  reset if it decodes and its counters stand still, else kept; "
        "recovered, seconds; after a reset 2, 4 or 20 minutes\n"
        "10:14:51 to 10:29:59  kept; recovered, seconds; after a reset 2 or 20 minutes\n"
        "10:30:00 to 11:30:00  reset if it decodes and its counters stand still, else kept; "
        "recovered, seconds; after a reset 2 or 4 minutes\n"
        "11:30:01 to 13:29:59  kept; recovered, seconds; after a reset 2 or 4 minutes\n"
        "13:30:00 to 14:59:59  reset if it decodes and its counters stand still, else kept; "
        "recovered, seconds; after a reset 2 or 4 minutes\n"
        "15:00:00 to 15:59:59  reset if it decodes and its counters stand still, else kept; learnt "
        "in the auction of the night, until 20:55:10\n"
        "16:00:00 to 20:15:00  reset; learnt in the auction of the night, until 20:55:10\n"
        "20:15:01 to 20:54:10  kept; learnt in the auction of the night, until 20:55:10\n"
        "20:54:11 to 21:00:00  kept; too late: a part of it, or nothing\n"
        "21:00:01 to 23:29:59  reset if it decodes and its counters stand still, else kept; "
        "recovered, seconds; after a reset 2 or 4 minutes\n"
        "23:30:00 to 23:59:59  reset; learnt in the auction of the next day, until 08:55:10 of the "
        "next day\n");
    const std::string picture = When("--at 00:00 --day").text;
    EXPECT_NE(picture.find("\n       ^ 00:00:00\n"), std::string::npos);
}

// The page's table is made by the program: zce-check --when --table.
TEST(WhenTable, IsTheOneOfTheOperationsPage) {
    const std::string table = When("--table").text;
    EXPECT_TRUE(table.starts_with("| time of the start | board used today |"));
    const std::string page = WholeFile(ZCE_DOCS "/operations.md");
    EXPECT_NE(page.find("\n\n" + table + "\n"), std::string::npos) << table;
}

// A start at the moment of the call itself, by the host's clock.
TEST(WhenText, WithoutAMomentTheHostsClockSays) {
    const auto date = [](std::time_t at) {
        std::tm local{};
        gmtime_r(&at, &local);
        std::array<char, 64> text{};
        std::strftime(text.data(), text.size(),
                      "Start of the master at %Y-%m-%d %H:%M:%S: it looks", &local);
        return std::string(text.data());
    };
    const std::time_t before = std::time(nullptr);
    const ProgramRun run(std::string("TZ=UTC " ZCE_CHECK_PROGRAM " --when"));
    const std::time_t after = std::time(nullptr);
    bool bFound = false;
    for (std::time_t at = before; at <= after; ++at) {
        bFound = bFound || run.text.starts_with(date(at));
    }
    EXPECT_TRUE(bFound) << run.text;
}

// The library's log is neither opened nor printed.
TEST(WhenText, NothingIsLogged) {
    for (const char* const command : {"--when", "host --lab", "vendor"}) {
        const ProgramRun run(std::string(ZCE_CHECK_PROGRAM " ") + command + " 2>&1");
        EXPECT_FALSE(run.text.empty());
        EXPECT_EQ(run.text.find("[fpga]"), std::string::npos) << run.text;
    }
    PlanStart(SecondOfTime(93000), BoardState::Still);
    EXPECT_FALSE(elog_get_enabled());
}

TEST(Moment, IsReadFromTextsOfItsShapesAlone) {
    constexpr unsigned int today = 20261123;
    const auto read = [](const char* text) { return ZceProgram::ReadMoment(text, today); };
    EXPECT_EQ(read("09:30"), (Moment{20261123, 93000}));
    EXPECT_EQ(read("23:59:59"), (Moment{20261123, 235959}));
    EXPECT_EQ(read("00:00:00"), (Moment{20261123, 0}));
    EXPECT_EQ(read("2024-02-29T09:30:01"), (Moment{20240229, 93001}));
    EXPECT_EQ(read("2026-12-31 21:05"), (Moment{20261231, 210500}));
    for (const char* const wrong : {"",
                                    "9:30",
                                    "0930",
                                    "09:60",
                                    "09:30:60",
                                    "24:00",
                                    "09-30",
                                    "09:30 ",
                                    " 09:30",
                                    "+9:30",
                                    "09:30:5",
                                    "2026-11-23",
                                    "2026-11-23T",
                                    "2026-02-29T09:30",
                                    "2026-13-01T09:30",
                                    "2026-11-00T09:30",
                                    "26-11-23T09:30",
                                    "2026-11-23x09:30",
                                    "2026-11-23T09:30Z",
                                    "2026/11/23 09:30",
                                    "now"}) {
        EXPECT_EQ(read(wrong), std::nullopt) << wrong;
    }
    EXPECT_EQ(ZceProgram::MomentText({20260102, 30405}), "2026-01-02 03:04:05");
}

}  // namespace
}  // namespace velatest
