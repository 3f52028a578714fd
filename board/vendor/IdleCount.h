#pragma once

#include <algorithm>
#include <cstdint>
#include <utility>

namespace ZceBoard {

// Polls of a stream that found nothing until it is looked after again: so many that the board makes
// about a hundred passes in between, a tenth of a second, at whatever pace the process polls. Reads
// no clock: the board's passes are one, as long as it lives.
struct IdleCount {
    static constexpr double LOOK_PASSES = 100;
    static constexpr double MOST_POLLS = 1U << 26;
    static constexpr uint32_t FIRST = 64;
    uint32_t left = FIRST;
    uint32_t interval = FIRST;
    uint32_t before = FIRST;  // the interval before the last look
    uint64_t passes = 0;      // of the board, at the last look
    bool paced = false;       // the interval has been found

    bool IsDue() { return --left == 0; }
    // False if the board has made no pass since the last time: it stands still or has ended, or the
    // process polls so fast that it is too soon to tell. The interval then doubles, so that the
    // last does not take long.
    [[gnu::cold]] bool Restart(uint64_t passesNow) {
        const uint64_t made = passesNow - std::exchange(passes, passesNow);
        before = interval;
        double wanted = 2.0 * interval;
        if (made != 0) {
            wanted = std::min(wanted, interval * LOOK_PASSES / static_cast<double>(made));
            paced = static_cast<double>(made) * 4 >= LOOK_PASSES;
        } else if (paced) {
            wanted = interval;
        }
        interval = static_cast<uint32_t>(std::clamp(wanted, 1.0, MOST_POLLS));
        left = interval;
        return made != 0;
    }
    // The board has ended, and its passes tell no time any more: the pace stays.
    void Keep() { left = interval = before; }
};

}  // namespace ZceBoard
