#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "Instruments.h"
#include "SessionTable.h"

namespace ZceBoard {

// One packet of the instrument broadcast, as it goes to the host, and which instruments of the list
// it tells.
struct MapPacket {
    std::vector<unsigned char> bytes;
    size_t first;
    size_t count;
};

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
