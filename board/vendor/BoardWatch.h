#pragma once

#include <atomic>
#include <cstdint>

struct enyx_hw_a2c_stream;
struct enyx_hw_accelerator;

namespace ZceBoard {

// What a process that polls says on standard error of a board that ends under it, each line once
// for each board: that it has gone, and that a new one has come, of which the process has nothing.
// With ZCE_BOARD_QUIET=1 in the environment neither they nor the lines below are said. No line
// makes the process wait.
struct BoardWatch {
    std::atomic<bool> goneTold{false};
    std::atomic<bool> newTold{false};
};

// Looks whether the board lives, and puts right what the stream's reader has in the memory, should
// something have been written over it. Leaves errno alone.
[[gnu::cold]] void LookAfter(enyx_hw_a2c_stream& stream);

// One of ZceBoardState.h: whether the board that the process has mapped runs, by the kernel. Any
// thread. Leaves errno alone.
int BoardState(const enyx_hw_accelerator& accelerator);

// Says, once in a process, that the board of a bus is not for this user.
void TellNoAccess(uint32_t bus);

// Says, once in a process, that it is the software board that the process uses, and which.
void TellSoftwareBoard(const enyx_hw_accelerator& accelerator);

}  // namespace ZceBoard
