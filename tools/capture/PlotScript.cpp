#include <fmt/format.h>

#include <ctime>
#include <iterator>
#include <string>

#include "capturetool/LocalTime.h"
#include "capturetool/Stats.h"

namespace ZceCaptureTool {

namespace {

// In single quotes, as gnuplot reads them.
std::string Quoted(const std::string& text) {
    std::string quoted = "'";
    for (const char letter : text) {
        quoted += letter;
        if (letter == '\'') {
            quoted += letter;
        }
    }
    return quoted + "'";
}

// gnuplot knows no time zones: the seconds whose UTC is the local time.
std::string LocalSeconds(int64_t timeNs) {
    const int64_t fraction = (timeNs % NS_PER_SECOND + NS_PER_SECOND) % NS_PER_SECOND;
    const std::time_t time = (timeNs - fraction) / NS_PER_SECOND;
    std::tm local{};
    localtime_r(&time, &local);
    return fmt::format("{}.{:09}", time + local.tm_gmtoff, fraction);
}

}  // namespace

std::string PlotScript(const DayStats& stats, const std::string& title) {
    std::string script;
    const auto out = std::back_inserter(script);
    fmt::format_to(out, "$day << EOD\n");
    const double seconds = static_cast<double>(stats.binNs) / 1e9;
    for (std::size_t k = 0; k < stats.bins.size(); ++k) {
        const Bin& bin = stats.bins[k];
        // A bin in which no gap ends has no dot on an axis that is logarithmic.
        fmt::format_to(out, "{} {:.6g} {}\n", LocalSeconds(stats.BeginOf(k)),
                       static_cast<double>(bin.messages) / seconds,
                       bin.longestGapNs == 0
                           ? "NaN"
                           : fmt::format("{:.9g}", static_cast<double>(bin.longestGapNs) / 1e9));
    }
    const bool bShort = seconds * static_cast<double>(stats.bins.size()) < 10;
    fmt::format_to(
        out,
        "EOD\n"
        "set terminal svg size 900,600 dynamic background 'white' font 'sans,12'\n"
        "set xdata time\n"
        "set timefmt '%s'\n"
        "set format x '{}'\n"
        "set xtics rotate by -30\n"
        "set xrange ['{}':'{}']\n"
        "set grid\n"
        "unset key\n"
        "set lmargin 14\n"
        "set rmargin 8\n"
        "set multiplot layout 2,1\n"
        "set title {} noenhanced\n"
        "set ylabel 'messages a second'\n"
        "set yrange [0:*]\n"
        "plot $day using 1:2 with fillsteps fillstyle solid 0.5 linecolor rgb '#4070b0'\n",
        bShort ? "%.3S s" : "%H:%M:%S", LocalSeconds(stats.BeginOf(0)),
        LocalSeconds(stats.BeginOf(stats.bins.size())), Quoted(title));
    if (stats.longestGapNs != 0) {  // else there is no dot, and gnuplot draws no plot without one
        fmt::format_to(out,
                       "unset title\n"
                       "set ylabel 'longest gap, s'\n"
                       "set yrange [*:{:.9g}]\n"
                       "set logscale y\n"
                       "plot $day using 1:3 with points pointtype 7 pointsize 0.3 "
                       "linecolor rgb '#4070b0'\n",
                       static_cast<double>(stats.longestGapNs) * 2e-9);
    }
    fmt::format_to(out, "unset multiplot\n");
    return script;
}

}  // namespace ZceCaptureTool
