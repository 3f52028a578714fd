#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#if defined(__x86_64__)
#include <emmintrin.h>
#endif

#include "DrvEnyx/enyxHw.h"
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
    int64_t stamp;  // when it was polled (TickClock.h)
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
    // The memory's first use, which costs page faults, is here and not the polling thread's. Throws
    // std::bad_alloc.
    CMessageQueue(const StreamId& id, size_t bytes);

    // ---- The polling thread ----

    // Whose poll it is: Deliver passes the message on to it.
    void BeginPoll(enyx_hw_a2c_handler handler, void* context) {
        m_handler = handler;
        m_context = context;
    }
    // Ends with a jump either way: nothing need be kept over a call.
    void Deliver(int64_t stamp, const unsigned char* data, uint32_t size) {
        if (!PutStraight(stamp, data, size)) [[unlikely]] {
            return DeliverOtherwise(stamp, data, size);
        }
        m_handler(data, size, m_context);
    }
    void Put(int64_t stamp, const unsigned char* data, uint32_t size) {
        if (!PutStraight(stamp, data, size)) [[unlikely]] {
            PutOtherwise(stamp, data, size);
        }
    }
    void Close() { m_closed.store(true, std::memory_order_release); }

    // ---- The writer ----

    const StreamId& Id() const { return m_id; }
    bool Closed() const { return m_closed.load(std::memory_order_acquire); }
    // The number of the last message, got in or lost.
    uint64_t Counted() const { return m_counted.load(std::memory_order_acquire); }
    int64_t LostStamp() const { return m_lostStamp.load(std::memory_order_relaxed); }

    // Begins a pass: what was there when the pass before began is released. With `all`, what is
    // there now is.
    void BeginPass(bool all) {
        m_writer.told = m_putTold.load(std::memory_order_acquire);
        m_writer.released = all ? m_writer.told : m_writer.seen;
        m_writer.seen = m_writer.told;
    }
    // Whether a whole message waits. Its head is then Head().
    bool Waits() {
        if (!m_writer.bHasHead && Has(sizeof(m_writer.head))) {
            m_writer.begin = m_writer.taken;
            Take(reinterpret_cast<unsigned char*>(&m_writer.head), sizeof(m_writer.head));
            m_writer.bHasHead = true;
        }
        return m_writer.bHasHead && Has(m_writer.head.size);
    }
    const RecordHead& Head() const { return m_writer.head; }
    bool Released() const { return m_writer.begin < m_writer.released; }
    // Takes the waiting message's bytes out.
    void TakeBytes(unsigned char* to) {
        Take(to, m_writer.head.size);
        m_writer.bHasHead = false;
    }
    bool Empty() { return !m_writer.bHasHead && !Has(1); }

  private:
    static constexpr size_t LINE = 64;
    static constexpr size_t AHEAD = 4096;
    static constexpr uint32_t LEAST_COPY = 32;
    static constexpr uint32_t MAX_MESSAGE = ZCE_CAPTURE_SNAPLEN - ZCE_CAPTURE_PREFIX_SIZE;

    // ---- The polling thread ----

    // Puts a message that has its place in front of m_straight, as nearly every one has; false:
    // nothing was done. A message becomes visible at one go: one store, and the writer's position
    // is not looked at.
    bool PutStraight(int64_t stamp, const unsigned char* data, uint32_t size) {
        const size_t need = sizeof(RecordHead) + size;
        const size_t end = m_putAt + need;
        if (size < LEAST_COPY || size > MAX_MESSAGE || end > m_straight) [[unlikely]] {
            return false;
        }
        unsigned char* place = m_bytes.get() + m_putAt;
        const uint64_t number = ++m_number;
        FetchAhead(place, need);
        // Field by field: a whole that was just put together would be waited for.
        std::memcpy(place + offsetof(RecordHead, stamp), &stamp, sizeof(stamp));
        std::memcpy(place + offsetof(RecordHead, number), &number, sizeof(number));
        std::memcpy(place + offsetof(RecordHead, size), &size, sizeof(size));
        Copy(place + sizeof(RecordHead), data, size);
        m_putAt = end;
        m_put += need;
        m_putTold.store(m_put, std::memory_order_release);
        m_counted.store(number, std::memory_order_release);
        return true;
    }
    // Any message: finds out what room there is, goes around the end, or counts it as lost.
    [[gnu::cold]] void PutOtherwise(int64_t stamp, const unsigned char* data, uint32_t size);
    [[gnu::cold]] void DeliverOtherwise(int64_t stamp, const unsigned char* data, uint32_t size);
    void CopyAround(const void* from, size_t size);
    // The writer has read what lies ahead, so it is in another processor's cache: fetched for
    // writing a few messages before it is needed. Beyond the end there are AHEAD bytes for that.
    static void FetchAhead(const unsigned char* place, size_t need) {
        const unsigned char* line = place + AHEAD;
        const unsigned char* end = line + need;
        do {
#if defined(__x86_64__)
            asm volatile("prefetchw %0" : : "m"(*line));
#else
            __builtin_prefetch(line, 1);
#endif
            line += LINE;
        } while (line < end);
    }
    // At least LEAST_COPY bytes, some hundred of them: a call of memcpy would take as long again.
    static void Copy(unsigned char* to, const unsigned char* from, size_t size) {
#if defined(__x86_64__)
        const size_t last = size - LEAST_COPY;  // which may lie over the ones before it
        for (size_t at = 0; at < last; at += LEAST_COPY) {
            CopyPieces(to + at, from + at);
        }
        CopyPieces(to + last, from + last);
#else
        std::memcpy(to, from, size);
#endif
    }
