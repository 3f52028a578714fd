#include "BoardClock.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <ctime>

namespace ZceBoard {

BoardTime BoardTimeAt(int64_t wallNs) {
    const time_t seconds = wallNs / NS_PER_SECOND;
    tm local{};
    localtime_r(&seconds, &local);
    const auto hour = static_cast<uint32_t>(local.tm_hour);
    const auto minute = static_cast<uint32_t>(local.tm_min);
    const auto second = static_cast<uint32_t>(local.tm_sec);
    BoardTime time{};
    time.date = static_cast<uint32_t>((local.tm_year + 1900) * 10000 + (local.tm_mon + 1) * 100 +
                                      local.tm_mday);
    time.hhmmss = hour * 10000 + minute * 100 + second;
    time.dayNs = (hour * 3600ULL + minute * 60ULL + second) * NS_PER_SECOND +
                 static_cast<uint64_t>(wallNs % NS_PER_SECOND);
    time.wallNs = wallNs;
    return time;
}

uint32_t HhmmssOf(int64_t dayNs) {
    const auto seconds = static_cast<uint32_t>(dayNs / NS_PER_SECOND);
    return seconds / 3600 * 10000 + seconds / 60 % 60 * 100 + seconds % 60;
}

int64_t DayNsOf(uint32_t hhmmss) {
    const int64_t seconds =
        int64_t{hhmmss / 10000} * 3600 + int64_t{hhmmss / 100 % 100} * 60 + hhmmss % 100;
    return seconds * NS_PER_SECOND;
}

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
