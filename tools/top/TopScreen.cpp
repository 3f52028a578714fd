#include "top/TopScreen.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <string_view>

#include "memory/HostClock.h"

namespace ZceBoard {

namespace {

constexpr int64_t SILENCE_NS = NS_PER_SECOND;

// The table of the channels: titles, and how wide their columns are.
struct Column {
    const char* title;
    size_t width;
};
constexpr std::array<Column, 12> COLUMNS = {{{"ch", 2},
                                             {"state", 6},
                                             {"open#", 5},
                                             {"map", 6},
                                             {"t17", 6},
                                             {"t18", 6},
                                             {"t19", 6},
                                             {"t20", 6},
                                             {"other", 5},
                                             {"msg/s", 6},
                                             {"dropped", 7},
                                             {"instr", 5}}};
constexpr size_t STATE_COLUMN = 1;
constexpr size_t RATE_COLUMN = 9;
constexpr size_t DROPPED_COLUMN = 10;

uint64_t AllSent(const ChannelSnapshot& channel) {
    return std::accumulate(channel.sent.begin(), channel.sent.end(), channel.other);
}

const char* OnOff(bool bOn) {
    return bOn ? "on" : "off";
}

using Cells = std::array<std::string, COLUMNS.size()>;
using CellMarks = std::array<std::optional<TopMark>, COLUMNS.size()>;

TopLine RowText(const Cells& cells, const CellMarks& marks = {}) {
    TopLine line;
    for (size_t k = 0; k < COLUMNS.size(); ++k) {
        line.text += k == 0 ? "" : " ";
        const size_t begin = line.text.size();
        line.text += k == STATE_COLUMN ? fmt::format("{:<{}}", cells[k], COLUMNS[k].width)
                                       : fmt::format("{:>{}}", cells[k], COLUMNS[k].width);
        if (marks[k]) {
            line.spans.push_back({begin, line.text.size() - begin, *marks[k]});
        }
    }
    return line;
}

TopLine TitleRow() {
    Cells cells;
    std::transform(COLUMNS.begin(), COLUMNS.end(), cells.begin(),
                   [](const Column& column) { return column.title; });
    return RowText(cells);
}

std::string RateText(const TopView& view, uint64_t rate, size_t width) {
    return view.rates ? ShortNumber(rate, width) : "-";
}

// Messages that are lost just now, messages that were; a reader that gets nothing though it has
// instruments; nobody who reads.
CellMarks MarksOf(const TopView& view, size_t number) {
    const ChannelSnapshot& channel = view.board.channels[number];
    CellMarks marks;
    if (channel.dropped != 0) {
        const bool bNow = view.rates && view.rates->bDropping[number];
        marks[DROPPED_COLUMN] = bNow ? TopMark::Alarm : TopMark::Warning;
    }
    if (!channel.bOpen) {
        marks[STATE_COLUMN] = TopMark::Closed;
    } else if (view.rates && view.rates->messages[number] == 0 && channel.subscribed != 0) {
        marks[RATE_COLUMN] = TopMark::Warning;
    }
    return marks;
}

TopLine ChannelRow(const TopView& view, size_t number) {
    const ChannelSnapshot& channel = view.board.channels[number];
    Cells cells;
    size_t k = 0;
    const auto next = [&cells, &k](uint64_t value) {
        cells[k] = ShortNumber(value, std::max<size_t>(COLUMNS[k].width, 5));
        ++k;
    };
    next(number);
    cells[k++] = channel.bOpen ? "open" : "closed";
    next(channel.openings);
    for (const uint64_t count : channel.sent) {
        next(count);
    }
    next(channel.other);
    cells[k] = RateText(view, view.rates ? view.rates->messages[number] : 0, COLUMNS[k].width);
    ++k;
    next(channel.dropped);
    next(channel.subscribed);
    return RowText(cells, MarksOf(view, number));
}

TopLine ClockLine(const TopView& view) {
    const BoardSnapshot& board = view.board;
    TopLine line = fmt::format("{} {}  {}  ", DateText(board.date),
                               TimeText(board.hhmmss, board.millisecond), PhaseText(board.phase));
    if (board.bPaused) {
        line.Append("PAUSED", TopMark::Warning);
    } else {
        line.text += "running";
    }
    line.text += fmt::format("  speed {}  {} traffic", SpeedText(board.speedMilli),
                             SourceText(board.source));
    if (!view.bAnswering) {
        line.text += "  ";
        line.Append("NOT ANSWERING", TopMark::Alarm);
    }
    return line;
}

std::string InstrumentsLine(const BoardSnapshot& board) {
    const TableSnapshot& single = board.tables[TABLE_SINGLE];
    const TableSnapshot& combined = board.tables[TABLE_COMBINE];
    return fmt::format("instruments  exchange {}+{}  learnt {}+{}  subscribed {}+{}",
                       single.exchange, combined.exchange, single.learnt, combined.learnt,
                       single.subscribed, combined.subscribed);
}

TopLine FeedsLine(const BoardSnapshot& board) {
    TopLine line = fmt::format("feeds  L5 {} ({})  L1 {} ({})  map transmit {}  link {:#x}",
                               FeedText(board.feeds[0]), OnOff((board.switchWord & SWITCH_L5) != 0),
                               FeedText(board.feeds[1]), OnOff((board.switchWord & SWITCH_L1) != 0),
                               OnOff(board.bMapTransmit), board.linkStatus);
    if (board.bHeldInReset) {
        line.text += "  ";
        line.Append("HELD IN RESET", TopMark::Alarm);
    }
    return line;
}

TopLine FaultsLine(const BoardSnapshot& board) {
    TopLine line("faults  ");
    if (board.faults.empty()) {
        line.text += "none";
    } else {
        line.Append(board.faults, TopMark::Alarm);
    }
    return line;
}

}  // namespace

uint64_t PerSecond(uint64_t before, uint64_t now, int64_t ns) {
    constexpr double MOST = 1e18;  // what was never counted may stand in the memory, too
    if (now < before) {
        return 0;
    }
    const auto passed = static_cast<double>(std::max<int64_t>(ns, 1));
    const double rate = static_cast<double>(now - before) * NS_PER_SECOND / passed;
    return static_cast<uint64_t>(std::llround(std::min(rate, MOST)));
}

TopView CTopHistory::Add(const BoardSnapshot& board, int64_t realNs) {
    TopView view{board, std::nullopt, true};
    if (!m_last || m_last->passes != board.passes) {
        m_movedNs = realNs;
    }
    view.bAnswering = realNs - m_movedNs < SILENCE_NS;
    if (m_last) {
        TopRates& rates = view.rates.emplace();
        const int64_t passed = realNs - m_lastNs;
        for (size_t k = 0; k < CHANNELS; ++k) {
            rates.messages[k] =
                PerSecond(AllSent(m_last->channels[k]), AllSent(board.channels[k]), passed);
            rates.bDropping[k] = board.channels[k].dropped > m_last->channels[k].dropped;
        }
        rates.parsed = PerSecond(m_last->parsed, board.parsed, passed);
    }
    m_last = board;
    m_lastNs = realNs;
    return view;
}

std::vector<TopLine> TopLines(const TopView& view) {
    const BoardSnapshot& board = view.board;
    std::vector<TopLine> lines{
        fmt::format("zce-board bus {}, process {}", board.bus, board.pid),
        ClockLine(view),
        InstrumentsLine(board),
        FeedsLine(board),
        fmt::format("parsed {}  {}/s  requests {}  resets board {}, core {}", board.parsed,
                    RateText(view, view.rates ? view.rates->parsed : 0, 20), board.requests,
                    board.boardResets, board.coreResets),
        FaultsLine(board),
        "",
    };
    const size_t before = lines.size();
    for (size_t k = 0; k < CHANNELS; ++k) {
        if (board.channels[k].WasEverOpen()) {
            lines.push_back(ChannelRow(view, k));
        }
    }
    const bool bAny = lines.size() != before;
    lines.insert(lines.begin() + static_cast<std::ptrdiff_t>(before),
                 bAny ? TitleRow() : TopLine("no channel was ever open"));
    return lines;
}

std::vector<TopLine> FitScreen(std::vector<TopLine> lines, size_t columns, size_t rows) {
    if (lines.size() > rows && rows != 0) {
        const size_t missing = lines.size() - rows + 1;
        lines.resize(rows);
        lines.back() = fmt::format("... {} more lines", missing);
    }
    lines.resize(std::min(lines.size(), rows));
    for (auto& [text, spans] : lines) {
        if (text.size() <= columns) {
            continue;
        }
        text.resize(columns);
        if (!text.empty()) {
            text.back() = '>';
        }
        for (TopSpan& span : spans) {
            span.begin = std::min(span.begin, columns);
            span.length = std::min(span.length, columns - span.begin);
        }
        std::erase_if(spans, [](const TopSpan& span) { return span.length == 0; });
    }
    return lines;
}

void AddHint(std::string& line, const std::string& hint, size_t columns) {
    constexpr size_t GAP = 2;
    if (line.size() + GAP + hint.size() <= columns) {
        line.resize(columns - hint.size(), ' ');
        line += hint;
    }
}

std::string ShortNumber(uint64_t number, size_t width) {
    constexpr std::string_view UNITS = "KMGTPE";
    std::string digits = std::to_string(number);
    if (digits.size() <= width) {
        return digits;
    }
    const size_t unit = (digits.size() - 1) / 3;
    const size_t whole = digits.size() - unit * 3;
    std::string text = digits.substr(0, whole);
    if (whole < 3) {
        text.append(".").append(digits, whole, 3 - whole);
    }
    return text + UNITS[unit - 1];
}

}  // namespace ZceBoard
