#include "ctl/CtlBoard.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>

#include "ctl/CtlError.h"
#include "memory/BoardFile.h"
#include "memory/Control.h"

namespace ZceBoard {

namespace {

std::string AttachErrorText(uint32_t bus, int err) {
    if (ShmName(bus).empty()) {
        return "ZCE_BOARD_SHM_PREFIX cannot be part of a name in shared memory";
    }
    switch (err) {
        case ENODEV:
            return fmt::format("bus {}: no zce-board is running on it", bus);
        case EPROTO:
            return fmt::format("bus {}: the zce-board running on it is of another version", bus);
        case EACCES:
            return fmt::format("bus {}: the zce-board running on it is another user's", bus);
        default:
            return fmt::format("bus {}: cannot map the memory of its board: {}", bus,
                               strerror(err));
    }
}

}  // namespace

std::string AnswerErrorText(const CBoardMemory& memory, int err) {
    const int32_t pid = memory.Shm().header.boardPid.load(std::memory_order_relaxed);
    switch (err) {
        case ETIMEDOUT:
            return fmt::format("bus {}: the board (process {}) does not answer", memory.Bus(), pid);
        case ENODEV:
            return fmt::format("bus {}: the board (process {}) is gone", memory.Bus(), pid);
        default:
            return fmt::format("bus {}: {}", memory.Bus(), strerror(err));
    }
}

int TryAttach(CBoardMemory& memory, uint32_t bus, std::string& reason) {
    int err = memory.Attach(bus);
    if (err != 0) {
        reason = AttachErrorText(bus, err);
        return err;
    }
    // A board that has just been started has told nothing of itself yet.
    if (memory.Shm().stats.passes.load(std::memory_order_acquire) == 0) {
        err = AwaitPass(memory);
        reason = err == 0 ? "" : AnswerErrorText(memory, err);
    }
    return err;
}

void AttachBoard(CBoardMemory& memory, uint32_t bus) {
    std::string reason;
    if (TryAttach(memory, bus, reason) != 0) {
        throw CCtlError(reason);
    }
}

}  // namespace ZceBoard
