#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include "relay/MessageRing.h"
#include "relay/Wire.h"

namespace ZceRelay {

// What goes with each message that has come.
struct ReceivedHead {
    Kind kind = Kind::MarketData;
    uint16_t channel = 0;
    uint32_t size = 0;  // of what follows
    int64_t timeNs = 0;
    Sequence sequence;
};

// What has come for one bus, on its way from the receiver to the board: whole messages with the
// board's head in front of them, marks (nothing follows) and lists (their text). One thread puts,
// one takes.
class CReceivedMessages {
  public:
    explicit CReceivedMessages(size_t bytes) : m_ring(bytes) {}

    bool Put(const ReceivedHead& head, const unsigned char* bytes) {
        return m_ring.Put(head, bytes);
    }
    bool Take(ReceivedHead& head, std::vector<unsigned char>& bytes) {
        return m_ring.Take(head, bytes);
    }

    // Whether the server is there, and how often a connection was made; any thread.
    void TellConnected(bool bConnected, uint64_t connects) {
        m_connects.store(connects, std::memory_order_relaxed);
        m_bConnected.store(bConnected, std::memory_order_relaxed);
    }
    bool IsConnected() const { return m_bConnected.load(std::memory_order_relaxed); }
    uint64_t Connects() const { return m_connects.load(std::memory_order_relaxed); }

  private:
    CMessageRing<ReceivedHead> m_ring;
    std::atomic<bool> m_bConnected{false};
    std::atomic<uint64_t> m_connects{0};
};

}  // namespace ZceRelay
