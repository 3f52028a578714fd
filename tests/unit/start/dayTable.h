#pragma once

#include <vector>

// A day of the master as its operator knows it: what a start does at each second, by the state of
// the board and of the cache file. Times of day are hhmmss, bounds inclusive.
namespace velatest {

// What becomes of a board that has today's date.
enum class BoardRule {
    Keep,
    Reset,
    ResetIfStill,  // two seconds of a look at the parse counters decide
    LookAndReset,  // the look takes its time, the board is reset all the same
};
struct BoardRow {
    unsigned int from;
    unsigned int to;
    BoardRule rule;
};
const std::vector<BoardRow>& BoardRows();

// Trading time: a start recovers the list; outside it learns.
struct Span {
    unsigned int from;
    unsigned int to;
};
const std::vector<Span>& TradeSpans();
// The exchange's morning break, as the wait for the board's tables sees it.
Span MorningBreak();

enum class Counters { Moving, Standing, NotDecoding };
enum class Cache { Good, Stale, Absent, Torn };
enum class Way { Learn, FromCache, FromTables };

struct StartCase {
    unsigned int second;  // of the day, at which VelaStart is called
    bool todaysBoard;
    Counters counters;
    Cache cache;
};
struct StartResult {
    bool reset = false;
    Way way = Way::Learn;
    std::vector<unsigned int> sleeps;  // in order
    bool operator==(const StartResult&) const = default;
};
// What the tables give for a start.
StartResult ExpectedStart(const StartCase& start);

// Every minute of the day, and the seconds around every bound of a rule, in order. minuteStep: take
// only every so many minutes.
struct SweepSecond {
    unsigned int second;  // of the day
    bool atBound;
};
std::vector<SweepSecond> SecondsToTry(unsigned int everyMinutes);

}  // namespace velatest
