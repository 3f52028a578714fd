#include "dayTable.h"

#include <algorithm>
#include <map>
#include <numeric>

#include "startBench.h"

namespace velatest {

namespace {

constexpr unsigned int daySeconds = 24 * 60 * 60;
// Finding the board's core takes a second, and so does a reset.
constexpr unsigned int openSleep = 1;
constexpr unsigned int resetSleep = 1;

template <typename Row>
bool Holds(const Row& row, unsigned int second) {
    return SecondsOf(row.from) <= second && second <= SecondsOf(row.to);
}

bool IsTrading(unsigned int second) {
    const auto& spans = TradeSpans();
    return std::any_of(spans.begin(), spans.end(),
                       [second](const Span& span) { return Holds(span, second); });
}

}  // namespace

const std::vector<BoardRow>& BoardRows() {
    static const std::vector<BoardRow> rows = {
        {0, 80000, BoardRule::Reset},
        {80001, 85959, BoardRule::Keep},
        {90000, 101450, BoardRule::ResetIfStill},
        {101451, 102959, BoardRule::Keep},
        {103000, 113000, BoardRule::ResetIfStill},
        {113001, 132959, BoardRule::Keep},
        {133000, 155959, BoardRule::ResetIfStill},
        {160000, 160000, BoardRule::LookAndReset},
        {160001, 201500, BoardRule::Reset},
        {201501, 205959, BoardRule::Keep},
        {210000, 232959, BoardRule::ResetIfStill},
        {233000, 233000, BoardRule::LookAndReset},
        {233001, 235959, BoardRule::Reset},
    };
    return rows;
}

const std::vector<Span>& TradeSpans() {
    static const std::vector<Span> spans = {{90001, 145959}, {210001, 232959}};
    return spans;
}

Span MorningBreak() {
    return {101450, 103000};
}

StartResult ExpectedStart(const StartCase& start) {
    StartResult result;
    result.sleeps.push_back(openSleep);
    const unsigned int looked = (start.second + openSleep) % daySeconds;
    if (start.todaysBoard) {
        const auto& rows = BoardRows();
        const BoardRule rule =
            std::find_if(rows.begin(), rows.end(), [looked](const BoardRow& row) {
                return Holds(row, looked);
            })->rule;
        const bool looks = (rule == BoardRule::ResetIfStill || rule == BoardRule::LookAndReset) &&
                           start.counters != Counters::NotDecoding;
        if (looks) {
            result.sleeps.insert(result.sleeps.end(), {1, 1});
        }
        result.reset = rule == BoardRule::Reset || rule == BoardRule::LookAndReset ||
                       (looks && start.counters == Counters::Standing);
    } else {
        result.reset = true;
    }
    if (result.reset) {
        result.sleeps.push_back(resetSleep);
    }
    const unsigned int ready =
        std::accumulate(result.sleeps.begin(), result.sleeps.end(), start.second) % daySeconds;
    if (!IsTrading(ready)) {
        return result;
    }
    if (start.cache == Cache::Good) {
        result.way = Way::FromCache;
        if (result.reset) {
            result.sleeps.push_back(120);
        }
        return result;
    }
    result.way = Way::FromTables;
    if (result.reset) {
        const std::size_t minutes = Holds(MorningBreak(), ready) ? 20 : 4;
        result.sleeps.insert(result.sleeps.end(), minutes * 6, 10);
    }
    return result;
}

std::vector<SweepSecond> SecondsToTry(unsigned int everyMinutes) {
    std::map<unsigned int, bool> seconds;  // whether at a bound
    for (unsigned int minute = 0; minute < 24 * 60; minute += everyMinutes) {
        seconds[minute * 60] = false;
    }
    // A start looks at the board one second after it was called, and at the trading time after a
    // look at the counters (2) and a reset (1): the second before, on and after a bound is met by
    // all of these.
    const auto around = [&seconds](unsigned int hhmmss, unsigned int before) {
        const unsigned int bound = SecondsOf(hhmmss) + daySeconds;
        for (unsigned int second = bound - before; second <= bound + 1; ++second) {
            seconds[second % daySeconds] = true;
        }
    };
    for (const BoardRow& row : BoardRows()) {
        around(row.from, 2);
        around(row.to, 2);
    }
    for (const Span& span : TradeSpans()) {
        around(span.from, 5);
        around(span.to, 5);
    }
    around(MorningBreak().from, 5);
    around(MorningBreak().to, 5);
    around(120000, 5);  // the end of the host's time in the rule of the morning break
    around(1759, 2);  // the last second at which a start without a board's time counts as midnight
    std::vector<SweepSecond> result;
    result.reserve(seconds.size());
    for (const auto& [second, atBound] : seconds) {
        result.push_back({second, atBound});
    }
    return result;
}

}  // namespace velatest
