#pragma once

#include <cstdint>

#include "memory/BoardMemory.h"

namespace ZceBoard {

// What the board's process can be asked for.
enum class Request : uint32_t {
    Pause = 1,  // clock and traffic stand still; registers and streams go on
    Resume,
    Step,     // argument: ms of board time that pass, with their traffic, while it is paused
    Advance,  // argument: the time of day hhmmss that the clock jumps to, forward
};

// Asks a living board for something and waits until it is done: 0; EBUSY if somebody else is asking
// all the time; ETIMEDOUT if the board does not answer; ENODEV if it is gone; or the board's own
// errno: EINVAL for an argument that makes no sense, EALREADY (paused, or going on, already),
// EPERM for a step while it is not paused, EAGAIN for one that a locked core or a full ring held
// up, ENOTSUP if its traffic has no clock to be moved.
int AskBoard(CBoardMemory& memory, Request request, uint64_t argument);

// The board's end: the request that waits, if any, is given to `handle(request, argument)`, and its
// result, 0 or an errno, is the answer.
template <class Handle>
void AnswerRequest(ControlMailbox& mailbox, Handle&& handle) {
    const uint32_t asked = mailbox.asked.load(std::memory_order_acquire);
    if (asked == mailbox.answered.load(std::memory_order_relaxed)) {
        return;
    }
    const auto request = static_cast<Request>(mailbox.kind.load(std::memory_order_relaxed));
    mailbox.result.store(handle(request, mailbox.argument.load(std::memory_order_relaxed)),
                         std::memory_order_relaxed);
    mailbox.answered.store(asked, std::memory_order_release);
}

// Waits until the board has gone through one whole pass: whatever was put into its memory before
// has been seen. 0, ETIMEDOUT or ENODEV.
int AwaitPass(CBoardMemory& memory);

// Where the board's traffic comes from (BoardStats::source).
enum class TrafficSource : uint32_t { Live, Scenario, Replay };

// How a feed stands (BoardStats::feeds).
enum class FeedState : uint32_t { Any, Ok, Closed, Wrong };

}  // namespace ZceBoard
