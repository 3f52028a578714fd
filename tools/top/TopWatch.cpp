#include "top/TopWatch.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdint>

#include "memory/HostClock.h"
#include "program/Printable.h"
#include "top/TopScreen.h"
#include "watch/WatchText.h"

namespace ZceBoard {

namespace {

using ZceWatch::BoardState;
using ZceWatch::CountersState;
using ZceWatch::EntryState;
using ZceWatch::Life;

constexpr uint64_t LONG_SILENCE_NS = NS_PER_SECOND;  // between two polls

struct WatchColumn {
    const char* title;
    size_t width;
    bool bLeft = false;
};
// As far as "ever" they fit on 80 columns.
constexpr std::array<WatchColumn, 23> WATCH_COLUMNS = {{{"program", 12, true},
                                                        {"pid", 7},
                                                        {"bus", 3},
                                                        {"ch", 2},
                                                        {"state", 7, true},
                                                        {"msg/s", 6},
                                                        {"last", 6},
                                                        {"gap", 6},
                                                        {"1s", 6},
                                                        {"1min", 6},
                                                        {"ever", 6},
                                                        {"board", 8, true},
                                                        {"backpr", 6},
                                                        {"fifo", 5},
                                                        {"errors", 6},
                                                        {"map", 6},
                                                        {"t17", 6},
                                                        {"t18", 6},
                                                        {"t19", 6},
                                                        {"t20", 6},
                                                        {"other", 5},
                                                        {"bytes", 6},
                                                        {"open#", 5}}};

// A row from left to right.
class CRow {
  public:
    CRow& Put(const std::string& cell, std::optional<TopMark> mark = {}) {
        const WatchColumn& column = WATCH_COLUMNS[m_next];
        m_line.text += m_next == 0 ? "" : " ";
        ++m_next;
        const std::string text = column.bLeft ? fmt::format("{:<{}}", cell, column.width)
                                              : fmt::format("{:>{}}", cell, column.width);
        if (mark) {
            m_line.Append(text, *mark);
        } else {
            m_line.text += text;
        }
        return *this;
    }
    CRow& Number(uint64_t number, std::optional<TopMark> mark = {}) {
        return Put(ShortNumber(number, WATCH_COLUMNS[m_next].width), mark);
    }
    TopLine Take() {
        m_line.text.erase(m_line.text.find_last_not_of(' ') + 1);
        return std::move(m_line);
    }

