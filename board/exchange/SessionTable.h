#pragma once

#include <cstdint>
#include <vector>

#include "memory/Phase.h"

namespace ZceBoard {

// Whether the exchange sends market data of its own accord, so that the board's parse counters
// move.
inline bool IsMarketOpen(Phase phase) {
    return phase == Phase::Auction || phase == Phase::Trading;
}

// The windows of the exchange's day.
class CSessionTable {
  public:
    // The usual day: auctions 08:30:00 to 08:59:59 and 20:30:00 to 20:59:59; trading 09:00:00 to
    // 10:14:59, 10:30:00 to 11:29:59, 13:30:00 to 14:59:59 and 21:00:00 to 23:29:59; breaks between
    // the trading times of the day; closed at all other times.
    CSessionTable();

    // Another day: always closed, but for the windows that are added.
    void Clear() { m_windows.clear(); }
    // Times are hhmmss, `end` exclusive and at most 240000. False if it is empty or meets another
    // window.
    bool Add(uint32_t first, uint32_t end, Phase phase);

    Phase At(uint32_t hhmmss) const;

  private:
    struct Window {
        uint32_t first;
        uint32_t end;
        Phase phase;
    };
    std::vector<Window> m_windows;
};

// The phase of the usual day at a time of day hhmmss.
Phase PhaseAt(uint32_t hhmmss);

}  // namespace ZceBoard
