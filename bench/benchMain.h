#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

// What the benchmarks' programs share: options, the table of figures, the ratios at its end.
namespace velabench {

// Says what is wrong and ends the program with status 1; what it has in the file system goes.
[[noreturn]] void Die(const std::string& what);
// Whoever has something in the file system that must not outlive the program gives its removal
// here. It runs at every end of the program, even the library's own exit(0), which becomes a
// failure unless Finish() was called.
void AtEnd(void (*remove)());
void Finish();

// A run of a few iterations, to see that the program still works.
bool IsSmokeRun();

// A benchmark of one iteration, which sets its time and its counters itself.
template <class Bench>
void Register(const std::string& name, Bench bench) {
    benchmark::RegisterBenchmark(name.c_str(), bench)->UseManualTime()->Iterations(1);
}

// The console's table, and from it the median of each counter of each benchmark.
class CMedians : public benchmark::ConsoleReporter {
  public:
    CMedians();
    void ReportRuns(const std::vector<Run>& runs) override;
    double Counter(const std::string& name, const std::string& counter) const;

  private:
    std::map<std::string, std::map<std::string, double>> m_medians;
    bool m_single;
};

// Reads the options (Google Benchmark's, and --smoke); everything else ends the program with 2.
// `repetitions` is how often each benchmark runs if no option says.
void ReadOptions(int argc, char** argv, int repetitions = 25);
// Runs the registered benchmarks, the repetitions of all of them mixed.
void RunAll(CMedians& medians);

// One line "ratio NAME VALUE at-least|at-most BOUND" or "ratio NAME VALUE", as bench.sh reads it.
void PrintRatio(const std::string& name, double value);
void PrintRatioAtLeast(const std::string& name, double value, double bound);
void PrintRatioAtMost(const std::string& name, double value, double bound);

// One line "point PLOT SERIES X Y", as bench.sh reads it: a dot of a plot in docs/performance.md.
// PLOT and SERIES are single words.
void PrintPoint(const std::string& plot, const std::string& series, double x, double y);

}  // namespace velabench
