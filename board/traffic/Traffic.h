#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "device/Board.h"
#include "exchange/BoardClock.h"
#include "exchange/SessionTable.h"
#include "memory/Control.h"
#include "memory/HostClock.h"

namespace ZceBoard {

// How a board's clock begins and passes, so far as the command line says.
struct ClockStart {
    std::optional<uint32_t> date;       // yyyymmdd
    std::optional<uint32_t> hhmmss;     // always there with a date
    std::optional<int64_t> speedMilli;  // board time in real time, in thousandths
};

// What a board hears, and when: its clock and the messages that reach it. One thread, the board's.
//
// Once a pass either Follow or Hold tells the host's time, then Play does what is due by the
// board's.
class CTraffic {
  public:
    CTraffic() = default;
    virtual ~CTraffic() = default;
    CTraffic(const CTraffic&) = delete;
    CTraffic& operator=(const CTraffic&) = delete;

    // The board's time goes on to `now`, or stands still until then.
    virtual void Follow(const HostTime& now) = 0;
    virtual void Hold(const HostTime& now) = 0;
    // So much board time passes at once.
    virtual void Step(int64_t ns) = 0;
    // The board's clock jumps forward to a time of day; what lies in between does not happen.
    // 0, or ENOTSUP for traffic that has a time of its own.
    virtual int AdvanceTo(uint32_t hhmmss) = 0;

    // Does what is due, in a bounded amount, and sets the board's clock.
    virtual void Play(CBoard& board) = 0;
    // Whether more is due already, whatever the time.
    virtual bool HasBacklog() const = 0;
    // Whether something that is due could not be done: more than a pass does, or somebody is in the
    // way.
    virtual bool IsBehind() const { return HasBacklog(); }
    // Whether nothing will ever come again.
    virtual bool IsOver() const { return false; }

    virtual BoardTime Time() const = 0;
    virtual Phase CurrentPhase() const = 0;
    virtual TrafficSource Source() const = 0;
    // Board time that passes in real time, in thousandths.
    virtual int64_t SpeedMilli() const { return 1000; }
    // For the first line of the board's output, and for the end of its status line (with a blank in
    // front, or empty).
    virtual std::string Describe() const = 0;
    virtual std::string Status() const { return {}; }
    // Lines in front of the board's last ones.
    virtual std::string LastWords() const { return {}; }
    // Instruments that the exchange lists in a table.
    virtual size_t Instruments(uint32_t table) const = 0;
};

}  // namespace ZceBoard
