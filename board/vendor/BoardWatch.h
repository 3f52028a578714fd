#pragma once

#include <atomic>
#include <cstdint>

struct enyx_hw_a2c_stream;
struct enyx_hw_accelerator;

namespace ZceBoard {

// What a process that polls says on standard error of a board that ends under it, each line once
// for each board: that it has gone, and that a new one has come, of which the process has nothing.
// With ZCE_BOARD_QUIET=1 in the environment it says nothing.
struct BoardWatch {
    std::atomic<bool> goneTold{false};
    std::atomic<bool> newTold{false};
};

// Polls of a stream that found nothing until it is looked after again: so many that the board makes
// about a hundred passes in between, a tenth of a second, at whatever pace the process polls. Reads
// no clock: the board's passes are one, as long as it lives.
struct IdleCount {
    static constexpr uint32_t FIRST = 1024;
    uint32_t left = FIRST;
    uint32_t interval = FIRST;
    uint64_t passes = 0;  // of the board, at the last look
    bool paced = false;   // the interval has been found

    bool IsDue() { return --left == 0; }
    // False if the board should have made a pass since the last time and has not.
    bool Restart(uint64_t passesNow);
};

// Looks whether the board lives, and puts right what the stream's reader has in the memory, should
// something have been written over it. Leaves errno alone.
[[gnu::cold]] void LookAfter(enyx_hw_a2c_stream& stream);

// Says, once in a process, that the board of a bus is not for this user.
void TellNoAccess(uint32_t bus);

}  // namespace ZceBoard