#if defined(__x86_64__)
    static void CopyPieces(unsigned char* to, const unsigned char* from) {
        for (size_t at = 0; at < LEAST_COPY; at += sizeof(__m128i)) {
            _mm_storeu_si128(reinterpret_cast<__m128i*>(to + at),
                             _mm_loadu_si128(reinterpret_cast<const __m128i*>(from + at)));
        }
    }
#endif

    // ---- The writer ----

    // Whether so many bytes wait; looks only if there seem to be fewer.
    bool Has(size_t size) {
        if (m_writer.told - m_writer.taken < size) {
            m_writer.told = m_putTold.load(std::memory_order_acquire);
        }
        return m_writer.told - m_writer.taken >= size;
    }
    void Take(unsigned char* to, size_t size) {
        const size_t first = std::min(size, m_size - m_writer.takenAt);
        std::memcpy(to, m_bytes.get() + m_writer.takenAt, first);
        std::memcpy(to + first, m_bytes.get(), size - first);
        m_writer.takenAt = (m_writer.takenAt + size) % m_size;
        m_writer.taken += size;
        m_writer.takenTold.store(m_writer.taken, std::memory_order_release);
    }

    const StreamId m_id;
    struct Freer {
        void operator()(unsigned char* bytes) const { std::free(bytes); }
    };

    // The polling thread's, in one cache line.
    alignas(LINE) std::unique_ptr<unsigned char, Freer> m_bytes;
    const size_t m_size;
    enyx_hw_a2c_handler m_handler = nullptr;
    void* m_context = nullptr;
    uint64_t m_put = 0;  // bytes put so far
    size_t m_putAt = 0;  // where the next message goes
    size_t m_straight;   // up to here there is room, as far as the polling thread has looked
    uint64_t m_number = 0;

    // What it tells the writer: it only stores here, so it does not wait for the line to come back.
    alignas(LINE) std::atomic<uint64_t> m_putTold{0};
    std::atomic<uint64_t> m_counted{0};
    std::atomic<int64_t> m_lostStamp{0};
    std::atomic<bool> m_closed{false};

    // The writer's, away from the polling thread's cache line.
    struct alignas(LINE) Writer {
        RecordHead head{};
        bool bHasHead = false;
        uint64_t told = 0;   // bytes put, as far as the writer has looked
        uint64_t taken = 0;  // bytes taken out so far
        size_t takenAt = 0;
        std::atomic<uint64_t> takenTold{0};
        uint64_t begin = 0;  // where the waiting message begins, counted like `taken`
        uint64_t released = 0;
        uint64_t seen = 0;
    };
    Writer m_writer;
};

}  // namespace ZceRecord
