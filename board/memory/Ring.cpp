#include "memory/Ring.h"

namespace ZceBoard {

namespace {

constexpr uint32_t LENGTH_BITS = 0xFFFF;
constexpr uint32_t GARBAGE_HEADER = 0xFFFFFFFF;
constexpr uint32_t PATIENCE = 64;

}  // namespace

uint32_t OpenRing(const RingView& ring, bool atHead) {
    RingControl& control = *ring.control;
    if (atHead) {
        const uint64_t head = control.head.load(std::memory_order_acquire);
        control.tail.store(head & ~(RECORD_ALIGN - 1), std::memory_order_release);
    }
    control.errors.store(0, std::memory_order_relaxed);
    uint32_t generation = control.lastGeneration.load(std::memory_order_relaxed) + 1;
    if (generation == 0) {
        generation = 1;
    }
    control.lastGeneration.store(generation, std::memory_order_relaxed);
    control.generation.store(generation, std::memory_order_release);
    return generation;
}

void CloseRing(const RingView& ring, uint32_t generation) {
    ring.control->generation.compare_exchange_strong(generation, 0, std::memory_order_acq_rel);
}

void CRingProducer::Begin(uint32_t generation) {
    RingControl& control = *m_ring.control;
    m_head = control.head.load(std::memory_order_acquire) & ~(RECORD_ALIGN - 1);
    // A producer that died between publishing a record and moving the head left that record here.
    const uint32_t left = m_ring.HeaderAt(m_head).load(std::memory_order_acquire);
    if (left != 0 && (left & LENGTH_BITS) <= STREAM_MTU) {
        const uint64_t room = m_ring.size - m_ring.Offset(m_head);
        m_head += (left & LENGTH_BITS) == 0 ? room : RecordSize(left & LENGTH_BITS);
        control.head.store(m_head, std::memory_order_release);
    }
    m_tail = control.tail.load(std::memory_order_acquire);
    if (m_head - m_tail > m_ring.size) {
        m_tail = m_head - m_ring.size;  // an impossible tail: full until the consumer moves it
    }
    m_generation = generation;
    m_tag = TagOf(generation);
    m_packetCount = 0;
    m_backPressure = 0;
    m_fifoErrors = 0;
    control.packetCount.store(0, std::memory_order_relaxed);
    control.backPressure.store(0, std::memory_order_relaxed);
    control.fifoErrors.store(0, std::memory_order_relaxed);
    control.statGeneration.store(generation, std::memory_order_release);
}

bool CRingProducer::ReadTail(uint64_t total) {
    RingControl& control = *m_ring.control;
    const uint64_t tail = control.tail.load(std::memory_order_acquire);
    if (m_head - tail > m_ring.size) {
        // Nowhere between head and a full ring: not a position. Either something was written over
        // the consumer's word, and it writes it anew with its next message; or the consumer went
        // where a head led it that was none, and waits there.
        if (LooksAt(tail) >= PATIENCE) {
            m_badLooks = 0;
            control.head.store(m_head, std::memory_order_release);
            WakeLostConsumer(tail);
        }
        return false;
    }
    m_tail = tail;
    if (m_head + total <= tail + m_ring.size) {
        return true;
    }
    WakeLostConsumer(tail);
    return false;
}

// Where a consumer stands in a full ring there is a record. If there is none, something wrote over
// a record's header and led the consumer astray to a place where it would wait for ever: a header
// that it must take for garbage makes it come to the ring's head.
bool CRingProducer::WakeLostConsumer(uint64_t tail) {
    uint32_t none = 0;
    if (!m_ring.HeaderAt(tail).compare_exchange_strong(none, GARBAGE_HEADER,
                                                       std::memory_order_acq_rel)) {
        return false;
    }
    m_ring.control->fifoErrors.store(++m_fifoErrors, std::memory_order_relaxed);
    return true;
}

bool CRingProducer::Mend() {
    RingControl& control = *m_ring.control;
    bool mended = false;
    if (control.head.load(std::memory_order_relaxed) != m_head) {
        control.head.store(m_head, std::memory_order_release);
        mended = true;
    }
    const uint64_t tail = control.tail.load(std::memory_order_acquire);
    if (m_head - tail > m_ring.size) {
        return (LooksAt(tail) >= 2 && WakeLostConsumer(tail)) || mended;
    }
    // A consumer that has not come to the head stands before a record, as in WakeLostConsumer.
    return (tail != m_head && WakeLostConsumer(tail)) || mended;
}

void CRingProducer::Fill(uint64_t room) {
    const uint64_t next = m_head + room;
    m_ring.HeaderAt(next).store(0, std::memory_order_relaxed);
    m_ring.HeaderAt(m_head).store(m_tag, std::memory_order_release);
    m_head = next;
    m_ring.control->head.store(next, std::memory_order_release);
}

CRingConsumer::CRingConsumer(const RingView& ring, uint32_t generation)
    : m_ring(ring),
      m_pos(ring.control->tail.load(std::memory_order_acquire) & ~(RECORD_ALIGN - 1)),
      m_tag(TagOf(generation)) {}

void CRingConsumer::PassOddHeader(uint32_t header) {
    RingControl& control = *m_ring.control;
    const uint32_t len = header & LENGTH_BITS;
    const bool mine = (header & ~LENGTH_BITS) == m_tag;
    const uint64_t offset = m_ring.Offset(m_pos);
    if (mine && len == 0 && offset != 0) {
        m_pos += m_ring.size - offset;  // a filler
    } else if (!mine && m_fresh && len <= STREAM_MTU && (len != 0 || offset != 0)) {
        // The producer was just putting it there for the opening before: no error.
        m_pos += len == 0 ? m_ring.size - offset : RecordSize(len);
    } else {
        // Garbage. Everything up to the producer's position is given up. With nothing behind it, it
        // is wiped, unless the producer puts a record there just now.
        control.errors.fetch_add(1, std::memory_order_relaxed);
        const uint64_t head = control.head.load(std::memory_order_acquire) & ~(RECORD_ALIGN - 1);
        if (head == m_pos) {
            m_ring.HeaderAt(m_pos).compare_exchange_strong(header, 0, std::memory_order_acq_rel);
        }
        m_pos = head;
    }
    control.tail.store(m_pos, std::memory_order_release);
}

}  // namespace ZceBoard
