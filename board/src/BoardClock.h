#pragma once

#include <cstdint>

namespace ZceBoard {

// The board's time: the host's local time under the same TZ.
struct BoardTime {
    uint32_t date;  // yyyymmdd
    uint32_t hhmmss;
    uint64_t dayNs;  // ns since midnight
    int64_t wallNs;  // ns since 1970
};

constexpr int64_t NS_PER_SECOND = 1'000'000'000;
constexpr int64_t NS_PER_MS = 1'000'000;
constexpr int64_t NS_PER_DAY = 86'400 * NS_PER_SECOND;

// The board time of a moment, in the process's time zone.
BoardTime BoardTimeAt(int64_t wallNs);

// hhmmss of a time of day, and back; ns since midnight.
uint32_t HhmmssOf(int64_t dayNs);
int64_t DayNsOf(uint32_t hhmmss);

// The host's clocks at one moment, in ns: the wall clock (which may be moved or accelerated under
// the process's feet), and RealNs().
struct HostTime {
    int64_t wallNs;
    int64_t realNs;
};

HostTime ReadHostTime();

// Real time that passes, for the pace of the market data: a monotonic clock and a sleep that no
// acceleration of the process's clock reaches. Otherwise an accelerated day would keep the
// processor busy with naps a hundred times too short. In ns.
int64_t RealNs();
// Ends early on a signal.
void RealSleep(int64_t ns);

}  // namespace ZceBoard
