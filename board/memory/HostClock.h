#pragma once

#include <cstdint>

namespace ZceBoard {

constexpr int64_t NS_PER_SECOND = 1'000'000'000;
constexpr int64_t NS_PER_MS = 1'000'000;

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
