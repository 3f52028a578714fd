#include "Capture.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>

#include "Broadcast.h"
#include "RegisterMap.h"
#include "ZceBoardMsg.h"
#include "ZceCapture.h"

namespace ZceBoard {

namespace {

uint32_t TypeOf(std::span<const unsigned char> bytes) {
    uint32_t type = 0;
    memcpy(&type, bytes.data(), std::min(bytes.size(), sizeof(type)));
    return type;
}

}  // namespace

uint32_t BusOf(const CaptureMessage& message) {
    return message.bus == ZCE_CAPTURE_BUS_UNKNOWN ? 0 : message.bus;
}

bool ReadThrough(const std::string& path, CaptureSummary& summary, std::string& error) {
    CCaptureReader reader;
    if (!reader.Open(path, error)) {
        return false;
    }
    std::map<uint32_t, std::map<std::pair<uint32_t, uint16_t>, std::string>> names;
    CaptureMessage message;
    CCaptureReader::Next next = reader.Read(message);
    for (; next == CCaptureReader::Next::Message; next = reader.Read(message)) {
        const uint32_t bus = BusOf(message);
        if (bus >= MAX_BUSES) {
            error = fmt::format("{}: packet {}: bus {}; there are only 0 to {}", path,
                                message.packet, bus, MAX_BUSES - 1);
            return false;
        }
        if (summary.buses.empty()) {
            summary.firstNs = message.timeNs;
        }
        CaptureSummary::Bus& one = summary.buses[bus];
        one.channels.insert(message.channel);
        ++one.messages;
        if (TypeOf(message.bytes) == ZCE_BOARD_TYPE_INST_MAP) {
            ReadMapPacket(message.bytes, [&names, bus](uint16_t index, const std::string& name) {
                const bool combination = KindOf(name) == InstrumentKind::Combination;
                names[bus][{combination ? TABLE_COMBINE : TABLE_SINGLE, index}] = name;
            });
        }
    }
    if (next == CCaptureReader::Next::Error) {
        error = reader.Error();
        return false;
    }
    if (summary.buses.empty()) {
        error = fmt::format("{}: there is no message in it", path);
        return false;
    }
    summary.cut = next == CCaptureReader::Next::Cut ? reader.Error() : "";
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
