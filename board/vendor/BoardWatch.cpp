#include "vendor/BoardWatch.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "memory/HostClock.h"
#include "vendor/enyxHandles.h"

namespace ZceBoard {

namespace {

constexpr int64_t LOOK_NS = 100'000'000;
constexpr uint32_t MOST_POLLS = 1U << 26;

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

void IdleCount::Restart() {
    const int64_t now = RealNs();
    const int64_t passed = std::max<int64_t>(now - lastNs, 1);
    // Twice as many at most: the process may have been busy or asleep meanwhile.
    const double wanted =
        static_cast<double>(interval) * static_cast<double>(LOOK_NS) / static_cast<double>(passed);
    interval = static_cast<uint32_t>(
        std::clamp(wanted, 1.0, std::min(2.0 * interval, static_cast<double>(MOST_POLLS))));
    left = interval;
    lastNs = now;
}

void LookAfter(enyx_hw_a2c_stream& stream) {
    const int err = errno;
    stream.idle.Restart();
    if (stream.holder.Fd() >= 0) {  // else a forked child's, whose the stream is not
        stream.consumer.TellPosition();
        stream.ring.control->generation.store(stream.generation, std::memory_order_release);
        LookForBoard(*stream.accelerator, stream.holder);
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
