#include "SessionTable.h"

namespace ZceBoard {

namespace {

struct Window {
    uint32_t first;  // hhmmss, inclusive
    uint32_t end;    // exclusive
    Phase phase;
};

constexpr Window DAY[] = {
    {83000, 90000, Phase::Auction},   {90000, 101500, Phase::Trading},
    {101500, 103000, Phase::Break},   {103000, 113000, Phase::Trading},
    {113000, 133000, Phase::Break},   {133000, 150000, Phase::Trading},
    {203000, 210000, Phase::Auction}, {210000, 233000, Phase::Trading},
};

constexpr const char* NAMES[] = {"closed", "auction", "trading", "break"};

}  // namespace

Phase PhaseAt(uint32_t hhmmss) {
    for (const Window& window : DAY) {
        if (hhmmss >= window.first && hhmmss < window.end) {
            return window.phase;
        }
    }
    return Phase::Closed;
}

const char* PhaseName(Phase phase) {
    return NAMES[static_cast<uint8_t>(phase)];
}

}  // namespace ZceBoard
