#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "capture/CaptureReader.h"
#include "exchange/Instruments.h"

namespace ZceBoard {

// What a capture holds, found by reading it through.
struct CaptureSummary {
    struct Bus {
        std::set<uint32_t> channels;
        uint64_t messages = 0;
        std::vector<Instrument> instruments;  // that its map packets tell
    };
    std::map<uint32_t, Bus> buses;
    uint64_t packets = 0;
    uint64_t lost = 0;  // that the recorder lost
    int64_t firstNs = 0;
    std::string cut;  // where the file is cut off; empty: it is whole
};

// Whose bus is not known belongs to bus 0.
uint32_t BusOf(const ZceCapture::CaptureMessage& message);

// False: `error` names the file, the packet and the reason, or that there is no message in it.
bool ReadThrough(const std::string& path, CaptureSummary& summary, std::string& error);

}  // namespace ZceBoard
