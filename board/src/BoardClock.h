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

// The present board time. Follows a clock that is moved or accelerated under the process's feet.
BoardTime ReadBoardTime();
// The board time of a moment.
BoardTime BoardTimeAt(int64_t wallNs);

// Real time that passes, for the pace of the market data: a monotonic clock and a sleep that no
// acceleration of the process's clock reaches. Otherwise an accelerated day would keep the
// processor busy with naps a hundred times too short. In ns.
int64_t RealNs();
// Ends early on a signal.
void RealSleep(int64_t ns);

}  // namespace ZceBoard
