#pragma once

#include <atomic>
#include <boost/lockfree/spsc_queue.hpp>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "capture/ZceCapture.h"

namespace ZceRecord {

// Where a recorded message comes from.
struct StreamId {
    uint16_t bus = ZCE_CAPTURE_BUS_UNKNOWN;
    uint16_t channel = 0;
    uint16_t opening = 0;
};

// A record's head in the queue; its bytes follow.
struct RecordHead {
    int64_t timeNs;
    uint64_t number;
    uint32_t size;
};

// The messages of one opening of a stream, on their way from the polling thread to the writer. Put
// and Close belong to the polling thread, everything else to the writer; neither ever waits.
//
// A message that has no room is only counted: the numbers of the messages that did get in tell the
// writer how many are missing in front of each, and Counted those behind the last.
class CMessageQueue {
  public:
    CMessageQueue(const StreamId& id, size_t bytes) : m_id(id), m_queue(bytes) { Touch(bytes); }

    // ---- The polling thread ----

    void Put(int64_t timeNs, const unsigned char* data, uint32_t size) {
        const RecordHead head{timeNs, ++m_number, size};
        if (size <= MAX_MESSAGE && m_queue.write_available() >= sizeof(head) + size) [[likely]] {
            m_queue.push(reinterpret_cast<const unsigned char*>(&head), sizeof(head));
            m_queue.push(data, size);
        } else {
            m_lostTimeNs.store(timeNs, std::memory_order_relaxed);
        }
        m_counted.store(m_number, std::memory_order_release);
    }
    void Close() { m_closed.store(true, std::memory_order_release); }

    // ---- The writer ----

    const StreamId& Id() const { return m_id; }
    bool Closed() const { return m_closed.load(std::memory_order_acquire); }
    // The number of the last message, got in or lost.
    uint64_t Counted() const { return m_counted.load(std::memory_order_acquire); }
    int64_t LostTimeNs() const { return m_lostTimeNs.load(std::memory_order_relaxed); }

    // Begins a pass: what was there when the pass before began is released. With `all`, what is
    // there now is.
    void BeginPass(bool all) {
        const uint64_t now = m_taken + m_queue.read_available();
        m_released = all ? now : m_seen;
        m_seen = now;
    }
    // Whether a whole message waits. Its head is then Head().
    bool Waits() {
        if (!m_hasHead && m_queue.read_available() >= sizeof(m_head)) {
            m_begin = m_taken;
            Take(reinterpret_cast<unsigned char*>(&m_head), sizeof(m_head));
            m_hasHead = true;
        }
        return m_hasHead && m_queue.read_available() >= m_head.size;
    }
    const RecordHead& Head() const { return m_head; }
    bool Released() const { return m_begin < m_released; }
    // Takes the waiting message's bytes out.
    void TakeBytes(unsigned char* to) {
        Take(to, m_head.size);
        m_hasHead = false;
    }
    bool Empty() const { return !m_hasHead && m_queue.read_available() == 0; }

  private:
    static constexpr uint32_t MAX_MESSAGE = ZCE_CAPTURE_SNAPLEN - ZCE_CAPTURE_PREFIX_SIZE;

    void Take(unsigned char* to, size_t size) {
        m_queue.pop(to, size);
        m_taken += size;
    }
    // The memory's first use, which costs a page fault each 4 KiB, is not the polling thread's.
    void Touch(size_t bytes) {
        const std::vector<unsigned char> zeroes(bytes);
        m_queue.push(zeroes.data(), bytes);
        m_queue.reset();
    }

    const StreamId m_id;
    boost::lockfree::spsc_queue<unsigned char> m_queue;

    alignas(64) uint64_t m_number = 0;
    std::atomic<uint64_t> m_counted{0};
    std::atomic<int64_t> m_lostTimeNs{0};
    std::atomic<bool> m_closed{false};

    alignas(64) RecordHead m_head{};
    bool m_hasHead = false;
    uint64_t m_taken = 0;  // bytes taken out so far
    uint64_t m_begin = 0;  // where the waiting message begins, counted like this
    uint64_t m_released = 0;
    uint64_t m_seen = 0;
};

}  // namespace ZceRecord
