#pragma once

#include <cstdint>

#include "memory/HostClock.h"

namespace ZceBoard {

// The board's time: the host's local time under the same TZ.
struct BoardTime {
    uint32_t date;  // yyyymmdd
    uint32_t hhmmss;
    uint64_t dayNs;  // ns since midnight
    int64_t wallNs;  // ns since 1970
};

constexpr int64_t NS_PER_DAY = 86'400 * NS_PER_SECOND;

// The board time of a moment, in the process's time zone.
BoardTime BoardTimeAt(int64_t wallNs);

// The moment, in ns since 1970, of a date yyyymmdd and a time of day in the process's time zone.
int64_t MomentAt(uint32_t date, uint32_t hhmmss);

// hhmmss of a time of day, and back; ns since midnight.
uint32_t HhmmssOf(int64_t dayNs);
int64_t DayNsOf(uint32_t hhmmss);

}  // namespace ZceBoard
