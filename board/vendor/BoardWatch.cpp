#include "vendor/BoardWatch.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "ZceBoardState.h"
#include "vendor/StandardError.h"
#include "vendor/enyxHandles.h"

namespace ZceBoard {

namespace {

bool IsQuiet() {
    const char* const quiet = getenv("ZCE_BOARD_QUIET");
    return quiet != nullptr && strcmp(quiet, "1") == 0;
}

// A line of printf's making, once; longer ones are cut.
template <class... Values>
void TellOnce(std::atomic<bool>& told, const char* format, Values... values) {
    if (told.exchange(true) || IsQuiet()) {
        return;
    }
    std::array<char, 256> line{};
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-vararg,cert-err33-c): numbers and short words
    const int size = snprintf(line.data(), line.size(), format, values...);
    if (size > 0) {
        TellWithoutWaiting(line.data(), std::min(static_cast<size_t>(size), line.size() - 1));
    }
}

void TellOnce(std::atomic<bool>& told, uint32_t bus, const char* text) {
    TellOnce(told, "zce-board: bus %u: %s\n", bus, text);
}

// Whether the board that the process has mapped still runs.
bool LookForBoard(enyx_hw_accelerator& accelerator, const CBoardFile& holder) {
    const uint32_t bus = accelerator.memory.Bus();
    if (accelerator.watch.newTold.load()) {
        return false;
    }
    if (holder.IsLocked(LOCK_BOARD)) {
        return true;
    }
    TellOnce(accelerator.watch.goneTold, bus,
             "the board has gone; this process gets nothing more from it");
    if (CBoardMemory::Probe(bus) == 0) {
        TellOnce(accelerator.watch.newTold, bus,
                 "a new board is running, but this process has the memory of the old one: start "
                 "it anew");
    }
    return false;
}

// A forked child has lost the file: it looks for the memory by its name.
bool IsRunning(const enyx_hw_accelerator& accelerator) {
    if (accelerator.life.Fd() >= 0) {
        return accelerator.life.IsLocked(LOCK_BOARD);
    }
    CBoardFile file;
    return accelerator.memory.Reopen(file) != ENODEV;
}

}  // namespace

int BoardState(const enyx_hw_accelerator& accelerator) {
    const int err = errno;
    int state = ZCE_BOARD_RUNS;
    if (!IsRunning(accelerator)) {
        state = CBoardMemory::Probe(accelerator.memory.Bus()) == 0 ? ZCE_BOARD_NEW : ZCE_BOARD_GONE;
    }
    errno = err;
    return state;
}

void LookAfter(enyx_hw_a2c_stream& stream) {
    const int err = errno;
    const bool bMoves =
        stream.idle.Restart(stream.shm->stats.passes.load(std::memory_order_relaxed));
    if (stream.holder.Fd() >= 0) {  // else a forked child's, whose the stream is not
        stream.consumer.TellPosition();
        stream.ring.control->generation.store(stream.generation, std::memory_order_release);
        // The kernel is asked about a board that does not move, and about no other.
        if (!bMoves && !LookForBoard(*stream.accelerator, stream.holder)) {
            stream.idle.Keep();
        }
    }
    errno = err;
}

void TellNoAccess(uint32_t bus) {
    static std::atomic<bool> told{false};
    TellOnce(told, bus,
             "the board is another user's: have it started with --group and a group that this "
             "user is in, or run as its user");
}

void TellSoftwareBoard(const enyx_hw_accelerator& accelerator) {
    static std::atomic<bool> told{false};
    const int32_t pid = accelerator.memory.Shm().header.boardPid.load(std::memory_order_relaxed);
    TellOnce(told, "libenyx-hw-c: this is the software board, bus %u, zce-board process %d\n",
             accelerator.memory.Bus(), pid);
}

}  // namespace ZceBoard
