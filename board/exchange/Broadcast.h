#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "exchange/Instruments.h"
#include "exchange/SessionTable.h"

namespace ZceBoard {

// The packet keeps the head of an Ethernet frame: where the addresses would be are the message's
// type, its channel (0) and the length of what follows, little-endian; then, big-endian, the length
// of the records. A record: its length; in a packet's first record 4 bytes more; attribute; index;
// name.
constexpr size_t MAP_LENGTH_OFFSET = 12;
constexpr size_t MAP_RECORDS_OFFSET = 14;
constexpr size_t MAP_RECORD_HEAD = 5;
constexpr size_t MAP_FIRST_RECORD_EXTRA = 4;

// One packet of the instrument broadcast, as it goes to the host, and which instruments of the list
// it tells.
struct MapPacket {
    std::vector<unsigned char> bytes;
    size_t first;
    size_t count;
};

// The instruments that a map packet of the host's form tells: tell(index, name) for each. Stops at
// the first record that does not lie in the packet.
template <class Tell>
void ReadMapPacket(std::span<const unsigned char> packet, Tell&& tell) {
    const auto big16 = [&packet](size_t offset) {
        return static_cast<uint16_t>(packet[offset] << 8 | packet[offset + 1]);
    };
    if (packet.size() < MAP_RECORDS_OFFSET) {
        return;
    }
    const size_t end =
        std::min<size_t>(packet.size(), MAP_RECORDS_OFFSET + big16(MAP_LENGTH_OFFSET));
    size_t head = MAP_RECORD_HEAD + MAP_FIRST_RECORD_EXTRA;
    for (size_t at = MAP_RECORDS_OFFSET; at + head < end;) {
        const size_t length = big16(at);
        if (length <= head || at + length > end) {
            return;
        }
        const auto* const name = packet.data() + at + head;
        tell(big16(at + head - sizeof(uint16_t)), std::string(name, name + length - head));
        at += length;
        head = MAP_RECORD_HEAD;
    }
}

// How long one round of the whole list takes, in ns of board time.
struct BroadcastPace {
    int64_t auctionCycleNs;
    int64_t tradingCycleNs;
};

// The exchange's instrument broadcast: the list again and again, while an auction is on and, more
// slowly, in trading time.
class CBroadcast {
  public:
    static constexpr size_t MAX_PACKET = 1500;
    static constexpr size_t MAX_RECORDS = 40;

    CBroadcast(const std::vector<Instrument>& instruments, BroadcastPace pace);

    // How many packets are to be sent by now, at most one round of them. `wallNs` is the board's
    // time; it may stand still, jump, or run back.
    size_t Due(Phase phase, int64_t wallNs);
    // The packet that comes next, and taking it as sent.
    const MapPacket& Next() const { return m_packets[m_next]; }
    void Advance();

    const std::vector<MapPacket>& Packets() const { return m_packets; }
    // Whole rounds sent since the start.
    uint64_t Rounds() const { return m_rounds; }

  private:
    std::vector<MapPacket> m_packets;
    BroadcastPace m_pace;
    size_t m_next = 0;
    uint64_t m_rounds = 0;
    int64_t m_lastNs = 0;
    int64_t m_owedNs = 0;    // board time that has not become packets yet
    int64_t m_packetNs = 0;  // board time of one packet at the present pace
    bool m_bStarted = false;
};

}  // namespace ZceBoard
