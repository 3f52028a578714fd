#include "vendor/BoardWatch.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "vendor/enyxHandles.h"

namespace ZceBoard {

namespace {

constexpr double LOOK_PASSES = 100;
constexpr double MOST_POLLS = 1U << 26;

bool IsQuiet() {
    const char* const quiet = getenv("ZCE_BOARD_QUIET");
    return quiet != nullptr && strcmp(quiet, "1") == 0;
}

void TellOnce(std::atomic<bool>& told, uint32_t bus, const char* text) {
    if (!told.exchange(true) && !IsQuiet()) {
        fprintf(stderr, "zce-board: bus %u: %s\n", bus, text);
    }
}

void LookForBoard(enyx_hw_accelerator& accelerator, const CBoardFile& holder) {
    const uint32_t bus = accelerator.memory.Bus();
    if (accelerator.watch.newTold.load() || holder.IsLocked(LOCK_BOARD)) {
        return;
    }
    TellOnce(accelerator.watch.goneTold, bus,
             "the board has gone; this process gets nothing more from it");
    if (CBoardMemory::Probe(bus) == 0) {
        TellOnce(accelerator.watch.newTold, bus,
                 "a new board is running, but this process has the memory of the old one: start "
                 "it anew");
    }
}

}  // namespace

bool IdleCount::Restart(uint64_t passesNow) {
    const uint64_t made = passesNow - std::exchange(passes, passesNow);
    double wanted = 2.0 * interval;
    if (made != 0) {
        wanted = std::min(wanted, interval * LOOK_PASSES / static_cast<double>(made));
        paced = static_cast<double>(made) * 4 >= LOOK_PASSES;
    } else if (paced) {
        wanted = interval;
    }
    interval = static_cast<uint32_t>(std::clamp(wanted, 1.0, MOST_POLLS));
    left = interval;
    // Too soon to tell while the pace is not found.
    return made != 0 || (!paced && interval < MOST_POLLS);
}

void LookAfter(enyx_hw_a2c_stream& stream) {
    const int err = errno;
    const bool bAlive =
        stream.idle.Restart(stream.shm->stats.passes.load(std::memory_order_relaxed));
    if (stream.holder.Fd() >= 0) {  // else a forked child's, whose the stream is not
        stream.consumer.TellPosition();
        stream.ring.control->generation.store(stream.generation, std::memory_order_release);
        if (!bAlive) {  // the kernel is asked about a board that stands still, and about no other
            LookForBoard(*stream.accelerator, stream.holder);
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

}  // namespace ZceBoard
