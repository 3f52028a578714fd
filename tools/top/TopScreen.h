#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ctl/Snapshot.h"
#include "top/TopPage.h"

namespace ZceBoard {

// How many a second.
struct TopRates {
    std::array<uint64_t, CHANNELS> messages{};
    std::array<bool, CHANNELS> bDropping{};  // messages were dropped in this time
    uint64_t parsed = 0;
};

// What the monitor shows: how a board stands, and how fast it goes.
struct TopView {
    BoardSnapshot board;
    std::optional<TopRates> rates;  // since the snapshot before; none with the first one
    bool bAnswering = true;         // false: the board's process has done nothing for a second
};

// Makes views of one board's snapshots, taken one after another.
class CTopHistory {
  public:
    // `realNs`: when the snapshot was taken, on a clock that does not go back.
    TopView Add(const BoardSnapshot& board, int64_t realNs);

  private:
    std::optional<BoardSnapshot> m_last;
    int64_t m_lastNs = 0;
    int64_t m_movedNs = 0;  // when the passes were last seen to have moved on
};

// The whole text, as wide and as long as it is.
std::vector<TopLine> TopLines(const TopView& view);

// The lines of TopLines: this one is empty, and the channels' rows come from the next but one on,
// a row for each channel that was ever open.
constexpr size_t TOP_SPARE_LINE = 6;
constexpr size_t TOP_FIRST_ROW = 8;

// The same on a screen: what does not fit is cut. A line that was cut ends with '>', and with lines
// missing the last one says how many.
std::vector<TopLine> FitScreen(std::vector<TopLine> lines, size_t columns, size_t rows);

// Puts `hint` at the right end of a line of a screen, if there is room for it.
void AddHint(std::string& line, const std::string& hint, size_t columns);

// A number in at most `width` (5 or more) characters; if it has more, its first three digits and a
// unit: "1.23M".
std::string ShortNumber(uint64_t number, size_t width);

// Events a second, to the nearest whole one; 0 if the count has run back.
uint64_t PerSecond(uint64_t before, uint64_t now, int64_t ns);

}  // namespace ZceBoard
