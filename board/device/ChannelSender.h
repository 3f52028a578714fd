#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>

#include "ZceBoardMsg.h"
#include "memory/Ring.h"

namespace ZceBoard {

// What was sent on a channel, by type, and what its reader was too slow for.
struct ChannelCounts {
    static constexpr size_t OTHER = 5;
    std::array<uint64_t, OTHER + 1> sent{};  // types 2, 17, 18, 19, 20, any other
    uint64_t dropped = 0;

    static size_t PlaceOf(uint32_t type) {
        if (type >= ZCE_BOARD_TYPE_L1_SINGLE && type <= ZCE_BOARD_TYPE_L5_COMBINE) {
            return type - ZCE_BOARD_TYPE_L1_SINGLE + 1;
        }
        return type == ZCE_BOARD_TYPE_INST_MAP ? 0 : OTHER;
    }
    uint64_t MarketData() const { return sent[1] + sent[2] + sent[3] + sent[4]; }
};

// What was sent in one opening of a channel's stream; the openings of a channel count from 1.
struct OpeningCounts {
    uint32_t number;
    ChannelCounts counts;
};

// The board's end of one channel's stream to the host. A stream that nobody holds gets nothing, and
// that is no loss. One thread.
class CChannelSender {
  public:
    // `instruments`: takes the counts by instrument, at each message; null: nobody wants them.
    CChannelSender(const RingView& ring, uint32_t channel, InstrumentCounts* instruments = nullptr)
        : m_ring(ring),
          m_producer(ring),
          m_instruments(instruments),
          m_channel(static_cast<uint16_t>(channel)) {}

    // Whether somebody holds the stream; a new holder's opening starts with fresh counts and
    // sequence numbers from 1.
    bool IsOpen() {
        const uint32_t generation = m_ring.control->generation.load(std::memory_order_acquire);
        if (generation == m_producer.Generation()) [[likely]] {
            return generation != 0;
        }
        return BeginOpening(generation);
    }

    // A market data message, types 17 to 20: head, and `len` bytes of `body` with the channel's
    // sequence number put in place. A full ring drops the message; its number is used up.
    void SendMarketData(uint32_t type, const ZceBoardL5_t& body, uint32_t len);
    // A whole message as it is, of type 2.
    void SendMapPacket(const unsigned char* packet, uint32_t size);
    // A whole message as it is, of any type and of 1 to STREAM_MTU bytes. False while the ring is
    // full, which is back pressure but no drop: it may be tried again. Counts for an instrument if
    // it is one of the software board's own messages.
    bool SendWhole(const unsigned char* message, uint32_t size);

    // The same, but a full ring drops the message.
    void SendOrDrop(const unsigned char* message, uint32_t size);

    // Whether the reader has taken out all that was sent to it.
    bool IsDrained() const {
        return m_ring.control->tail.load(std::memory_order_acquire) ==
               m_ring.control->head.load(std::memory_order_relaxed);
    }

    // A whole message of any length, 1 to STREAM_MTU, that is not what the exchange sent: counted
    // as `other`, whatever its type. A full ring drops it.
    void SendGarbage(const unsigned char* message, uint32_t size);

    // Treats the ring as if it had room for this many bytes only, as a reader would be too slow for
    // more.
    void LimitRoom(uint64_t bytes) { m_room = bytes; }
    static constexpr uint64_t ALL_ROOM = ~uint64_t{0};

    // Into the board's memory, for whoever watches.
    void Publish(ChannelStats& stats) const;

    // Puts the ring right, should something have been written over its words; whether it was so.
    bool Mend() { return m_producer.Mend(); }

    uint32_t Channel() const { return m_channel; }
    bool WasEverOpen() const { return m_openings != 0; }
    uint32_t Openings() const { return m_openings; }
    const ChannelCounts& Total() const { return m_total; }
    // The present or last opening.
    OpeningCounts Opening() const { return {m_openings, m_opening}; }
    // The last opening that has ended, told once.
    std::optional<OpeningCounts> TakeEnd() { return std::exchange(m_end, std::nullopt); }

  private:
    bool BeginOpening(uint32_t generation);
    // Room for a message; null while the ring is full.
    unsigned char* Prepare(uint32_t size) {
        if (m_room != ALL_ROOM && m_producer.Used() + RecordSize(size) > m_room) [[unlikely]] {
            return nullptr;
        }
        return m_producer.PrepareWrite(size);
    }
    // The same for a message that is dropped if there is none.
    unsigned char* Place(uint32_t size);
    void Commit(unsigned char* place, const unsigned char* message, uint32_t size);
    void CountSent(size_t place);
    void CountInstrument(uint32_t table, uint32_t index);
    void CountWhole(uint32_t type, const unsigned char* message, uint32_t size);

    RingView m_ring;
    CRingProducer m_producer;
    InstrumentCounts* m_instruments;
    uint16_t m_channel;
    uint32_t m_openings = 0;
    bool m_bLive = false;  // an opening is under way
    std::optional<OpeningCounts> m_end;
    uint64_t m_ulSeq = 0;
    uint64_t m_room = ALL_ROOM;
    ChannelCounts m_total;
    ChannelCounts m_opening;
};

}  // namespace ZceBoard
