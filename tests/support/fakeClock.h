#pragma once

#include <cstdint>
#include <ctime>
#include <functional>
#include <vector>

// The clock of the unit tests: it stands still until the test or a sleep of the code moves it.
// Local time is UTC here, whatever TZ says, so that no test depends on the hour or the zone.
// The code under test may use it from several threads; the operations here are the test's thread's.
namespace velatest {

class FakeClock {
  public:
    // Sets the local date and time of day; date as yyyymmdd, time as hhmmss.
    static void Set(unsigned int date, unsigned int time);
    // Sets the local time of day, the date kept (20261120 at the start of a process).
    static void SetTime(unsigned int time);
    // Moves the wall clock and the monotonic clock on.
    static void AdvanceSeconds(unsigned int seconds);
    static void AdvanceNs(std::uint64_t ns);
    // The wall clock goes on by `ns` at every reading of it (0, the start: it stands still).
    static void StepPerReadNs(std::uint64_t ns);
    // While true, LocalTime fails.
    static void FailLocalTime(bool fail);
    // Every sleep so far, in seconds, in order; a sleep moves the clock by its length.
    static const std::vector<unsigned int>& Sleeps();
    static void ClearSleeps();
    // Called at each sleep, after the clock has moved: the board's life during a wait.
    static void OnSleep(std::function<void(unsigned int)> hook);
};

}  // namespace velatest
