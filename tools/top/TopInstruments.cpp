#include "top/TopInstruments.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

namespace ZceBoard {

namespace {

constexpr size_t NUMBER_WIDTH = 8;
constexpr size_t RATE_WIDTH = 6;

// Beside each other: what it is, where it stands, how much there is of it.
std::string Row(const std::string& name, const std::string& table, const std::string& index,
                const std::string& messages, const std::string& rate) {
    return fmt::format("{:<16} {:<11} {:>5} {:>{}} {:>{}}", name, table, index, messages,
                       NUMBER_WIDTH, rate, RATE_WIDTH);
}

std::string Row(const InstrumentRow& row) {
    const ChannelInstrument& instrument = row.instrument;
    std::string text =
        Row(instrument.name.empty() ? "-" : instrument.name,
            instrument.table == TABLE_SINGLE ? "single" : "combination",
            std::to_string(instrument.index), ShortNumber(instrument.messages, NUMBER_WIDTH),
            row.rate ? ShortNumber(*row.rate, RATE_WIDTH) : "-");
    return instrument.bSubscribed ? text : text + "  not subscribed";
}

TopLine StateLine(const TopView& view, size_t number) {
    const ChannelSnapshot& channel = view.board.channels[number];
    TopLine line = fmt::format("channel {}  ", number);
    if (channel.bOpen) {
        line.text += "open";
    } else {
        line.Append("closed", TopMark::Closed);
    }
    const std::string rate = view.rates ? std::to_string(view.rates->messages[number]) : "-";
    line.text +=
        fmt::format("  subscribed {}  messages {}  ", channel.subscribed, channel.MarketData());
    const bool bSilent = channel.bOpen && rate == "0" && channel.subscribed != 0;
    if (bSilent) {
        line.Append(rate + "/s", TopMark::Warning);
    } else {
        line.text += rate + "/s";
    }
    line.text += "  ";
    const std::string dropped = fmt::format("dropped {}", channel.dropped);
    if (channel.dropped == 0) {
        line.text += dropped;
    } else {
        const bool bNow = view.rates && view.rates->bDropping[number];
        line.Append(dropped, bNow ? TopMark::Alarm : TopMark::Warning);
    }
    return line;
}

}  // namespace

std::vector<InstrumentRow> CInstrumentHistory::Add(size_t channel,
                                                   const std::vector<ChannelInstrument>& look,
                                                   int64_t realNs) {
    const bool bFirst = m_channel != channel;
    std::vector<InstrumentRow> rows;
    rows.reserve(look.size());
    std::map<Entry, uint64_t> counts;
    for (const ChannelInstrument& instrument : look) {
        const Entry entry{instrument.table, instrument.index};
        InstrumentRow& row = rows.emplace_back(InstrumentRow{instrument, std::nullopt});
        if (!bFirst) {
            // One that was not listed had no messages.
            const auto last = m_last.find(entry);
            row.rate = PerSecond(last == m_last.end() ? 0 : last->second, instrument.messages,
                                 realNs - m_lastNs);
        }
        counts[entry] = instrument.messages;
    }
    std::stable_sort(rows.begin(), rows.end(),
                     [](const InstrumentRow& one, const InstrumentRow& other) {
                         return std::pair(one.rate.value_or(0), one.instrument.messages) >
                                std::pair(other.rate.value_or(0), other.instrument.messages);
                     });
    m_channel = channel;
    m_last = std::move(counts);
    m_lastNs = realNs;
    return rows;
}

std::vector<TopLine> InstrumentLines(const TopView& view, size_t channel,
                                     const std::vector<InstrumentRow>& rows, size_t skipped) {
    std::vector<TopLine> lines{
        fmt::format("zce-board bus {}, process {}", view.board.bus, view.board.pid),
        StateLine(view, channel),
        "",
    };
    if (rows.empty()) {
        lines.emplace_back("no instrument");
        return lines;
    }
    lines.emplace_back(Row("instrument", "table", "index", "messages", "msg/s"));
    std::transform(rows.begin() + static_cast<std::ptrdiff_t>(std::min(skipped, rows.size())),
                   rows.end(), std::back_inserter(lines),
                   [](const InstrumentRow& row) { return TopLine(Row(row)); });
    return lines;
}

}  // namespace ZceBoard
