#include "device/ChannelSender.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace ZceBoard {

namespace {

// So much of a body lies in the first cache line of its record at most: behind the record's header
// and the message's head.
constexpr size_t FIRST_LINE = CACHE_LINE - RECORD_HEADER - ZCE_BOARD_HEAD_SIZE;

// The message's head is put together as one number.
static_assert(std::endian::native == std::endian::little);
static_assert(offsetof(ZceBoardHead_t, usChannel) == 4 && offsetof(ZceBoardHead_t, usBodyLen) == 6);
static_assert(offsetof(ZceBoardQuote_t, ulSeq) == 0 && sizeof(ZceBoardQuote_t) >= FIRST_LINE);

}  // namespace

bool CChannelSender::BeginOpening(uint32_t generation) {
    if (std::exchange(m_bLive, false)) {
        m_end = Opening();
    }
    if (generation == 0) {
        return false;
    }
    m_bLive = true;
    m_producer.Begin(generation);
    ++m_openings;
    m_ulSeq = 0;
    m_opening = {};
    return true;
}

unsigned char* CChannelSender::Place(uint32_t size) {
    unsigned char* place = Prepare(size);
    if (place == nullptr) {
        m_producer.CountBackPressure();
        ++m_total.dropped;
        ++m_opening.dropped;
    }
    return place;
}

void CChannelSender::CountSent(size_t place) {
    ++m_total.sent[place];
    ++m_opening.sent[place];
}

void CChannelSender::CountInstrument(uint32_t table, uint32_t index) {
    constexpr std::memory_order RELAXED = std::memory_order_relaxed;
    if (m_instruments != nullptr && table < TABLE_COUNT && index < TABLE_ENTRIES) {
        std::atomic<uint64_t>& count = m_instruments->sent[table][index];
        count.store(count.load(RELAXED) + 1, RELAXED);  // nobody else counts
    }
}

// A recorded message may be a real board's, whose bodies are laid out in another way.
void CChannelSender::CountWhole(uint32_t type, const unsigned char* message, uint32_t size) {
    const uint32_t len = ZceBoardBodySize(type);
    if (len == 0 || size != ZCE_BOARD_HEAD_SIZE + len) {
        return;
    }
    ZceBoardQuote_t quote;
    ZceBoardReadQuote(message + ZCE_BOARD_HEAD_SIZE, &quote);
    const bool bCombine = type == ZCE_BOARD_TYPE_L1_COMBINE || type == ZCE_BOARD_TYPE_L5_COMBINE;
    if (quote.ucTable == (bCombine ? TABLE_COMBINE : TABLE_SINGLE)) {
        CountInstrument(quote.ucTable, quote.usIndex);
    }
}

// Written so that the processor need not wait for the reader, which looks at the record's first
// cache line all the time: that line is written last and at one go, and nothing is copied that was
// stored in pieces a moment before (such a copy waits until all stores before it have been made).
void CChannelSender::SendMarketData(uint32_t type, const ZceBoardL5_t& body, uint32_t len) {
    const uint64_t seq = ++m_ulSeq;
    const uint32_t size = ZCE_BOARD_HEAD_SIZE + len;
    unsigned char* place = Place(size);
    if (place == nullptr) {
        return;
    }
    const auto* from = reinterpret_cast<const unsigned char*>(&body);
    unsigned char* to = place + ZCE_BOARD_HEAD_SIZE;
    memcpy(to + FIRST_LINE, from + FIRST_LINE, len - FIRST_LINE);
    const uint64_t head = uint64_t{type} | uint64_t{m_channel} << 32 | uint64_t{len} << 48;
    const uint32_t zero = 0;
    memcpy(place, &head, sizeof(head));
    memcpy(place + sizeof(head), &zero, sizeof(zero));
    memcpy(to, &seq, sizeof(seq));
    memcpy(to + sizeof(seq), from + sizeof(seq), FIRST_LINE - sizeof(seq));
    m_producer.CommitWrite(size);
    CountSent(ChannelCounts::PlaceOf(type));
    CountInstrument(body.quote.ucTable, body.quote.usIndex);
}

void CChannelSender::SendMapPacket(const unsigned char* packet, uint32_t size) {
    unsigned char* place = Place(size);
    if (place == nullptr) {
        return;
    }
    memcpy(place, packet, size);
    m_producer.CommitWrite(size);
    CountSent(ChannelCounts::PlaceOf(ZCE_BOARD_TYPE_INST_MAP));
}

bool CChannelSender::SendWhole(const unsigned char* message, uint32_t size) {
    unsigned char* place = Prepare(size);
    if (place == nullptr) {
        return false;
    }
    Commit(place, message, size);
    return true;
}

void CChannelSender::SendOrDrop(const unsigned char* message, uint32_t size) {
    unsigned char* place = Place(size);
    if (place != nullptr) {
        Commit(place, message, size);
    }
}

void CChannelSender::Commit(unsigned char* place, const unsigned char* message, uint32_t size) {
    memcpy(place, message, size);
    m_producer.CommitWrite(size);
    uint32_t type = 0;
    memcpy(&type, message, std::min<size_t>(size, sizeof(type)));
    CountSent(ChannelCounts::PlaceOf(type));
    CountWhole(type, message, size);
}

void CChannelSender::SendGarbage(const unsigned char* message, uint32_t size) {
    unsigned char* place = Place(size);
    if (place == nullptr) {
        return;
    }
    memcpy(place, message, size);
    m_producer.CommitWrite(size);
    CountSent(ChannelCounts::OTHER);
}

void CChannelSender::Publish(ChannelStats& stats) const {
    constexpr std::memory_order RELAXED = std::memory_order_relaxed;
    for (size_t k = 0; k < stats.sent.size(); ++k) {
        stats.sent[k].store(m_total.sent[k], RELAXED);
    }
    stats.other.store(m_total.sent[ChannelCounts::OTHER], RELAXED);
    stats.dropped.store(m_total.dropped, RELAXED);
    stats.openings.store(m_openings, RELAXED);
    stats.open.store(m_bLive ? 1 : 0, RELAXED);
}

}  // namespace ZceBoard
