#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "captureBytes.h"

namespace velatest {

// 2026-11-20 08:45:04 at +08:00.
constexpr uint64_t RECORDED_SECOND = 1795135504;

// One message of the software board's, byte by byte.
struct BoardLevel {
    int64_t bid = 0;
    int64_t ask = 0;
    uint32_t bidVolume = 0;
    uint32_t askVolume = 0;
};
struct BoardMessage {
    uint32_t type = 17;
    uint16_t channel = 3;
    uint64_t seq = 1;
    std::string name = "SR301";
    int64_t last = 56125000;
    int64_t open = 56000000;
    int64_t high = 56202500;
    int64_t low = 55995000;
    int64_t preSettle = 56010000;
    uint64_t volume = 1234;
    uint64_t openInterest = 99999;
    uint32_t lastVolume = 12;
    std::vector<BoardLevel> levels = {{56120000, 56130000, 11, 258}};

    std::string Bytes() const;
};

// A message with a head and no more that is known of it.
std::string OtherMessage(uint32_t type, const std::string& body);

// A packet of a capture, of bus 0 and the message's own channel.
std::string Packet(const BoardMessage& message, uint64_t number, unsigned int opening = 1);

}  // namespace velatest
