#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "Utils/calendar.h"
#include "check/Commands.h"
#include "check/WhenDay.h"
#include "check/WhenStart.h"
#include "program/CommandLine.h"
#include "program/Moment.h"
#include "program/Program.h"

namespace ZceCheck {

namespace {

using nlohmann::ordered_json;
using ZceProgram::Moment;
using ZceProgram::TimeText;

constexpr int EXIT_TOO_LATE = 3;
constexpr unsigned int MAX_ROUND = 3600;

struct WhenOptions {
    std::optional<std::string> at;
    std::string board;
    unsigned int round = DEFAULT_ROUND;
    bool bWhen = false;  // always there: it has brought us here
    bool bDay = false;
    bool bTable = false;
    bool bJson = false;
};

struct StateName {
    BoardState state;
    const char* key;    // of --board, and in JSON
    const char* words;  // behind "board "
};
constexpr StateName STATE_NAMES[] = {
    {BoardState::OtherDay, "other-day", "of another day"},
    {BoardState::Idle, "idle", "used today, not decoding"},
    {BoardState::Moving, "moving", "used today, its counters move"},
    {BoardState::Still, "still", "used today, its counters stand still"},
};

// A second counted from the midnight of `date`.
Moment MomentOf(unsigned int date, unsigned int second) {
    const std::chrono::year_month_day day{std::chrono::year(static_cast<int>(date / 10000)),
                                          std::chrono::month(date / 100 % 100),
                                          std::chrono::day(date % 100)};
    const std::chrono::year_month_day then{std::chrono::sys_days(day) +
                                           std::chrono::days(second / DAY_SECONDS)};
    return {static_cast<unsigned int>(static_cast<int>(then.year())) * 10000 +
                static_cast<unsigned int>(then.month()) * 100 +
                static_cast<unsigned int>(then.day()),
            TimeOfSecond(second)};
}

std::string IsoText(const Moment& moment) {
    std::string text = MomentText(moment);
    std::replace(text.begin(), text.end(), ' ', 'T');
    return text;
}

// "08:55:10", with "of the next day" where it is.
std::string ClockText(unsigned int second) {
    return TimeText(TimeOfSecond(second)) + (second < DAY_SECONDS ? "" : " of the next day");
}

std::string PlanText(const StartPlan& plan) {
    std::string text = plan.bReset ? "reset" : "kept";
    if (plan.bLooksAtCounters) {
        text += " after a look at its counters";
    }
    switch (plan.way) {
        case ListWay::Learn:
            return text + fmt::format("; the list is learnt, until {}", ClockText(plan.auctionEnd));
        case ListWay::TooLate:
            return text +
                   "; too late to learn the list, too early to recover it: a part of it, or "
                   "nothing";
        case ListWay::Recover:
            break;
    }
    if (plan.waitWithBin == 0 && plan.waitWithoutBin == 0) {
        return text + fmt::format("; the list is recovered at once, at {}", ClockText(plan.ready));
    }
    return text + fmt::format(
                      "; the list is recovered, until {} with the cache file of this session, "
                      "until {} without it",
                      ClockText(plan.ready + plan.waitWithBin),
                      ClockText(plan.ready + plan.waitWithoutBin));
}

std::vector<StateName> StatesOf(const WhenOptions& options) {
    std::vector<StateName> names;
    for (const StateName& name : STATE_NAMES) {
        if (options.board.empty() || options.board == name.key) {
            names.push_back(name);
        }
    }
    return names;
}

struct Answer {
    Moment at;
    unsigned int second = 0;
    std::vector<StateName> names;
    std::vector<StartPlan> plans;  // of the names, in their order
    bool bTooLate = false;
    unsigned int goodFrom = 0;
};

Answer Ask(const WhenOptions& options, const Moment& at) {
    Answer answer{at, SecondOfTime(at.time), StatesOf(options), {}, false, 0};
    std::vector<BoardState> states;
    for (const StateName& name : answer.names) {
        states.push_back(name.state);
        answer.plans.push_back(PlanStart(answer.second, name.state, options.round));
    }
    answer.goodFrom = GoodFrom(answer.second, states, options.round);
    answer.bTooLate = answer.goodFrom != answer.second;
    return answer;
}

void PrintText(const Answer& answer) {
    fmt::print("Start of the master at {}: it looks at the board at {}.\n", MomentText(answer.at),
               ClockText(answer.plans.front().looks));
    for (std::size_t at = 0; at < answer.plans.size(); ++at) {
        const bool bAllOfToday =
            answer.names.at(at).state == BoardState::Idle &&
            std::all_of(answer.plans.begin() + static_cast<std::ptrdiff_t>(at), answer.plans.end(),
                        [&](const StartPlan& plan) { return plan == answer.plans[at]; });
        if (bAllOfToday && answer.names.size() > 1) {
            fmt::print("board used today: {}.\n", PlanText(answer.plans[at]));
            break;
        }
        fmt::print("board {}: {}.\n", answer.names[at].words, PlanText(answer.plans[at]));
    }
    if (answer.bTooLate) {
        fmt::print("TOO LATE: a start is good again from {} on.\n", ClockText(answer.goodFrom));
    }
}

ordered_json PlanJson(const StartPlan& plan, const char* board, unsigned int date) {
    static const std::map<ListWay, const char*> ways = {
        {ListWay::Learn, "learn"}, {ListWay::TooLate, "too late"}, {ListWay::Recover, "recover"}};
    const auto iso = [date](unsigned int second) { return IsoText(MomentOf(date, second)); };
    ordered_json json = {{"board", board},
                         {"looks", iso(plan.looks)},
                         {"looks_at_counters", plan.bLooksAtCounters},
                         {"board_is", plan.bReset ? "reset" : "kept"},
                         {"list", ways.at(plan.way)}};
    if (plan.way == ListWay::Recover) {
        json["until_with_cache_file"] = iso(plan.ready + plan.waitWithBin);
        json["until_without_cache_file"] = iso(plan.ready + plan.waitWithoutBin);
    } else if (plan.way == ListWay::Learn) {
        json["until"] = iso(plan.auctionEnd);
    }
    return json;
}

ordered_json RowJson(const DayRow& row) {
    ordered_json json = {{"from", TimeText(row.from)},
                         {"to", TimeText(row.to)},
                         {"board_used_today", BoardWords(row)},
                         {"list", ListWords(row)}};
    if (row.way == ListWay::Learn) {
        json["until"] = DurationWords(row).substr(6);
    } else if (row.way == ListWay::Recover) {
        json["minutes_after_a_reset"] = row.waits;
    }
    return json;
}

void PrintJson(const Answer& answer, const WhenOptions& options) {
    ordered_json json = {{"at", IsoText(answer.at)},
                         {"round", options.round},
                         {"too_late", answer.bTooLate},
                         {"good_from", IsoText(MomentOf(answer.at.date, answer.goodFrom))},
                         {"starts", ordered_json::array()}};
    for (std::size_t at = 0; at < answer.plans.size(); ++at) {
        json["starts"].push_back(PlanJson(answer.plans[at], answer.names[at].key, answer.at.date));
    }
    if (options.bDay) {
        json["day"] = ordered_json::array();
        for (const DayRow& row : DayRows(options.round)) {
            json["day"].push_back(RowJson(row));
        }
    }
    fmt::print("{}\n", json.dump(2));
}

void AddOptions(const ZceProgram::CArguments& app, WhenOptions& options) {
    app.Flag("--when", options.bWhen, "What a start of the master does at a moment of the day")
        .Required();
    app.Option("--at", options.at,
               "The moment at which it is called: HH:MM, HH:MM:SS, or a date before it, "
               "YYYY-MM-DDTHH:MM:SS; without it the host's clock says");
    app.Option("--board", options.board,
               "How the start finds the board; without it all four are told")
        .OneOf({"other-day", "idle", "moving", "still"});
    app.Option("--round", options.round,
               "Seconds that the exchange takes to send its whole list once")
        .Range(1U, MAX_ROUND)
        .ShowDefault();
    const auto day = app.Flag("--day", options.bDay, "A picture of the day as well");
    const auto table =
        app.Flag("--table", options.bTable, "The day as a table in Markdown, and nothing else");
    const auto json = app.Flag("--json", options.bJson, "The answer as JSON");
    table.Excludes(day).Excludes(json);
}

}  // namespace

int WhenMain(int argc, const char* const* argv) {
    WhenOptions options;
    const ZceProgram::CCommandLine app{
        "zce-check",
        "Tells what a start of the master does at a moment of the day. Exit status 3 if "
        "it is too late for it."};
    AddOptions(app, options);
    if (const std::optional<int> status = app.Read(argc, argv)) {
        return *status;
    }
    if (options.bTable) {
        fmt::print("{}", DayTable(DayRows(options.round)));
        return ZceProgram::EXIT_FINE;
    }
    const std::optional<Moment> at =
        ZceProgram::MomentToAsk("zce-check", options.at, ZceProgram::AsMoment(VORBA2::LocalNow()));
    if (!at) {
        return ZceProgram::EXIT_NOT_DONE;
    }
    const Answer answer = Ask(options, *at);
    if (options.bJson) {
        PrintJson(answer, options);
    } else {
        PrintText(answer);
        if (options.bDay) {
            fmt::print("\n{}", DayPicture(DayRows(options.round), answer.second));
        }
    }
    return answer.bTooLate ? EXIT_TOO_LATE : ZceProgram::EXIT_FINE;
}

}  // namespace ZceCheck
