#pragma once

#include <cstdint>

namespace ZceBoard {

// Where the exchange's day stands. The values are those of ZCE_BOARD_PHASE_... (ZceBoardMsg.h).
enum class Phase : uint8_t { Closed = 0, Auction = 1, Trading = 2, Break = 3 };

// The phase at a time of day hhmmss. Auctions 08:30:00 to 08:59:59 and 20:30:00 to 20:59:59;
// trading 09:00:00 to 10:14:59, 10:30:00 to 11:29:59, 13:30:00 to 14:59:59 and 21:00:00 to
// 23:29:59; breaks between the trading times of the day; closed at all other times.
Phase PhaseAt(uint32_t hhmmss);

const char* PhaseName(Phase phase);

// Whether the exchange sends market data of its own accord, so that the board's parse counters
// move.
inline bool IsMarketOpen(Phase phase) {
    return phase == Phase::Auction || phase == Phase::Trading;
}

}  // namespace ZceBoard
