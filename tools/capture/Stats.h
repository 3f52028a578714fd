#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace ZceCaptureTool {

struct StatsOptions {
    std::vector<std::string> files;  // in the order of time
    std::vector<uint32_t> channels;  // none: all
    std::string plot;                // the SVG file; empty: a table
    double binSeconds = 0;           // 0: chosen
};

// One stretch of the day.
struct Bin {
    uint64_t messages = 0;
    uint64_t longestGapNs = 0;  // of those that end in it; 0: none does
};

// Rates and gaps over the time of some captures.
struct DayStats {
    int64_t firstNs = 0;  // the first bin's
    uint64_t binNs = 0;
    std::vector<Bin> bins;
    uint64_t messages = 0;
    uint64_t longestGapNs = 0;
    int64_t longestGapEndNs = 0;
    // When the bin k begins. As unsigned, since a file may hold any times.
    int64_t BeginOf(std::size_t k) const {
        return static_cast<int64_t>(static_cast<uint64_t>(firstNs) + k * binNs);
    }
    std::vector<std::string> ends;  // where files end before their end
};

// Reads the files twice: first for the time that they span. The memory is that of at most MAX_BINS
// bins. False with the reason if a file cannot be read or there would be more bins.
constexpr std::size_t MAX_BINS = 100'000;
bool GatherStats(const StatsOptions& options, DayStats& stats, std::string& error);

// A row for each bin.
std::string StatsTable(const DayStats& stats);
// What gnuplot draws them from, to its standard output.
std::string PlotScript(const DayStats& stats, const std::string& title);

// zce-capture stats. The exit status: 0; 1 if a file is cut; 2 if one cannot be read or the plot
// not be drawn.
int RunStats(const StatsOptions& options);

}  // namespace ZceCaptureTool
