// Loaded before the C library by the processes on an AcceleratedClock: its wall clock and its
// sleeps instead of the machine's. Everything else of the C library stays as it is.

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/time.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "startClockPage.h"

namespace velatest {

namespace {

// Ten seconds at a time, so that what the board does in between has its place in a long sleep.
constexpr std::int64_t longestStepNs = 10 * nsPerSecond;
// In a step the exchange also trades, at its real pace.
constexpr unsigned int roundsInStep = 12;

struct Mapping {
    Mapping() {
        const char* const path = std::getenv(clockPageVariable);
        const int fd = path == nullptr ? -1 : open(path, O_RDWR | O_CLOEXEC);
        if (fd < 0) {
            std::abort();  // a test of the clock without its clock
        }
        void* const address =
            mmap(nullptr, sizeof(ClockPage), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        close(fd);
        if (address == MAP_FAILED) {
            std::abort();
        }
        page = static_cast<ClockPage*>(address);
        isBoard = std::getenv(clockBoardVariable) != nullptr;
    }
    ClockPage* page;
    bool isBoard;
};

ClockPage& Page() {
    static const Mapping mapping;
    static const bool isBoard = mapping.isBoard;
    if (isBoard) {
        mapping.page->ulBoardRounds.fetch_add(1);
    }
    return *mapping.page;
}

int ReadClock(clockid_t clock, timespec* result) {
    if (clock != CLOCK_REALTIME && clock != CLOCK_REALTIME_COARSE) {
        return static_cast<int>(syscall(SYS_clock_gettime, clock, result));
    }
    const std::int64_t now = ClockNs(Page());
    *result = {now / nsPerSecond, now % nsPerSecond};
    return 0;
}

void Sleep(const timespec& wanted) {
    ClockPage& page = Page();
    for (std::int64_t left = wanted.tv_sec * nsPerSecond + wanted.tv_nsec; left > 0;
         left -= longestStepNs) {
        page.sleptNs.fetch_add(std::min(left, longestStepNs));
        AwaitRounds(page, roundsInStep);
    }
}

}  // namespace

}  // namespace velatest

#pragma GCC visibility push(default)
extern "C" {

int clock_gettime(clockid_t clock, timespec* result) noexcept {
    return velatest::ReadClock(clock, result);
}

int gettimeofday(timeval* result, void* /*zone*/) noexcept {
    timespec now{};
    velatest::ReadClock(CLOCK_REALTIME, &now);
    *result = {now.tv_sec, now.tv_nsec / 1000};
    return 0;
}

time_t time(time_t* result) noexcept {
    timespec now{};
    velatest::ReadClock(CLOCK_REALTIME, &now);
    if (result != nullptr) {
        *result = now.tv_sec;
    }
    return now.tv_sec;
}

unsigned int sleep(unsigned int seconds) {
    velatest::Sleep({static_cast<time_t>(seconds), 0});
    return 0;
}

int nanosleep(const timespec* wanted, timespec* /*left*/) {
    velatest::Sleep(*wanted);
    return 0;
}
}
#pragma GCC visibility pop
