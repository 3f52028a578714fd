#include "traffic/CaptureSummary.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>

#include "ZceBoardMsg.h"
#include "capture/ZceCapture.h"
#include "exchange/BoardClock.h"
#include "exchange/Broadcast.h"
#include "memory/ShmLayout.h"

namespace ZceBoard {

namespace {

constexpr int64_t LONGEST_GAP_NS = 7 * NS_PER_DAY;

// What a capture may hold is what a board's streams can carry.
static_assert(ZceCapture::CCaptureReader::LARGEST_MESSAGE == STREAM_MTU);
static_assert(ZCE_CAPTURE_CHANNELS == CHANNELS);

// A file may hold any times: the difference of two need not be one.
bool IsFarApart(int64_t oneNs, int64_t otherNs) {
    const auto [earlier, later] = std::minmax(oneNs, otherNs);
    return static_cast<uint64_t>(later) - static_cast<uint64_t>(earlier) >
           static_cast<uint64_t>(LONGEST_GAP_NS);
}

}  // namespace

uint32_t BusOf(const ZceCapture::CaptureMessage& message) {
    return message.bus == ZCE_CAPTURE_BUS_UNKNOWN ? 0 : message.bus;
}

bool ReadThrough(const std::string& path, CaptureSummary& summary, std::string& error) {
    std::error_code err;
    if (std::filesystem::exists(path, err) && !std::filesystem::is_regular_file(path, err)) {
        error = path + ": not a regular file";  // it is read twice
        return false;
    }
    ZceCapture::CCaptureReader reader;
    if (!reader.Open(path, error)) {
        return false;
    }
    std::map<uint32_t, std::map<std::pair<uint32_t, uint16_t>, std::string>> names;
    ZceCapture::CaptureMessage message;
    int64_t lastNs = 0;
    ZceCapture::CCaptureReader::Next next = reader.Read(message);
    for (; next == ZceCapture::CCaptureReader::Next::Message; next = reader.Read(message)) {
        const uint32_t bus = BusOf(message);
        if (bus >= MAX_BUSES) {
            error = fmt::format("{}: packet {}: bus {}; there are only 0 to {}", path,
                                message.packet, bus, MAX_BUSES - 1);
            return false;
        }
        if (summary.buses.empty()) {
            summary.firstNs = message.timeNs;
            lastNs = message.timeNs;
        }
        // A clock that was set in between, or was wrong at first: nobody wants to wait for that.
        if (IsFarApart(message.timeNs, lastNs)) {
            error = fmt::format("{}: packet {}: its time is more than {} days from the one before",
                                path, message.packet, LONGEST_GAP_NS / NS_PER_DAY);
            return false;
        }
        lastNs = message.timeNs;
        CaptureSummary::Bus& one = summary.buses[bus];
        one.channels.insert(message.channel);
        ++one.messages;
        if (ZceCapture::TypeOf(message.bytes) == ZCE_BOARD_TYPE_INST_MAP) {
            ReadMapPacket(message.bytes, [&names, bus](uint16_t index, const std::string& name) {
                const bool combination = KindOf(name) == InstrumentKind::Combination;
                names[bus][{combination ? TABLE_COMBINE : TABLE_SINGLE, index}] = name;
            });
        }
    }
    if (next == ZceCapture::CCaptureReader::Next::Error) {
        error = reader.Error();
        return false;
    }
    if (summary.buses.empty()) {
        error = fmt::format("{}: there is no message in it", path);
        return false;
    }
    summary.cut = next == ZceCapture::CCaptureReader::Next::Cut ? reader.Error() : "";
    summary.packets = reader.Packets();
    summary.lost = reader.Lost();
    for (auto& [bus, known] : names) {
        for (auto& [place, name] : known) {
            summary.buses[bus].instruments.push_back(
                {name, place.first, place.second, KindOf(name)});
        }
    }
    return true;
}

}  // namespace ZceBoard
