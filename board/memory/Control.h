#pragma once

#include <cerrno>
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
// errno: EINVAL for an argument that makes no sense, EALREADY (paused, or running, already),
// EPERM for a step while it is not paused, EAGAIN for one that a locked core or a full ring held
// up, ENOTSUP if its traffic has no clock to be moved.
int AskBoard(CBoardMemory& memory, Request request, uint64_t argument);

// Puts a request into the mailbox, the number of the last one plus 1: for AskBoard, which waits
// until it may.
void PutRequest(ControlMailbox& mailbox, uint32_t number, Request request, uint64_t argument);

// The board's end of the mailbox. Which request was the last it keeps for itself: nothing that is
// written into the mailbox has it do one twice, or do what was not asked for with PutRequest. One
// thread.
class CRequestTaker {
  public:
    explicit CRequestTaker(ControlMailbox& mailbox)
        : m_mailbox(mailbox), m_done(mailbox.answered.load(std::memory_order_relaxed)) {}

    // The request that waits, if any, is given to `handle(request, argument)`, and its result, 0 or
    // an errno, is the answer; to one that nobody made it is EBADMSG.
    template <class Handle>
    void Answer(Handle&& handle) {
        const uint32_t asked = m_mailbox.asked.load(std::memory_order_acquire);
        if (asked == m_done) {
            if (m_mailbox.answered.load(std::memory_order_relaxed) != m_done) [[unlikely]] {
                m_mailbox.answered.store(m_done, std::memory_order_release);
                ++m_garbage;
            }
            return;
        }
        const uint32_t kind = m_mailbox.kind.load(std::memory_order_relaxed);
        const uint64_t argument = m_mailbox.argument.load(std::memory_order_relaxed);
        const bool made =
            m_mailbox.seal.load(std::memory_order_relaxed) == SealOf(asked, kind, argument);
        m_garbage += made ? 0 : 1;
        m_mailbox.result.store(made ? handle(static_cast<Request>(kind), argument) : EBADMSG,
                               std::memory_order_relaxed);
        m_done = asked;
        m_mailbox.answered.store(asked, std::memory_order_release);
    }

    // What was in the mailbox and nobody had asked for.
    uint64_t Garbage() const { return m_garbage; }

  private:
    ControlMailbox& m_mailbox;
    uint32_t m_done;
    uint64_t m_garbage = 0;
};

// Waits until the board has gone through one whole pass: whatever was put into its memory before
// has been seen. 0, ETIMEDOUT or ENODEV.
int AwaitPass(CBoardMemory& memory);

// Where the board's traffic comes from (BoardStats::source).
enum class TrafficSource : uint32_t { Live, Scenario, Replay, Relay };

// How a feed stands (BoardStats::feeds).
enum class FeedState : uint32_t { Any, Ok, Closed, Wrong };

}  // namespace ZceBoard
