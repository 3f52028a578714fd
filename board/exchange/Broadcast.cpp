#include "exchange/Broadcast.h"

#include <algorithm>

#include "ZceBoardMsg.h"

namespace ZceBoard {

namespace {

constexpr size_t BODY_LEN_OFFSET = 6;

size_t RecordLength(const Instrument& instrument, bool first) {
    return MAP_RECORD_HEAD + (first ? MAP_FIRST_RECORD_EXTRA : 0) + instrument.name.size();
}

void AppendBig16(std::vector<unsigned char>& bytes, size_t value) {
    bytes.push_back(static_cast<unsigned char>(value >> 8 & 0xFF));
    bytes.push_back(static_cast<unsigned char>(value & 0xFF));
}

void AppendRecord(std::vector<unsigned char>& bytes, const Instrument& instrument, bool first) {
    AppendBig16(bytes, RecordLength(instrument, first));
    if (first) {
        bytes.insert(bytes.end(), MAP_FIRST_RECORD_EXTRA, 0);
    }
    bytes.push_back(static_cast<unsigned char>(instrument.kind));
    AppendBig16(bytes, instrument.index);
    bytes.insert(bytes.end(), instrument.name.begin(), instrument.name.end());
}

// The packet of the instruments from `first` on, as many as fit.
MapPacket PacketFrom(const std::vector<Instrument>& instruments, size_t first) {
    MapPacket packet{{}, first, 0};
    std::vector<unsigned char>& bytes = packet.bytes;
    bytes.assign(MAP_RECORDS_OFFSET, 0);
    bytes[0] = ZCE_BOARD_TYPE_INST_MAP;
    while (first + packet.count < instruments.size() && packet.count < CBroadcast::MAX_RECORDS) {
        const Instrument& instrument = instruments[first + packet.count];
        const bool isFirst = packet.count == 0;
        if (bytes.size() + RecordLength(instrument, isFirst) > CBroadcast::MAX_PACKET) {
            break;
        }
        AppendRecord(bytes, instrument, isFirst);
        ++packet.count;
    }
    const size_t records = bytes.size() - MAP_RECORDS_OFFSET;
    bytes[MAP_LENGTH_OFFSET] = static_cast<unsigned char>(records >> 8);
    bytes[MAP_LENGTH_OFFSET + 1] = static_cast<unsigned char>(records & 0xFF);
    const size_t body = bytes.size() - ZCE_BOARD_HEAD_SIZE;
    bytes[BODY_LEN_OFFSET] = static_cast<unsigned char>(body & 0xFF);
    bytes[BODY_LEN_OFFSET + 1] = static_cast<unsigned char>(body >> 8);
    return packet;
}

}  // namespace

CBroadcast::CBroadcast(const std::vector<Instrument>& instruments, BroadcastPace pace)
    : m_pace(pace) {
    for (size_t first = 0; first < instruments.size(); first += m_packets.back().count) {
        m_packets.push_back(PacketFrom(instruments, first));
    }
}

size_t CBroadcast::Due(Phase phase, int64_t wallNs) {
    const int64_t passed = m_bStarted ? wallNs - m_lastNs : 0;
    m_bStarted = true;
    m_lastNs = wallNs;
    if (!IsMarketOpen(phase) || m_packets.empty()) {
        m_owedNs = 0;
        return 0;
    }
    const int64_t cycle = phase == Phase::Auction ? m_pace.auctionCycleNs : m_pace.tradingCycleNs;
    const auto packets = static_cast<int64_t>(m_packets.size());
    m_packetNs = std::max<int64_t>(cycle / packets, 1);
    // After a jump of the clock one round is sent at once, not all those that it skipped.
    m_owedNs = std::clamp<int64_t>(m_owedNs + std::clamp<int64_t>(passed, 0, cycle), 0, cycle);
    return static_cast<size_t>(std::min(m_owedNs / m_packetNs, packets));
}

void CBroadcast::Advance() {
    m_owedNs -= m_packetNs;
    if (++m_next == m_packets.size()) {
        m_next = 0;
        ++m_rounds;
    }
}

}  // namespace ZceBoard
