// Any bytes as a capture: its reader, message by message, and what the board finds out about it
// before it plays it.

#include "capture/CaptureReader.h"
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

// False: it cannot be opened.
bool ReadToEnd(Counts& counts) {
    CCaptureReader reader;
    std::string error;
    if (!reader.Open("day.pcap", error)) {
        FUZZ_CHECK(error.starts_with("day.pcap: "));
        return false;
    }
    CaptureMessage message;
    while ((counts.end = reader.Read(message)) == CCaptureReader::Next::Message) {
        ++counts.messages;
        FUZZ_CHECK(!message.bytes.empty() &&
                   message.bytes.size() <= CCaptureReader::LARGEST_MESSAGE);
        FUZZ_CHECK(message.channel < 16);
        FUZZ_CHECK(message.packet == reader.Packets());
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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    PrepareBoard();
    WriteFile("day.pcap", CFuzzInput(data, size).Rest());
    Counts counts;
    if (ReadToEnd(counts)) {
        CheckSummary(counts);
    }
    return 0;
}
