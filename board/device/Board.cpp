#include "device/Board.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace ZceBoard {

namespace {

constexpr int LOCK_TRIES = 64;
constexpr int REQUESTS_AT_ONCE = 256;

template <size_t... I>
std::array<CChannelSender, CHANNELS> SendersOf(BoardShm& shm,
                                               std::index_sequence<I...> /*places*/) {
    return {CChannelSender(ViewOf(shm.a2c[I]), I, &shm.instruments[I])...};
}

}  // namespace

std::array<CChannelSender, CHANNELS> CBoard::MakeSenders(BoardShm& shm) {
    return SendersOf(shm, std::make_index_sequence<CHANNELS>());
}

CBoard::CBoard(CBoardMemory& memory, const CFeeds& feeds)
    : m_memory(memory),
      m_shm(memory.Shm()),
      m_registers(m_shm),
      m_lock(memory),
      m_faults(m_shm),
      m_faultPlayer(m_shm),
      m_feeds(feeds),
      m_channels(MakeSenders(m_shm)) {
    for (size_t channel = 0; channel < CHANNELS; ++channel) {
        m_requestRings[channel] = CRingConsumer(ViewOf(m_shm.c2a[channel]), C2A_TAG_GENERATION);
    }
}

void CBoard::SetTime(const BoardTime& time) {
    for (const uint32_t clock : {REG_TIME_A, REG_TIME_B}) {
        if (!m_faults.IsOn(Fault::ClockStuck, clock)) {
            m_registers.Poke(clock, time.hhmmss);
        }
    }
}

bool CBoard::TryLock() {
    for (int tries = 0; tries < LOCK_TRIES; ++tries) {
        if (m_lock.TryLock()) {
            return true;
        }
    }
    return false;
}

bool CBoard::HearDecoded(uint32_t channel, const unsigned char* message, uint32_t size) {
    CChannelSender& sender = m_channels[channel];
    if (sender.IsOpen() && !sender.SendWhole(message, size)) {
        return false;
    }
    CountParsed(message, size);
    return true;
}

void CBoard::HearLive(uint32_t channel, const unsigned char* message, uint32_t size) {
    CChannelSender& sender = m_channels[channel];
    if (sender.IsOpen()) {
        sender.SendOrDrop(message, size);
    }
    CountParsed(message, size);
}

void CBoard::CountParsed(const unsigned char* message, uint32_t size) {
    uint32_t type = 0;
    memcpy(&type, message, std::min<size_t>(size, sizeof(type)));
    if (type - ZCE_BOARD_TYPE_L1_SINGLE < COUNTERS_PER_GROUP) {
        ++m_parsed[type - ZCE_BOARD_TYPE_L1_SINGLE];
    }
}

void CBoard::Learn(const std::vector<Instrument>& instruments) {
    if (IsHeldInReset() || !TryLock()) {
        return;
    }
    for (const Instrument& instrument : instruments) {
        m_registers.StoreName(instrument.table, instrument.index, instrument.name);
    }
    m_lock.Unlock();
}

bool CBoard::HearMapPacket(const MapPacket& packet, const std::vector<Instrument>& instruments) {
    if (IsHeldInReset()) {
        return true;  // missed, like everything else then
    }
    if (!TryLock()) {
        return false;
    }
    for (size_t k = packet.first; k < packet.first + packet.count; ++k) {
        const Instrument& instrument = instruments[k];
        m_registers.StoreName(instrument.table, instrument.index, instrument.name);
    }
    m_lock.Unlock();
    CChannelSender& master = m_channels[0];
    if (IsTransmittingMap() && master.IsOpen()) {
        master.SendMapPacket(packet.bytes.data(), static_cast<uint32_t>(packet.bytes.size()));
    }
    return true;
}

bool CBoard::IsDecoding() const {
    return SwitchWord() != 0 && !IsHeldInReset();
}

void CBoard::HearTick(const CExchange& exchange, const Tick& tick, const BoardTime& time,
                      Phase phase) {
    if ((SwitchWord() & m_received & tick.feed) == 0) {
        return;
    }
    ++m_parsed[tick.type - ZCE_BOARD_TYPE_L1_SINGLE];
    uint32_t mask = m_registers.Mask(tick.instrument->table, tick.instrument->index);
    if (mask == 0) {
        return;
    }
    ZceBoardL5_t body;
    exchange.Fill(tick, time, phase, body);
    const uint32_t len = ZceBoardBodySize(tick.type);
    for (CChannelSender& channel : m_channels) {
        if ((mask & 1) != 0 && channel.IsOpen()) {
            channel.SendMarketData(tick.type, body, len);
        }
        mask >>= 1;
    }
}

void CBoard::PublishCounters(bool open) {
    const bool move = open && !m_faults.IsOn(Fault::CountersStuck);
    for (uint32_t k = 0; k < COUNTERS_PER_GROUP; ++k) {
        m_parsedTotal += m_parsed[k];
        if (move && m_parsed[k] != 0) {
            m_registers.Count(REG_COUNTER_A + k, m_parsed[k]);
            m_registers.Count(REG_COUNTER_B + k, m_parsed[k]);
        }
        m_parsed[k] = 0;
    }
}

void CBoard::NoticeOpenings() {
    for (CChannelSender& channel : m_channels) {
        channel.IsOpen();
    }
}

void CBoard::DrainRequests() {
    const auto count = [this](const unsigned char* /*data*/, uint32_t /*size*/) { ++m_requests; };
    for (CRingConsumer& ring : m_requestRings) {
        for (int k = 0; k < REQUESTS_AT_ONCE && ring.PollOnce(count) == 1; ++k) {}
    }
}

void CBoard::FreeDeadHolders() {
    const auto check = [this](const RingView& ring, int64_t byte) {
        const uint32_t generation = ring.control->generation.load(std::memory_order_acquire);
        if (generation != 0 && !m_memory.File().IsLocked(byte)) {
            CloseRing(ring, generation);
        }
    };
    for (size_t channel = 0; channel < CHANNELS; ++channel) {
        const auto byte = static_cast<int64_t>(channel);
        check(ViewOf(m_shm.a2c[channel]), LOCK_A2C_FIRST + byte);
        check(ViewOf(m_shm.c2a[channel]), LOCK_C2A_FIRST + byte);
    }
}

void CBoard::MendMemory() {
    m_mended += m_memory.MendHeader();
    m_faultPlayer.SetLink();
    for (CChannelSender& channel : m_channels) {
        m_mended += channel.Mend() ? 1 : 0;
    }
    for (CRingConsumer& ring : m_requestRings) {
        ring.TellPosition();
    }
}

size_t CBoard::Learnt(uint32_t table) const {
    size_t learnt = 0;
    for (size_t entry = 0; entry < TABLE_ENTRIES; ++entry) {
        // The first four characters of the name.
        const size_t place = entry * TABLE_ENTRY_WORDS + TABLE_NAME_WORDS;
        learnt += m_shm.tables[table][place].load(std::memory_order_relaxed) != 0 ? 1 : 0;
    }
    return learnt;
}

size_t CBoard::Subscribed(uint32_t table) const {
    size_t subscribed = 0;
    for (uint32_t entry = 0; entry < TABLE_ENTRIES; ++entry) {
        subscribed += m_registers.Mask(table, entry) != 0 ? 1 : 0;
    }
    return subscribed;
}

}  // namespace ZceBoard