  private:
    TopLine m_line;
    size_t m_next = 0;
};

TopLine WatchTitles() {
    CRow row;
    for (const WatchColumn& column : WATCH_COLUMNS) {
        row.Put(column.title);
    }
    return row.Take();
}

// Cut to the column's width.
std::string NameText(const std::string& program) {
    const std::string name = ZceProgram::Printable(program);
    return name.size() <= WATCH_COLUMNS[0].width ? name
                                                 : name.substr(0, WATCH_COLUMNS[0].width - 1) + ">";
}

void PutState(CRow& row, Life life, EntryState state) {
    if (life != Life::Runs) {
        row.Put(ZceWatch::LIFE_TEXTS[ZceWatch::IndexOf(life)],
                life == Life::Died ? TopMark::Alarm : TopMark::Closed);
    } else if (state == EntryState::Open) {
        row.Put("open");
    } else {
        row.Put("closed", TopMark::Closed);
    }
}

void PutGaps(CRow& row, const ZceWatch::Stream& stream) {
    const ZceWatch::Gaps& gaps = stream.gaps;
    if (gaps.runningNs == 0) {
        row.Put("-");
    } else {
        row.Put(ShortTime(gaps.runningNs),
                gaps.runningNs >= LONG_SILENCE_NS ? std::optional(TopMark::Alarm) : std::nullopt);
    }
    row.Put(ShortTime(gaps.secondNs)).Put(ShortTime(gaps.minuteNs)).Put(ShortTime(gaps.everNs));
}

// What grows just now, and what has grown before.
std::optional<TopMark> MarkOf(uint64_t count, bool bNow) {
    if (count == 0) {
        return std::nullopt;
    }
    return bNow ? TopMark::Alarm : TopMark::Warning;
}

void PutCounters(CRow& row, const WatchRow& shown) {
    const ZceWatch::Counters& counters = shown.stream.counters;
    if (counters.state == CountersState::NotRead) {
        row.Put("-").Put("-").Put("-");
        return;
    }
    if (counters.state == CountersState::Failed) {
        row.Put("failed", TopMark::Warning).Put("-").Put("-");
        return;
    }
    const bool bPressed = shown.rates && shown.rates->bPressed;
    const bool bFailed = shown.rates && shown.rates->bFailed;
    row.Number(counters.backPressure, MarkOf(counters.backPressure, bPressed))
        .Number(counters.fifoErrors, MarkOf(counters.fifoErrors, bFailed))
        .Number(counters.errors, MarkOf(counters.errors, bFailed));
}

TopLine StreamRow(const WatchView& view, const ZceWatch::Process& process, const WatchRow& shown) {
    const ZceWatch::Stream& stream = shown.stream;
    CRow row;
    row.Put(NameText(process.program)).Put(std::to_string(process.pid));
    row.Put(stream.bus == ZceWatch::BUS_NOT_KNOWN ? "?" : std::to_string(stream.bus));
    row.Put(std::to_string(stream.channel));
    PutState(row, process.life, stream.state);
    row.Put(shown.rates ? ShortNumber(shown.rates->messages, 6) : "-");
    const int64_t ago = std::max<int64_t>(view.nowNs - stream.lastMessageNs, 0);
    row.Put(stream.lastMessageNs == 0 ? "-" : ShortTime(static_cast<uint64_t>(ago)));
    PutGaps(row, stream);
    const bool bLost = stream.board == BoardState::Gone || stream.board == BoardState::Replaced;
    row.Put(ZceWatch::BOARD_TEXTS[ZceWatch::IndexOf(stream.board)],
            bLost ? std::optional(TopMark::Alarm) : std::nullopt);
    PutCounters(row, shown);
    for (const ZceWatch::Counted& type : stream.types) {
        row.Number(type.messages);
    }
    row.Number(stream.Bytes()).Number(stream.opening);
    return row.Take();
}

TopLine SummaryLine(const WatchView& view) {
    std::array<size_t, ZceWatch::LIFE_TEXTS.size()> counts{};
    for (const WatchView::Shown& shown : view.processes) {
        ++counts[ZceWatch::IndexOf(shown.process.life)];
    }
    TopLine line = "watch " + view.directory;
    for (const Life life : {Life::Runs, Life::Ended, Life::Died}) {
        const size_t count = counts[ZceWatch::IndexOf(life)];
        const std::string text =
            fmt::format("{} {}", count, ZceWatch::LIFE_TEXTS[ZceWatch::IndexOf(life)]);
        line.text += "  ";
        if (life == Life::Died && count != 0) {
            line.Append(text, TopMark::Alarm);
        } else {
            line.text += text;
        }
    }
    return line;
}

TopLine NotCountedLine(const ZceWatch::Process& process) {
    TopLine line;
    line.Append(
        fmt::format("{} {}: {} openings of channels are not counted: its page is full",
                    ZceProgram::Printable(process.program), process.pid, process.notCounted),
        TopMark::Warning);
    return line;
}

}  // namespace

WatchView CWatchHistory::Add(const std::string& directory, ZceWatch::Directory pages,
                             int64_t realNs, int64_t nowNs) {
    WatchView view{directory, nowNs, {}, std::move(pages.refused)};
    std::map<std::pair<std::string, size_t>, ZceWatch::Stream> now;
    for (ZceWatch::Process& process : pages.processes) {
        WatchView::Shown& shown = view.processes.emplace_back();
        for (size_t k = 0; k < process.streams.size(); ++k) {
            const ZceWatch::Stream& stream = process.streams[k];
            WatchRow& row = shown.rows.emplace_back(WatchRow{stream, std::nullopt});
            const auto before = m_last.find({process.path, k});
            if (before != m_last.end()) {
                const ZceWatch::Counters& old = before->second.counters;
                row.rates = {
                    PerSecond(before->second.Messages(), stream.Messages(), realNs - m_lastNs),
                    stream.counters.backPressure > old.backPressure,
                    stream.counters.fifoErrors > old.fifoErrors ||
                        stream.counters.errors > old.errors};
            }
            now[{process.path, k}] = stream;
        }
        process.streams.clear();
        shown.process = std::move(process);
    }
    m_last = std::move(now);
    m_lastNs = realNs;
    return view;
}

std::vector<TopLine> WatchLines(const WatchView& view, size_t skipped) {
    std::vector<TopLine> lines{SummaryLine(view), ""};
    if (view.processes.empty()) {
        lines.emplace_back("no process has a page here");
    } else {
        lines.push_back(WatchTitles());
    }
    for (const WatchView::Shown& shown : view.processes) {
        for (const WatchRow& row : shown.rows) {
            if (skipped == 0) {
                lines.push_back(StreamRow(view, shown.process, row));
            } else {
                --skipped;
            }
        }
    }
    for (const WatchView::Shown& shown : view.processes) {
        if (shown.process.notCounted != 0) {
            lines.push_back(NotCountedLine(shown.process));
        }
    }
    for (const std::string& refusal : view.refused) {
        lines.emplace_back().Append(ZceProgram::Printable(refusal), TopMark::Alarm);
    }
    return lines;
}

size_t WatchRows(const WatchView& view) {
    size_t rows = 0;
    for (const WatchView::Shown& shown : view.processes) {
        rows += shown.rows.size();
    }
    return rows;
}

std::string ShortTime(uint64_t ns) {
    struct Unit {
        const char* name;
        uint64_t ns;
        uint64_t below;  // the next unit's
    };
    constexpr uint64_t second = NS_PER_SECOND;
    constexpr std::array<Unit, 6> units = {{{"us", 1000, 1'000'000},
                                            {"ms", 1'000'000, second},
                                            {"s", second, 60 * second},
                                            {"m", 60 * second, 3600 * second},
                                            {"h", 3600 * second, 86'400 * second},
                                            {"d", 86'400 * second, UINT64_MAX}}};
    if (ns < units[0].ns) {
        return std::to_string(ns) + "ns";
    }
    const auto unit =
        std::find_if(units.begin(), units.end() - 1, [ns](const Unit& u) { return ns < u.below; });
    const uint64_t whole = ns / unit->ns;
    // Three digits at most, cut and not rounded: "59.9s" is no minute.
    const uint64_t tenths = ns % unit->ns * 10 / unit->ns;
    return whole < 100 && tenths != 0 ? fmt::format("{}.{}{}", whole, tenths, unit->name)
                                      : fmt::format("{}{}", whole, unit->name);
}

}  // namespace ZceBoard
