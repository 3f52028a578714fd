#pragma once

#include <string>
#include <vector>

namespace velatest {

struct ClockPage;

// The wall clock of several processes, in the test's hand. All that are started with Environment()
// read the same time: it stands still or runs at a rate, the test moves it for all of them at once,
// and a sleep() of one of them carries it on by as many seconds and takes milliseconds. So a start
// at hh:mm:ss happens at exactly hh:mm:ss on a machine of any speed, and its waits of many minutes
// take no time.
//
// The local time is UTC. Monotonic clocks, timed waits and the naps of the board's own loop stay
// real. Only the test's thread calls the operations; the page lies in the file `path` as long as
// any process has it.
class AcceleratedClock {
  public:
    // At 00:00:00 of 18 November 2026, standing still.
    explicit AcceleratedClock(const std::string& path);
    ~AcceleratedClock();
    AcceleratedClock(const AcceleratedClock&) = delete;
    AcceleratedClock& operator=(const AcceleratedClock&) = delete;

    // For the processes on this clock; the board has one of its own, by which a change of the time
    // waits until the board has seen it.
    std::vector<std::string> Environment() const;
    std::vector<std::string> BoardEnvironment() const;

    // Moves the clock to this date (yyyymmdd) and time of day (hhmmss), forwards or back; it then
    // stands still. Returns when the board has that time in its registers.
    void Set(unsigned int date, unsigned int hhmmss);
    // Lets it run from where it is, `rate` seconds in a real one; 0: stands still.
    void Run(double rate);
    // The present time of day and date.
    unsigned int TimeOfDay() const;
    unsigned int Date() const;
    // Until the board has made this many rounds of all that it does, one a real millisecond at
    // most. False if it does not within ten seconds.
    bool AwaitBoard(unsigned int rounds) const;

  private:
    void Put(long long wallNs, double rate);

    std::string m_path;
    ClockPage* m_pPage = nullptr;
};

// Seconds since midnight of a time of day hhmmss, and back.
unsigned int DaySeconds(unsigned int hhmmss);
unsigned int TimeOfSeconds(unsigned int seconds);

}  // namespace velatest
