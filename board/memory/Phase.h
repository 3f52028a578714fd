#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace ZceBoard {

// Where the exchange's day stands. The values are those of ZCE_BOARD_PHASE_...
// (ZceBoardMsg.h), in the messages as in the board's memory (BoardStats::phase).
enum class Phase : uint8_t { Closed = 0, Auction = 1, Trading = 2, Break = 3 };

const char* PhaseName(Phase phase);
std::optional<Phase> PhaseOf(std::string_view name);

}  // namespace ZceBoard
