#include "boardMessage.h"

namespace velatest {

namespace {

std::string Price(int64_t price) {
    return Little(static_cast<uint64_t>(price), 8);
}

}  // namespace

std::string BoardMessage::Bytes() const {
    const unsigned int table = type == 18 || type == 20 ? 1 : 0;
    std::string padded = name;
    padded.resize(16);
    std::string bytes =
        Little(type, 4) + Little(channel, 2) + Little(112 + 24 * levels.size(), 2) + Little(0, 4);
    bytes += Little(seq, 8) + Little(20261120, 4) + Little(85504, 4) + Little(32104000000009, 8);
    bytes += padded + Little(5, 2) + Little(table, 1) + Little(levels.size(), 1) + Little(2, 1) +
             Little(0, 3);
    bytes += Price(last) + Price(open) + Price(high) + Price(low) + Price(preSettle);
    bytes += Little(volume, 8) + Little(openInterest, 8) + Little(lastVolume, 4) + Little(0, 4);
    for (const BoardLevel& level : levels) {
        bytes += Price(level.bid) + Price(level.ask) + Little(level.bidVolume, 4) +
                 Little(level.askVolume, 4);
    }
    return bytes;
}

std::string OtherMessage(uint32_t type, const std::string& body) {
    return Little(type, 4) + Little(0, 8) + body;
}

std::string Packet(const BoardMessage& message, uint64_t number, unsigned int opening) {
    return Prefix(1, message.channel, number, 0, opening) + message.Bytes();
}

}  // namespace velatest
