#include <fmt/chrono.h>
#include <fmt/format.h>

#include <ctime>
#include <iterator>
#include <string>

#include "program/Printable.h"
#include "watch/Ticks.h"
#include "watch/WatchExport.h"
#include "watch/WatchText.h"

namespace ZceWatch {

namespace {

constexpr const char* ROW = "{:<20} {:>8} {:<8} {:>7} {:>7} {:<7} {:>14} {:<19} {:>12} {}\n";

std::string LocalTimeText(int64_t ns) {
    const time_t at = ns / NS_PER_SECOND;
    std::tm local{};
    if (ns == 0 || localtime_r(&at, &local) == nullptr) {
        return "-";
    }
    return fmt::format("{:%Y-%m-%d %H:%M:%S}", local);
}

}  // namespace

std::string ListText(const Directory& pages) {
    std::string text;
    const auto out = std::back_inserter(text);
    fmt::format_to(out, ROW, "program", "pid", "state", "bus", "channel", "stream", "messages",
                   "last message", "longest gap", "board");
    for (const Process& process : pages.processes) {
        const std::string program = ZceProgram::Printable(process.program);
        for (const Stream& stream : process.streams) {
            const bool bOpen = process.life == Life::Runs && stream.state == EntryState::Open;
            fmt::format_to(out, ROW, program, process.pid, LIFE_TEXTS[IndexOf(process.life)],
                           BusText(stream.bus), stream.channel, bOpen ? "open" : "closed",
                           stream.Messages(), LocalTimeText(stream.lastMessageNs),
                           fmt::format("{:.3f} ms", static_cast<double>(stream.gaps.everNs) / 1e6),
                           BOARD_TEXTS[IndexOf(stream.board)]);
        }
    }
    return text;
}

}  // namespace ZceWatch
