#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "memory/ShmLayout.h"

// A ring of messages in shared memory: one producer, one consumer, each message contiguous and
// handed out where it lies.
//
// The ring is a row of records, each starting on a boundary of 16 bytes: a header word, then the
// message, so that byte 12 of a message lies on a boundary of 16. The header word carries the
// message's length and the tag of the stream's opening it was meant for; it is 0 as long as nothing
// has been put there. The consumer waits on that word alone: an idle poll is one load and one
// branch, and a message's arrival moves the cache lines of the message and none besides. The
// producer clears the next record's header before it publishes a record. A record that would run
// over the ring's end is preceded by a filler, which is a header of length 0 with a tag.
//
// The two positions count bytes and never wrap; each side keeps its own in its object, and the
// producer reads the consumer's only when the ring seems full.
//
// What makes it fast when messages come without a gap is that neither side waits for a cache line
// more than it must: docs/performance.md tells what was measured.
namespace ZceBoard {

constexpr uint64_t RECORD_ALIGN = 16;
constexpr uint32_t RECORD_HEADER = sizeof(uint32_t);

constexpr uint64_t RecordSize(uint32_t len) {
    return (RECORD_HEADER + uint64_t{len} + RECORD_ALIGN - 1) & ~(RECORD_ALIGN - 1);
}

// The upper half of a header word for an opening: never 0. Openings count from 1.
constexpr uint32_t TagOf(uint32_t generation) {
    return (generation % 0xFFFF + 1) << 16;
}

// All openings of a CPU-to-accelerator ring share one tag: what an earlier sender left in it is
// still meant for the board.
constexpr uint32_t C2A_TAG_GENERATION = 1;

// Has the cache line fetched that will be written soon, to be this processor's alone.
inline void PrefetchForWriting(const unsigned char* place) {
#if defined(__x86_64__)
    asm volatile("prefetchw %0" : : "m"(*place));  // the compilers' own would do for reading only
#else
    __builtin_prefetch(place, 1);
#endif
}

// A short rest of a spinning processor.
inline void PauseProcessor() {
#if defined(__x86_64__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    asm volatile("isb");
#endif
}

// A view of one ring's memory: control words, data, size in bytes (a power of two).
struct RingView {
    RingControl* control = nullptr;
    unsigned char* data = nullptr;
    uint64_t size = 0;

    std::atomic<uint32_t>& HeaderAt(uint64_t pos) const {
        // The data are aligned to a page and a record's place to 16 bytes.
        return *reinterpret_cast<std::atomic<uint32_t>*>(data + Offset(pos));
    }
    uint64_t Offset(uint64_t pos) const { return pos & (size - 1) & ~(RECORD_ALIGN - 1); }
};

template <size_t Bytes>
RingView ViewOf(RingMemory<Bytes>& memory) {
    return RingView{&memory.control, memory.data.data(), Bytes};
}

// Called by the opener of a stream that holds the stream's lock: begins a new opening and returns
// its number. With `atHead` (an opening by the consumer) what lies in the ring is passed over.
uint32_t OpenRing(const RingView& ring, bool atHead);
// Ends the opening `generation`; does nothing if another one is present.
void CloseRing(const RingView& ring, uint32_t generation);

// The producing end. One thread of one process.
class CRingProducer {
  public:
    CRingProducer() = default;
    explicit CRingProducer(const RingView& ring) : m_ring(ring) {}

    // Starts to produce for an opening, where the ring's head is and with fresh counts.
    void Begin(uint32_t generation);
    uint32_t Generation() const { return m_generation; }

    // Room for a message of `len` bytes (1 to STREAM_MTU), to be filled and given to CommitWrite;
    // null while the ring is full, which is not counted here.
    unsigned char* PrepareWrite(uint32_t len) {
        const uint64_t need = RecordSize(len);
        const uint64_t room = m_ring.size - m_ring.Offset(m_head);
        const uint64_t total = (room < need ? room + need : need) + RECORD_ALIGN;
        if (m_head + total > m_tail + m_ring.size && !ReadTail(total)) [[unlikely]] {
            return nullptr;
        }
        if (room < need) [[unlikely]] {
            Fill(room);
        }
        m_ring.HeaderAt(m_head + need).store(0, std::memory_order_relaxed);
        for (uint64_t line = 0; line < need; line += CACHE_LINE) {
            PrefetchForWriting(m_ring.data + m_ring.Offset(m_head + AHEAD + line));
        }
        return m_ring.data + m_ring.Offset(m_head) + RECORD_HEADER;
    }

    // Publishes the message of this length that was written where PrepareWrite said.
    void CommitWrite(uint32_t len) {
        const uint64_t next = m_head + RecordSize(len);
        m_ring.HeaderAt(m_head).store(m_tag | len, std::memory_order_release);
        m_head = next;
        m_ring.control->head.store(next, std::memory_order_release);
        m_ring.control->packetCount.store(++m_packetCount, std::memory_order_relaxed);
    }

