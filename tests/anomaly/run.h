#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "points.h"
#include "slowBuild.h"
#include "tempDir.h"

// Whole runs of the library (start, receive, stop), each in a process of its own.
namespace anomaly {

using Lines_t = std::vector<std::string>;

struct Scenario {
    const char* name;
    const char* stream;  // that the run opens
    int channel;         // as the worker's lines have it
    unsigned int time;   // of the start, hhmmss
    std::uint32_t boardDate;
    const char* cacheFile;  // text; null: there is none
    bool learns;            // the instrument list comes as map packets
    std::uint64_t masks;    // the report's, after an undisturbed run
};
extern const Scenario outside;    // with learning to "All channel subs over."
extern const Scenario newDay;     // the same on a board of another date, which is reset
extern const Scenario fromCache;  // inside trading time
extern const Scenario fromTables;
extern const Scenario channel3;

// Of many points every so many is tried; each run is some times as slow under a sanitizer.
inline const std::uint32_t step = velatest::SweepsAll()            ? 1
                                  : velatest::underThreadSanitizer ? 64
                                  : velatest::slowBuild            ? 16
                                                                   : 1;

// What one run left.
struct Outcome {
    int status = 0;  // waitpid's
    Lines_t lines;   // "LEVEL text" of log lines, "OUT text" of all others, in order
    Report report{};

    // Texts of the lines of a level.
    Lines_t Of(const std::string& level) const;
    std::uint32_t Count(Kind kind) const;
};

// Runs forked, one after the other, in a directory of their own with the log service at work.
class Runner {
  public:
    explicit Runner(const Scenario& scenario);
    Outcome Run(const Failure& failure);
    // As Run, but of something else than the scenario.
    Outcome RunOther(const Failure& failure, const std::function<void()>& body);

    const Scenario& scenario;

  private:
    velatest::TempDir m_dir{velatest::TempDir::Enter::yes};
    int m_output;
};

// The checks that hold for every run, whatever failed: the process ended by itself and with status
// 0, all that was taken was given back. `allowA2c` and `allowC2a`: streams that stay open.
void CheckEnd(const Outcome& outcome, int allowA2c = 0, int allowC2a = 0);

// Adds to the figures that the program prints at its end.
void CountPoint(Kind kind);

}  // namespace anomaly
