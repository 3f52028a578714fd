#include <fmt/format.h>

#include <iterator>
#include <string>

#include "capturetool/Info.h"
#include "capturetool/LocalTime.h"
#include "capturetool/Names.h"
#include "program/Printable.h"

namespace ZceCaptureTool {

namespace {

using Out = std::back_insert_iterator<std::string>;

std::string WindowText(uint64_t ns) {
    return ns >= NS_PER_SECOND ? fmt::format("{} s", ns / NS_PER_SECOND)
                               : fmt::format("{} ms", ns / 1'000'000);
}

void AddHead(const CScan& scan, Out out) {
    fmt::format_to(out, "{}\n", ZceProgram::Printable(scan.Path()));
    fmt::format_to(out, "  file      {} bytes, {} packets, {}\n", scan.FileBytes(), scan.Packets(),
                   scan.End() == Ending::Whole ? "read to its end" : "NOT read to its end");
    if (scan.End() != Ending::Whole) {
        fmt::format_to(out, "  ends      {}: {}\n",
                       scan.End() == Ending::Cut ? "cut" : "no message",
                       ZceProgram::Printable(scan.Error()));
    }
    fmt::format_to(out, "  messages  {}, {} bytes\n", scan.All().messages, scan.All().bytes);
}

void AddTimes(const CScan& scan, Out out) {
    CTimeWriter times;
    fmt::format_to(out, "  first     {}\n", times.Plain(scan.FirstNs()));
    fmt::format_to(out, "  last      {}\n", times.Plain(scan.LastNs()));
    fmt::format_to(out, "  duration  {} s\n", SecondsText(scan.DurationNs()));
    if (scan.DurationNs() != 0) {
        fmt::format_to(out, "  rate      {:.1f} messages a second, mean\n",
                       static_cast<double>(scan.All().messages) * 1e9 /
                           static_cast<double>(scan.DurationNs()));
    }
    for (const CPeakWindow& peak : scan.Peaks()) {
        fmt::format_to(out, "  peak      {} messages in {}, to {}\n", peak.Peak(),
                       WindowText(peak.LengthNs()), times.Plain(peak.PeakNs()));
    }
}

void AddBursts(const CBursts& bursts, Out out) {
    fmt::format_to(
        out, "  bursts    messages less than {} us behind the one before:", bursts.GapNs() / 1000);
    for (std::size_t k = 0; k < CBursts::AT_LEAST.size(); ++k) {
        fmt::format_to(out, "{} {} of {} or more", k == 0 ? "" : ",", bursts.Count(k),
                       CBursts::AT_LEAST[k]);
    }
    fmt::format_to(out, "\n");
    const CBursts::Burst& largest = bursts.Largest();
    if (largest.messages != 0) {
        fmt::format_to(out, "  largest   {} messages in {} s, from {}\n", largest.messages,
                       SecondsText(NsBetween(largest.firstNs, largest.lastNs)),
                       CTimeWriter().Plain(largest.firstNs));
    }
}

void AddBodies(const CScan& scan, Out out) {
    if (scan.Market() == 0) {
        fmt::format_to(out, "  bodies    none of types 17 to 20\n");
    } else if (scan.Bodies() == 0) {
        fmt::format_to(out,
                       "  bodies    unknown: not the software board's; what the board sent and was "
                       "not polled cannot be told\n");
    } else if (scan.Bodies() == scan.Market()) {
        fmt::format_to(out, "  bodies    the software board's\n");
    } else {
        fmt::format_to(out, "  bodies    the software board's in {} of {} messages, else unknown\n",
                       scan.Bodies(), scan.Market());
    }
}

// What is missing, in one place for all streams.
void AddMissing(const CScan& scan, Out out) {
    Missing recorder;
    Missing board;
    uint64_t notRising = 0;
    for (const auto& [id, stream] : scan.Streams()) {
        recorder.places += stream.recorder.places;
        recorder.numbers += stream.recorder.numbers;
        board.places += stream.board.places;
        board.numbers += stream.board.numbers;
        notRising += stream.notRising;
    }
    fmt::format_to(out, "  lost      {} messages by the recorder, as its notes say\n",
                   scan.LostTold());
    if (recorder.numbers > scan.LostTold()) {
        fmt::format_to(out,
                       "  taken out {} messages are missing without a note: packets were taken out "
                       "of the file\n",
                       recorder.numbers - scan.LostTold());
    }
    if (notRising != 0) {
        fmt::format_to(out,
                       "  order     {} messages have a number that is not above the one before: "
                       "packets are there twice or in another order\n",
                       notRising);
    }
    if (scan.Bodies() != 0) {
        fmt::format_to(
            out, "  missing   {} messages that the board sent were never polled, in {} places\n",
            board.numbers, board.places);
    }
}

void AddStreams(const CScan& scan, Out out) {
    fmt::format_to(out, "  {:>5} {:>7} {:>7} {:>12} {:>14} {:>12} {:>12} {:>10} {:>10}\n", "bus",
                   "channel", "opening", "messages", "bytes", "first no.", "last no.", "left out",
                   "missing");
    for (const auto& [id, stream] : scan.Streams()) {
        fmt::format_to(out, "  {:>5} {:>7} {:>7} {:>12} {:>14} {:>12} {:>12} {:>10} {:>10}\n",
                       BusText(id.bus), id.channel, id.opening, stream.all.messages,
                       stream.all.bytes, stream.firstNumber, stream.lastNumber,
                       stream.recorder.numbers,
                       stream.bodies == 0 ? "-" : std::to_string(stream.board.numbers));
        for (const auto& [type, count] : stream.types) {
            fmt::format_to(out, "  {:>21} {:>12} {:>14} {}\n", fmt::format("type {}", type),
                           count.messages, count.bytes, TypeName(type));
        }
        if (stream.otherTypes.messages != 0) {
            fmt::format_to(out, "  {:>21} {:>12} {:>14}\n", "other types",
                           stream.otherTypes.messages, stream.otherTypes.bytes);
        }
    }
}

void AddGaps(const CScan& scan, Out out) {
    CTimeWriter times;
    for (const Gap& gap : scan.Gaps()) {
        fmt::format_to(out,
                       "  gap       packet {}, {}: bus {} channel {} opening {}: {} {}, "
                       "{} follows {}\n",
                       gap.packet, times.Plain(gap.timeNs), BusText(gap.stream.bus),
                       gap.stream.channel, gap.stream.opening, gap.missing,
                       gap.kind == Gap::Kind::Recorder ? "left out" : "sequence numbers missing",
                       gap.next, gap.last);
    }
    if (scan.GapCount() > scan.Gaps().size()) {
        fmt::format_to(out, "  gaps      {} more\n", scan.GapCount() - scan.Gaps().size());
    }
}

}  // namespace

std::string InfoText(const CScan& scan) {
    std::string text;
    const Out out(text);
    AddHead(scan, out);
    if (scan.All().messages != 0) {
        AddTimes(scan, out);
        AddBursts(scan.Bursts(), out);
        AddBodies(scan, out);
        AddMissing(scan, out);
        AddStreams(scan, out);
        AddGaps(scan, out);
    } else if (scan.LostTold() != 0) {
        AddMissing(scan, out);
    }
    return text;
}

}  // namespace ZceCaptureTool
