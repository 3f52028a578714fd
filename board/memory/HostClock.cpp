#include "memory/HostClock.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <ctime>

namespace ZceBoard {

HostTime ReadHostTime() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return {now.tv_sec * NS_PER_SECOND + now.tv_nsec, RealNs()};
}

// The system calls themselves: a library that moves the clock for a process stands in front of the
// C library's functions.
int64_t RealNs() {
    timespec now{};
    syscall(SYS_clock_gettime, CLOCK_MONOTONIC, &now);
    return now.tv_sec * NS_PER_SECOND + now.tv_nsec;
}

void RealSleep(int64_t ns) {
    timespec nap{ns / NS_PER_SECOND, ns % NS_PER_SECOND};
    syscall(SYS_clock_nanosleep, CLOCK_MONOTONIC, 0, &nap, nullptr);
}

}  // namespace ZceBoard
