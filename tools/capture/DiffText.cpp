#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <string_view>
#include <tuple>

#include "capturetool/BoardBody.h"
#include "capturetool/CsvRow.h"
#include "capturetool/Diff.h"
#include "capturetool/LocalTime.h"
#include "capturetool/Names.h"
#include "program/Printable.h"

namespace ZceCaptureTool {

namespace {

using Out = std::back_insert_iterator<std::string>;

// The fields of a row of a table; a quoted one keeps its quotes.
std::vector<std::string> Split(std::string_view row) {
    std::vector<std::string> fields(1);
    bool bQuoted = false;
    for (const char letter : row) {
        if (letter == '"') {
            bQuoted = !bQuoted;
        }
        if (letter == ',' && !bQuoted) {
            fields.emplace_back();
        } else if (letter != '\n' || bQuoted) {
            fields.back() += letter;
        }
    }
    return fields;
}

std::vector<std::string> FieldsOf(const KeptMessage& kept) {
    std::vector<char> row(CCsvRows::LONGEST_ROW);
    ZceCapture::CaptureMessage message = kept.message;
    message.bytes = kept.bytes;
    return Split({row.data(), CCsvRows(false).Write(message, row)});
}

bool HasFields(const KeptMessage& kept) {
    return IsBoardMessage(kept.bytes, kept.message.channel);
}

// Where the two bodies of the software board's differ, field by field; else byte by byte.
void AddDifference(const ChannelDiff& channel, Out out) {
    const KeptMessage& a = channel.a;
    const KeptMessage& b = channel.b;
    if (HasFields(a) && HasFields(b)) {
        const std::vector<std::string> names = Split(CCsvRows::Header());
        const std::vector<std::string> left = FieldsOf(a);
        const std::vector<std::string> right = FieldsOf(b);
        const auto first = std::find(names.begin(), names.end(), "type") - names.begin();
        for (auto k = static_cast<std::size_t>(first); k < names.size(); ++k) {
            if (left[k] != right[k]) {
                fmt::format_to(out, "    {}: {} | {}\n", names[k], ZceProgram::Printable(left[k]),
                               ZceProgram::Printable(right[k]));
            }
        }
        return;
    }
    const auto [left, right] = std::ranges::mismatch(a.bytes, b.bytes);
    if (left != a.bytes.end() && right != b.bytes.end()) {
        fmt::format_to(out, "    byte {}: 0x{:02x} | 0x{:02x}\n", left - a.bytes.begin(), *left,
                       *right);
    }
}

void AddSide(char letter, const std::string& file, const KeptMessage& kept, Out out) {
    const ZceCapture::CaptureMessage& message = kept.message;
    if (message.packet == 0) {
        fmt::format_to(out, "  {}: {}: there is none\n", letter, ZceProgram::Printable(file));
        return;
    }
    fmt::format_to(out, "  {}: {}: packet {}, {}, opening {} number {}, type {}, {} bytes\n",
                   letter, ZceProgram::Printable(file), message.packet,
                   CTimeWriter().Plain(message.timeNs), message.opening, message.number,
                   TypeOf(kept.bytes), kept.bytes.size());
}

void AddChannel(const ChannelDiff& channel, const DiffOptions& options, Out out) {
    fmt::format_to(out, "bus {} channel {}: message {} differs\n", BusText(channel.id.bus),
                   channel.id.channel, channel.index);
    AddSide('A', options.a, channel.a, out);
    AddSide('B', options.b, channel.b, out);
    if (channel.a.message.packet != 0 && channel.b.message.packet != 0) {
        AddDifference(channel, out);
    }
}

// When the difference is, for the earliest to be told first.
int64_t TimeOf(const ChannelDiff& channel) {
    const auto& [a, b] = std::tie(channel.a.message, channel.b.message);
    return a.packet == 0 ? b.timeNs : b.packet == 0 ? a.timeNs : std::min(a.timeNs, b.timeNs);
}

}  // namespace

std::string DiffText(const CDiff& diff, const DiffOptions& options) {
    std::string text;
    const Out out(text);
    fmt::format_to(out, "{:>5} {:>7} {:>12} {:>12}\n", "bus", "channel", "A", "B");
    std::vector<const ChannelDiff*> differing;
    std::size_t untold = 0;
    for (const ChannelDiff& channel : diff.Channels()) {
        fmt::format_to(out, "{:>5} {:>7} {:>12} {:>12} {}\n", BusText(channel.id.bus),
                       channel.id.channel, channel.countA, channel.countB,
                       channel.same ? "the same" : "DIFFERENT");
        if (channel.index != 0) {
            differing.push_back(&channel);
        } else {
            untold += channel.same ? 0 : 1;
        }
    }
    std::ranges::stable_sort(differing, {}, [](const ChannelDiff* one) { return TimeOf(*one); });
    for (const ChannelDiff* channel : differing) {
        AddChannel(*channel, options, out);
    }
    if (untold != 0) {
        fmt::format_to(out, "{} more channels differ\n", untold);
    }
    return text;
}

}  // namespace ZceCaptureTool
