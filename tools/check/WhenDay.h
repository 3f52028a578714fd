#pragma once

#include <string>
#include <vector>

#include "check/WhenStart.h"

// The day of the master in one piece: what a start does from when to when.
namespace ZceCheck {

// What becomes of a board that was used today.
enum class BoardRule { Keep, Reset, ResetIfStill };

// Times of day (hhmmss, both inclusive) at which a start looks at the board, not those at which it
// is called.
struct DayRow {
    unsigned int from = 0;
    unsigned int to = 0;
    BoardRule board = BoardRule::Keep;  // with TooLate: Keep
    ListWay way = ListWay::Learn;       // of a board that is kept, if the rule keeps one
    unsigned int auctionEnd = 0;      // Learn: as StartPlan has it, 86400 and more: the next day's
    std::vector<unsigned int> waits;  // Recover: the minutes that a start after a reset may wait
};

// The rows of a day, from 00:00:00 to 23:59:59.
std::vector<DayRow> DayRows(unsigned int round = DEFAULT_ROUND);

// What the rows say, in words: the board, the list, how long it takes.
std::string BoardWords(const DayRow& row);
std::string ListWords(const DayRow& row);
std::string DurationWords(const DayRow& row);

// The rows as the table of docs/operations.md; each line ends with a line end. A bound that the
// exchange's round decides is given to the minute.
std::string DayTable(const std::vector<DayRow>& rows);

// A picture of the day, a column for each 20 minutes, and below it the rows. mark: a second of the
// day that is pointed to, or DAY_SECONDS for none.
std::string DayPicture(const std::vector<DayRow>& rows, unsigned int mark);

}  // namespace ZceCheck
