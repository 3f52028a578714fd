#include "ChannelSender.h"

#include <algorithm>
#include <cstring>

namespace ZceBoard {

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

void CChannelSender::SendMarketData(uint32_t type, ZceBoardL5_t& body, uint32_t len) {
    body.quote.ulSeq = ++m_ulSeq;
    const uint32_t size = ZCE_BOARD_HEAD_SIZE + len;
    unsigned char* place = Place(size);
    if (place == nullptr) {
        return;
    }
    const ZceBoardHead_t head{type, m_channel, static_cast<uint16_t>(len), 0};
    memcpy(place, &head, sizeof(head));
    memcpy(place + ZCE_BOARD_HEAD_SIZE, &body, len);
    m_producer.CommitWrite(size);
    CountSent(ChannelCounts::PlaceOf(type));
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
    memcpy(place, message, size);
    m_producer.CommitWrite(size);
    uint32_t type = 0;
    memcpy(&type, message, std::min<size_t>(size, sizeof(type)));
    CountSent(ChannelCounts::PlaceOf(type));
    return true;
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