    // Bytes that the consumer has not taken out yet; the ring's size when nobody can say.
    uint64_t Used() const {
        const uint64_t used = m_head - m_ring.control->tail.load(std::memory_order_acquire);
        return used <= m_ring.size ? used : m_ring.size;
    }

    // Now and then, and at least some milliseconds after the last time: puts the ring's head right,
    // and leads back a consumer that something written over its words led astray. True if there was
    // something to be done. Does nothing to a ring that is in order.
    bool Mend();

    void CountBackPressure() {
        m_ring.control->backPressure.store(++m_backPressure, std::memory_order_relaxed);
    }

  private:
    // How far ahead of the head the ring's memory is fetched, in bytes: a few messages.
    static constexpr uint64_t AHEAD = 1024;

    [[gnu::cold]] bool ReadTail(uint64_t total);
    void Fill(uint64_t room);
    bool WakeLostConsumer(uint64_t tail);
    // Of a tail that is no position: how often it has been seen, one look after the other.
    uint32_t LooksAt(uint64_t badTail) {
        m_badLooks = std::exchange(m_badTail, badTail) == badTail ? m_badLooks + 1 : 1;
        return m_badLooks;
    }

    RingView m_ring;
    uint64_t m_head = 0;
    uint64_t m_tail = 0;  // the consumer's position when it was last looked at
    uint64_t m_badTail = 0;
    uint32_t m_badLooks = 0;
    uint32_t m_tag = 0;
    uint32_t m_generation = 0;
    uint32_t m_packetCount = 0;
    uint32_t m_backPressure = 0;
    uint32_t m_fifoErrors = 0;
};

// The consuming end. One thread of one process.
class CRingConsumer {
  public:
    CRingConsumer() = default;
    // Starts to consume the opening `generation` where the ring's tail is.
    CRingConsumer(const RingView& ring, uint32_t generation);

    // Hands at most one message to handler(data, len): 1 if it did, 0 if none was waiting. The
    // message lies in the ring and is given back when the handler is left, by an exception too: no
    // message is handed out twice.
    template <class Handler>
    int PollOnce(Handler&& handler) {
        for (int look = 0; look < LOOKS_PER_POLL; ++look) {
            const uint32_t header = m_ring.HeaderAt(m_pos).load(std::memory_order_acquire);
            if (header == 0) [[likely]] {
                if (std::exchange(m_streak, 0) < STREAK) [[likely]] {
                    return 0;
                }
                LeaveTheProducerAlone();
                continue;
            }
            const uint32_t len = header - m_tag;
            if (len - 1 < STREAM_MTU) [[likely]] {
                const Taken taken{*this, len};
                handler(static_cast<const unsigned char*>(m_ring.data) + m_ring.Offset(m_pos) +
                            RECORD_HEADER,
                        len);
                return 1;
            }
            PassOddHeader(header);
        }
        return 0;
    }

    // Now and then while nothing comes: tells the producer its position again, should something
    // have been written over it.
    void TellPosition() { m_ring.control->tail.store(m_pos, std::memory_order_release); }

  private:
    // A message may have a filler in front of it, and that one a record of an earlier opening; and
    // a look that finds nothing may be followed by one more.
    static constexpr int LOOKS_PER_POLL = 5;

    // So many messages taken one right after the other are a backlog or a dense burst.
    static constexpr uint32_t STREAK = 4;
    static constexpr int PAUSES = 32;

    // Gives a message back at its end, however the handler was left.
    struct Taken {
        CRingConsumer& consumer;
        uint32_t len;
        ~Taken() { consumer.GiveBack(len); }
    };
    void GiveBack(uint32_t len) {
        m_fresh = false;
        ++m_streak;
        // A branch, which the processor foresees, instead of a sum of what it is still loading: so
        // it has the next records fetched in the meantime.
        if (len != m_lastLen) {
            m_lastLen = len;
            m_lastSize = RecordSize(len);
        }
        m_pos += m_lastSize;
        m_ring.control->tail.store(m_pos, std::memory_order_release);
    }

    // A consumer that has caught up with a dense burst looks at the next header as fast as it can,
    // and each look takes the cache line away from the producer, which is just writing there: from
    // then on the two wait for each other at each message. So it stays away once, for about a
    // microsecond, before it looks again: what has come by then it takes at one go. Shorter than
    // some round trips between distant processors, it would not help there.
    [[gnu::cold]] static void LeaveTheProducerAlone() {
        for (int k = 0; k < PAUSES; ++k) {
            PauseProcessor();
        }
    }

    // A filler, a record of an earlier opening, or garbage: passes over it.
    [[gnu::cold]] void PassOddHeader(uint32_t header);

    RingView m_ring;
    uint64_t m_pos = 0;
    uint32_t m_tag = 0;
    uint32_t m_lastLen = 0;   // of the last message,
    uint64_t m_lastSize = 0;  // and of its record
    uint32_t m_streak = 0;    // messages since the last look that found nothing
    bool m_fresh = true;      // nothing of this opening has been seen yet
};

}  // namespace ZceBoard
