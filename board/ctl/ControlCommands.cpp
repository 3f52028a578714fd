#include "ctl/ControlCommands.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <optional>
#include <string_view>

#include "ctl/CtlBoard.h"
#include "ctl/CtlError.h"
#include "memory/Control.h"
#include "memory/Values.h"

namespace ZceBoard {

namespace {

constexpr uint64_t MAX_STEP_MS = 86'400'000;
// What a board can be asked to do at once, so that it answers in time.
constexpr uint64_t STEP_PART_MS = 1000;

// `senseless`: what is said to EINVAL. False: it was so already.
bool Ask(CBoardMemory& memory, Request request, uint64_t argument, const std::string& senseless) {
    const int err = AskBoard(memory, request, argument);
    const auto refused = [&memory](const std::string& reason) {
        return CCtlError(fmt::format("bus {}: {}", memory.Bus(), reason));
    };
    switch (err) {
        case 0:
        case EALREADY:
            // Done, also if the board has come to the end of its scenario by that.
            if (AwaitPass(memory) == ETIMEDOUT) {
                throw CCtlError(AnswerErrorText(memory, ETIMEDOUT));
            }
            return err == 0;
        case EBUSY:
            throw refused("somebody else is asking the board all the time");
        case EINVAL:
            throw refused(senseless);
        case EPERM:
            throw refused("a step can be made only while the board is paused");
        case EAGAIN:
            throw refused(
                "a process keeps the core locked or takes no messages: part of the step "
                "is not done");
        case ENOTSUP:
            throw refused("the board's traffic has a time of its own, which cannot be moved");
        default:
            throw CCtlError(AnswerErrorText(memory, err));
    }
}

}  // namespace

bool PauseBoard(CBoardMemory& memory) {
    return Ask(memory, Request::Pause, 0, "the board cannot be paused");
}

bool ResumeBoard(CBoardMemory& memory) {
    return Ask(memory, Request::Resume, 0, "the board cannot go on");
}

void StepBoard(CBoardMemory& memory, const std::string& ms) {
    uint64_t left = 0;
    const char* const end = ms.data() + ms.size();
    const auto [stop, err] = std::from_chars(ms.data(), end, left);
    if (err != std::errc{} || stop != end || left == 0 || left > MAX_STEP_MS) {
        throw CCtlError(
            fmt::format("step: \"{}\": a step is 1 to {} ms of board time", ms, MAX_STEP_MS));
    }
    while (left != 0) {
        const uint64_t part = std::min(left, STEP_PART_MS);
        Ask(memory, Request::Step, part, fmt::format("a step of {} ms is not possible", part));
        left -= part;
    }
}

void AdvanceTo(CBoardMemory& memory, const std::vector<std::string>& words) {
    const bool bTo = words.size() == 2 && words.front() == "to";
    const std::optional<uint32_t> time =
        words.size() == 1 || bTo ? ParseTimeOfDay(words.back()) : std::nullopt;
    if (!time) {
        throw CCtlError(
            fmt::format("advance: \"{}\": a time of day is HH:MM:SS, 00:00:00 to 23:59:59",
                        fmt::join(words, " ")));
    }
    Ask(memory, Request::Advance, *time,
        fmt::format("the clock cannot go forward to {}", words.back()));
}

}  // namespace ZceBoard
