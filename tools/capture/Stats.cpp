#include "capturetool/Stats.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <limits>

#include "capturetool/Gnuplot.h"
#include "capturetool/Input.h"
#include "capturetool/LocalTime.h"
#include "capturetool/Names.h"
#include "capturetool/Rates.h"
#include "capturetool/Status.h"
#include "capturetool/TextOutput.h"
#include "program/Printable.h"
#include "program/Program.h"

namespace ZceCaptureTool {

namespace {

using ZceCapture::CaptureMessage;
using ZceCapture::CCaptureReader;

constexpr std::size_t TABLE_BINS = 50;
constexpr std::size_t PLOT_BINS = 1000;
constexpr uint64_t MS = 1'000'000;
// The widths that are chosen from.
constexpr std::array<uint64_t, 22> WIDTHS_MS = {
    1,       2,       5,         10,        20,         50,        100,    200,
    500,     1000,    2000,      5000,      10'000,     30'000,    60'000, 120'000,
    300'000, 600'000, 1'800'000, 3'600'000, 21'600'000, 86'400'000};

// Every message of the files' wanted channels, one after the other.
template <class Take>
bool ReadFiles(const StatsOptions& options, std::vector<std::string>& ends, std::string& error,
               Take take) {
    ends.clear();
    for (const std::string& file : options.files) {
        CCaptureReader reader;
        if (!OpenCapture(file, reader, error)) {
            return false;
        }
        CaptureMessage message;
        CCaptureReader::Next next = reader.Read(message);
        for (; next == CCaptureReader::Next::Message; next = reader.Read(message)) {
            if (options.channels.empty() ||
                std::ranges::find(options.channels, message.channel) != options.channels.end()) {
                take(message.timeNs);
            }
        }
        if (EndingOf(next) != Ending::Whole) {
            ends.push_back(reader.Error());
        }
    }
    return true;
}

uint64_t BinsFor(uint64_t spanNs, uint64_t widthNs) {
    return spanNs / widthNs + 2;  // the first may begin before its first message
}

// The smallest width with which there are not too many; whole days, more of them, for longer ones.
uint64_t ChooseWidth(uint64_t spanNs, std::size_t most) {
    for (const uint64_t width : WIDTHS_MS) {
        if (BinsFor(spanNs, width * MS) <= most) {
            return width * MS;
        }
    }
    const uint64_t day = WIDTHS_MS.back() * MS;
    return (spanNs / day / (most - 2) + 1) * day;
}

// The beginning of the bin that the time lies in.
int64_t BinBegin(int64_t timeNs, uint64_t widthNs) {
    const auto width = static_cast<int64_t>(widthNs);
    const int64_t into = (timeNs % width + width) % width;
    // The first bin of all times begins with them.
    return timeNs < std::numeric_limits<int64_t>::min() + into ? timeNs : timeNs - into;
}

int NotDone(const std::string& error) {
    fprintf(stderr, "zce-capture: %s\n", ZceProgram::Printable(error).c_str());
    return ZceProgram::EXIT_NOT_DONE;
}

bool WritePlot(const DayStats& stats, const StatsOptions& options, std::string& error) {
    std::string title = ZceProgram::Printable(options.files.front());
    if (options.files.size() > 1) {
        title += fmt::format(" and {} more", options.files.size() - 1);
    }
    CTextOutput output;
    std::string svg;
    if (!DrawWithGnuplot(PlotScript(stats, title), svg, error) ||
        !output.Open(options.plot, options.files, error)) {
        return false;
    }
    output.Put(svg);
    return output.Close(error);
}

}  // namespace

bool GatherStats(const StatsOptions& options, DayStats& stats, std::string& error) {
    int64_t first = std::numeric_limits<int64_t>::max();
    int64_t last = std::numeric_limits<int64_t>::min();
    if (!ReadFiles(options, stats.ends, error, [&first, &last](int64_t timeNs) {
            first = std::min(first, timeNs);
            last = std::max(last, timeNs);
        })) {
        return false;
    }
    if (last < first) {
        error = fmt::format("{}: there is no message{}", options.files.front(),
                            options.channels.empty() ? "" : " of these channels");
        return false;
    }
    const uint64_t span = NsBetween(first, last);
    stats.binNs = options.binSeconds > 0
                      ? static_cast<uint64_t>(std::llround(options.binSeconds * 1e9))
                      : ChooseWidth(span, options.plot.empty() ? TABLE_BINS : PLOT_BINS);
    if (BinsFor(span, stats.binNs) > MAX_BINS) {
        error = fmt::format("--bin {}: more than {} rows for {} s: take a longer one",
                            options.binSeconds, MAX_BINS, SecondsText(span));
        return false;
    }
    stats.firstNs = BinBegin(first, stats.binNs);
    stats.bins.resize(NsBetween(stats.firstNs, last) / stats.binNs + 1);
    int64_t before = 0;
    return ReadFiles(options, stats.ends, error, [&stats, &before, last](int64_t timeNs) {
        // A file that grows meanwhile has messages behind the last one.
        if (timeNs < stats.firstNs || timeNs > last) {
            return;
        }
        Bin& bin = stats.bins[NsBetween(stats.firstNs, timeNs) / stats.binNs];
        ++bin.messages;
        const uint64_t gap = stats.messages++ == 0 ? 0 : NsBetween(before, timeNs);
        bin.longestGapNs = std::max(bin.longestGapNs, gap);
        if (gap > stats.longestGapNs) {
            stats.longestGapNs = gap;
            stats.longestGapEndNs = timeNs;
        }
        before = timeNs;
    });
}

std::string StatsTable(const DayStats& stats) {
    std::string text;
    const auto out = std::back_inserter(text);
    CTimeWriter times;
    const double seconds = static_cast<double>(stats.binNs) / 1e9;
    fmt::format_to(out, "{:<29} {:>12} {:>12} {:>20}\n", "from", "messages", "a second",
                   "longest gap, s");
    for (std::size_t k = 0; k < stats.bins.size(); ++k) {
        const Bin& bin = stats.bins[k];
        fmt::format_to(out, "{} {:>12} {:>12.1f} {:>20}\n", times.Plain(stats.BeginOf(k)),
                       bin.messages, static_cast<double>(bin.messages) / seconds,
                       bin.longestGapNs == 0 ? "-" : SecondsText(bin.longestGapNs));
    }
    fmt::format_to(
        out, "{} messages in rows of {} s; longest gap {} s{}\n", stats.messages,
        SecondsText(stats.binNs), SecondsText(stats.longestGapNs),
        stats.longestGapNs == 0 ? "" : fmt::format(", to {}", times.Plain(stats.longestGapEndNs)));
    return text;
}

int RunStats(const StatsOptions& options) {
    DayStats stats;
    std::string error;
    if (!GatherStats(options, stats, error) ||
        (!options.plot.empty() && !WritePlot(stats, options, error))) {
        return NotDone(error);
    }
    for (const std::string& end : stats.ends) {
        fprintf(stderr, "zce-capture: %s: what is before it is counted\n",
                ZceProgram::Printable(end).c_str());
    }
    return ZceProgram::WriteOutput("zce-capture", options.plot.empty() ? StatsTable(stats) : "",
                                   stats.ends.empty() ? ZceProgram::EXIT_FINE : EXIT_NOT_WELL);
}

}  // namespace ZceCaptureTool
