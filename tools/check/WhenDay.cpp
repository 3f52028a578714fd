#include "check/WhenDay.h"

#include <fmt/format.h>

#include <algorithm>

#include "program/Moment.h"

namespace ZceCheck {

namespace {

using ZceProgram::TimeText;

constexpr unsigned int CELL_SECONDS = 20 * MINUTE_SECONDS;
constexpr unsigned int CELLS = DAY_SECONDS / CELL_SECONDS;
constexpr unsigned int NIGHT_AUCTION = 150000;  // an auction that ends later is the night's

BoardRule RuleOf(unsigned int call, unsigned int round) {
    if (PlanStart(call, BoardState::Idle, round).bReset) {
        return BoardRule::Reset;
    }
    return PlanStart(call, BoardState::Still, round).bReset ? BoardRule::ResetIfStill
                                                            : BoardRule::Keep;
}

bool IsSameRow(const DayRow& a, const DayRow& b) {
    return a.board == b.board && a.way == b.way && a.auctionEnd == b.auctionEnd;
}

// 2, 4 and 20 as "2, 4 or 20".
std::string Alternatives(const std::vector<unsigned int>& numbers) {
    std::string text;
    for (std::size_t at = 0; at < numbers.size(); ++at) {
        const char* const between = at == 0 ? "" : at + 1 == numbers.size() ? " or " : ", ";
        text += fmt::format("{}{}", between, numbers[at]);
    }
    return text;
}

void AddWait(std::vector<unsigned int>& waits, unsigned int seconds) {
    const unsigned int minutes = seconds / MINUTE_SECONDS;
    const auto at = std::lower_bound(waits.begin(), waits.end(), minutes);
    if (minutes != 0 && (at == waits.end() || *at != minutes)) {
        waits.insert(at, minutes);
    }
}

std::string AuctionName(unsigned int end) {
    const bool bNight = TimeOfSecond(end) >= NIGHT_AUCTION;
    return fmt::format("auction of the {}", bNight               ? "night"
                                            : end >= DAY_SECONDS ? "next day"
                                                                 : "day");
}

std::string Minute(unsigned int time) {
    return fmt::format("about {:02}:{:02}", time / 10000, time / 100 % 100);
}

// What a cell of the picture shows: of what is in it, what an operator must know first.
struct Cell {
    char board = ' ';
    char list = ' ';
};

char BoardSign(const DayRow& row) {
    switch (row.board) {
        case BoardRule::Keep:
            return 'k';
        case BoardRule::Reset:
            return 'R';
        case BoardRule::ResetIfStill:
            return '?';
    }
    return ' ';
}

char ListSign(const DayRow& row) {
    switch (row.way) {
        case ListWay::TooLate:
            return 'X';
        case ListWay::Recover:
            return 'r';
        case ListWay::Learn:
            return TimeOfSecond(row.auctionEnd) >= NIGHT_AUCTION ? 'n' : 'd';
    }
    return ' ';
}

// The sign that comes first in `order`.
char First(char a, char b, std::string_view order) {
    return order.find(a) <= order.find(b) ? a : b;
}

Cell CellOf(const std::vector<DayRow>& rows, unsigned int number) {
    const unsigned int from = number * CELL_SECONDS;
    const unsigned int to = from + CELL_SECONDS - 1;
    Cell cell;
    for (const DayRow& row : rows) {
        const unsigned int first = std::max(SecondOfTime(row.from), from);
        const unsigned int last = std::min(SecondOfTime(row.to), to);
        if (first + MINUTE_SECONDS <= last + 1) {
            cell.board = First(BoardSign(row), cell.board, "R?k ");
            cell.list = First(ListSign(row), cell.list, "Xndr ");
        }
    }
    return cell;
}

}  // namespace

std::vector<DayRow> DayRows(unsigned int round) {
    // The second that a start looks at is that of its call and a bit: which bit, a start tells.
    const unsigned int ahead = PlanStart(0, BoardState::Idle, round).looks;
    std::vector<DayRow> rows;
    for (unsigned int second = 0; second < DAY_SECONDS; ++second) {
        const unsigned int call = (second + DAY_SECONDS - ahead) % DAY_SECONDS;
        const StartPlan plan = PlanStart(call, BoardState::Idle, round);
        DayRow row{
            TimeOfSecond(second), TimeOfSecond(second), RuleOf(call, round), plan.way, 0, {}};
        if (row.way == ListWay::TooLate) {
            row.board = BoardRule::Keep;
        } else if (row.way == ListWay::Learn) {
            // Counted from the midnight before `second`.
            row.auctionEnd = plan.auctionEnd - (plan.looks - second);
        }
        if (rows.empty() || !IsSameRow(rows.back(), row)) {
            rows.push_back(row);
        }
        rows.back().to = row.to;
        for (const BoardState state : {BoardState::OtherDay, BoardState::Still}) {
            const StartPlan other = PlanStart(call, state, round);
            AddWait(rows.back().waits, other.waitWithBin);
            AddWait(rows.back().waits, other.waitWithoutBin);
        }
    }
    return rows;
}

std::string BoardWords(const DayRow& row) {
    switch (row.board) {
        case BoardRule::Keep:
            return "kept";
        case BoardRule::Reset:
            return "reset";
        case BoardRule::ResetIfStill:
            return "reset if it decodes and its counters stand still, else kept";
    }
    return {};
}

std::string ListWords(const DayRow& row) {
    switch (row.way) {
        case ListWay::Learn:
            return "learnt in the " + AuctionName(row.auctionEnd);
        case ListWay::TooLate:
            return "too late: a part of it, or nothing";
        case ListWay::Recover:
            return "recovered";
    }
    return {};
}

std::string DurationWords(const DayRow& row) {
    switch (row.way) {
        case ListWay::Learn:
            return fmt::format("until {}{}", TimeText(TimeOfSecond(row.auctionEnd)),
                               row.auctionEnd >= DAY_SECONDS ? " of the next day" : "");
        case ListWay::TooLate:
            return {};
        case ListWay::Recover:
            return fmt::format("seconds; after a reset {} minutes", Alternatives(row.waits));
    }
    return {};
}

std::string DayTable(const std::vector<DayRow>& rows) {
    std::string text =
        "| time of the start | board used today | the list | how long it takes "
        "|\n|---|---|---|---|\n";
    for (std::size_t at = 0; at < rows.size(); ++at) {
        const DayRow& row = rows[at];
        const bool bFromRound = row.way == ListWay::TooLate;
        const bool bToRound = at + 1 < rows.size() && rows[at + 1].way == ListWay::TooLate;
        std::string list = ListWords(row);
        if (row.way == ListWay::TooLate) {
            list.replace(0, list.find(':'), "[too late](#started-too-late)");
        }
        std::string duration = DurationWords(row);
        const std::size_t reset = duration.find("after a reset");
        if (reset != std::string::npos) {
            duration.replace(reset, 13, "[after a reset](#waiting-after-a-reset)");
        }
        text += fmt::format("| {} to {} | {} | {} |{}{} |\n",
                            bFromRound ? Minute(row.from) : TimeText(row.from),
                            bToRound ? Minute(row.to) : TimeText(row.to), BoardWords(row), list,
                            duration.empty() ? "" : " ", duration);
    }
    return text;
}

std::string DayPicture(const std::vector<DayRow>& rows, unsigned int mark) {
    std::string hours = "hour   ";
    for (unsigned int hour = 0; hour < 24; ++hour) {
        hours += fmt::format("{:02}{}", hour, hour == 23 ? "" : " ");
    }
    std::string board = "board  ";
    std::string list = "list   ";
    for (unsigned int number = 0; number < CELLS; ++number) {
        const Cell cell = CellOf(rows, number);
        board += cell.board;
        list += cell.list;
    }
    std::string text = hours + "\n" + board + "\n" + list + "\n";
    if (mark < DAY_SECONDS) {
        text += fmt::format("       {:>{}} {}\n", "^", mark / CELL_SECONDS + 1,
                            TimeText(TimeOfSecond(mark)));
    }
    text +=
        "\n"
        "board used today: k kept, R reset, ? reset if it decodes and its counters stand still\n"
        "list: d learnt for the day, n learnt for the night, r recovered, X too late\n"
        "A column is 20 minutes; a reset or being too late for a minute of them is shown.\n\n";
    for (const DayRow& row : rows) {
        const std::string duration = DurationWords(row);
        text +=
            fmt::format("{} to {}  {}; {}{}{}\n", TimeText(row.from), TimeText(row.to),
                        BoardWords(row), ListWords(row), duration.empty() ? "" : ", ", duration);
    }
    return text;
}

}  // namespace ZceCheck
