// Any bytes as a capture: its reader, message by message, what the board finds out about it before
// it plays it, and what zce-capture makes of it.

#include <algorithm>
#include <array>
#include <string_view>

#include "capture/CaptureReader.h"
#include "capturetool/CsvRow.h"
#include "capturetool/Diff.h"
#include "capturetool/Info.h"
#include "capturetool/Stats.h"
#include "fuzzHost.h"
#include "fuzzInput.h"
#include "traffic/CaptureSummary.h"

namespace {

using namespace velafuzz;
using ZceCapture::CaptureMessage;
using ZceCapture::CCaptureReader;

struct Counts {
    uint64_t messages = 0;
    uint64_t packets = 0;
    CCaptureReader::Next end = CCaptureReader::Next::End;
};

// The row has all of its columns, and ends as a row does.
void CheckRow(const CaptureMessage& message, ZceCaptureTool::CCsvRows& rows) {
    static std::array<char, ZceCaptureTool::CCsvRows::LONGEST_ROW> s_space;
    const std::string_view row(s_space.data(), rows.Write(message, s_space));
    FUZZ_CHECK(row.size() < s_space.size() && row.ends_with('\n'));
    const std::string_view header = ZceCaptureTool::CCsvRows::Header();
    if (row.find('"') == std::string_view::npos) {
        FUZZ_CHECK(std::count(row.begin(), row.end(), ',') ==
                   std::count(header.begin(), header.end(), ','));
    }
}

// False: it cannot be opened.
bool ReadToEnd(Counts& counts) {
    CCaptureReader reader;
    std::string error;
    if (!reader.Open("day.pcap", error)) {
        FUZZ_CHECK(error.starts_with("day.pcap: "));
        return false;
    }
    CaptureMessage message;
    ZceCaptureTool::CCsvRows rows(false);
    while ((counts.end = reader.Read(message)) == CCaptureReader::Next::Message) {
        ++counts.messages;
        FUZZ_CHECK(!message.bytes.empty() &&
                   message.bytes.size() <= CCaptureReader::LARGEST_MESSAGE);
        FUZZ_CHECK(message.channel < 16);
        FUZZ_CHECK(message.packet == reader.Packets());
        CheckRow(message, rows);
        unsigned int sum = 0;  // every byte is there to be read
        for (const unsigned char byte : message.bytes) {
            sum += byte;
        }
        FUZZ_CHECK(sum <= 255 * message.bytes.size());
    }
    FUZZ_CHECK(reader.Read(message) == counts.end);
    FUZZ_CHECK((counts.end == CCaptureReader::Next::End) == reader.Error().empty());
    counts.packets = reader.Packets();
    return true;
}

void CheckSummary(const Counts& counts) {
    ZceBoard::CaptureSummary summary;
    std::string error;
    const bool bGood = ZceBoard::ReadThrough("day.pcap", summary, error);
    FUZZ_CHECK(bGood == error.empty());
    // The reader takes more: any bus, and gaps of any length.
    FUZZ_CHECK(!bGood || (counts.messages != 0 && counts.end != CCaptureReader::Next::Error));
    if (!bGood) {
        return;
    }
    FUZZ_CHECK(summary.packets == counts.packets);
    uint64_t messages = 0;
    for (const auto& [number, bus] : summary.buses) {
        messages += bus.messages;
        FUZZ_CHECK(!bus.channels.empty() && *bus.channels.rbegin() < 16);
    }
    FUZZ_CHECK(messages == counts.messages);
    FUZZ_CHECK(summary.cut.empty() == (counts.end == CCaptureReader::Next::End));
}

void CheckTool(const Counts& counts) {
    using namespace ZceCaptureTool;
    CScan scan(10'000);
    FUZZ_CHECK(scan.Read("day.pcap"));
    FUZZ_CHECK(scan.All().messages == counts.messages && scan.Packets() == counts.packets);
    FUZZ_CHECK(!InfoText(scan).empty());
    CDiff diff({"day.pcap", "day.pcap", true});
    std::string error;
    FUZZ_CHECK(diff.Read(error) && diff.Same());
    DayStats stats;
    const bool bGood = GatherStats({{"day.pcap"}, {}, "", 0}, stats, error);
    FUZZ_CHECK(bGood == (counts.messages != 0) && (!bGood || stats.messages == counts.messages));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    PrepareBoard();
    WriteFile("day.pcap", CFuzzInput(data, size).Rest());
    Counts counts;
    if (ReadToEnd(counts)) {
        CheckSummary(counts);
        CheckTool(counts);
    }
    return 0;
}
