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
    void Deliver(int64_t stamp, const unsigned char* data, uint32_t size) {
        Put(stamp, data, size);
        m_handler(data, size, m_context);
    }
    // A message becomes visible at one go: one store, and the writer's position is looked at only
    // when there seems to be no room.
    void Put(int64_t stamp, const unsigned char* data, uint32_t size) {
        const uint64_t number = ++m_number;
        const size_t need = sizeof(RecordHead) + size;
        if (size <= MAX_MESSAGE && (need <= m_room || FindRoom(need))) [[likely]] {
            FetchAhead(need);
            if (m_putAt + need < m_size) [[likely]] {
                unsigned char* place = m_bytes.get() + m_putAt;
                // Field by field: a whole that was just put together would be waited for.
                std::memcpy(place + offsetof(RecordHead, stamp), &stamp, sizeof(stamp));
                std::memcpy(place + offsetof(RecordHead, number), &number, sizeof(number));
                std::memcpy(place + offsetof(RecordHead, size), &size, sizeof(size));
                Copy(place + sizeof(RecordHead), data, size);
                m_putAt += need;
            } else {
                const RecordHead head{stamp, number, size};
                CopyAround(reinterpret_cast<const unsigned char*>(&head), sizeof(head));
                CopyAround(data, size);
            }
            m_room -= need;
            m_put += need;
            m_putTold.store(m_put, std::memory_order_release);
        } else {
            m_lostStamp.store(stamp, std::memory_order_relaxed);
        }
        m_counted.store(number, std::memory_order_release);
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
        const uint64_t now = m_writer.taken + Available();
        m_writer.released = all ? now : m_writer.seen;
        m_writer.seen = now;
    }
    // Whether a whole message waits. Its head is then Head().
    bool Waits() {
        if (!m_writer.bHasHead && Available() >= sizeof(m_writer.head)) {
            m_writer.begin = m_writer.taken;
            Take(reinterpret_cast<unsigned char*>(&m_writer.head), sizeof(m_writer.head));
            m_writer.bHasHead = true;
        }
        return m_writer.bHasHead && Available() >= m_writer.head.size;
    }
    const RecordHead& Head() const { return m_writer.head; }
    bool Released() const { return m_writer.begin < m_writer.released; }
    // Takes the waiting message's bytes out.
    void TakeBytes(unsigned char* to) {
        Take(to, m_writer.head.size);
        m_writer.bHasHead = false;
    }
    bool Empty() const { return !m_writer.bHasHead && Available() == 0; }

  private:
    static constexpr size_t LINE = 64;
    static constexpr size_t AHEAD = 4096;
    static constexpr uint32_t MAX_MESSAGE = ZCE_CAPTURE_SNAPLEN - ZCE_CAPTURE_PREFIX_SIZE;

    // ---- The polling thread ----

    bool FindRoom(size_t need) {
        m_room = m_size - (m_put - m_writer.takenTold.load(std::memory_order_acquire));
        return need <= m_room;
    }
    // The writer has read what lies ahead, so it is in another processor's cache: fetched for
    // writing a few messages before it is needed. Beyond the end there are AHEAD bytes for that.
    void FetchAhead(size_t need) {
        const unsigned char* place = m_bytes.get() + m_putAt + AHEAD;
        for (size_t line = 0; line < need; line += LINE) {
#if defined(__x86_64__)
            asm volatile("prefetchw %0" : : "m"(place[line]));
#else
            __builtin_prefetch(&place[line], 1);
#endif
        }
    }
    // Of some hundred bytes: a call of memcpy would take as long again.
    static void Copy(unsigned char* to, const unsigned char* from, size_t size) {
#if defined(__x86_64__)
        constexpr size_t piece = sizeof(__m128i);
        if (size >= piece) [[likely]] {
            const size_t last = size - piece;  // which may lie over the one before it
            for (size_t at = 0; at < last; at += piece) {
                CopyPiece(to + at, from + at);
            }
            CopyPiece(to + last, from + last);
            return;
        }
#endif
        std::memcpy(to, from, size);
    }
#if defined(__x86_64__)
    static void CopyPiece(unsigned char* to, const unsigned char* from) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to),
                         _mm_loadu_si128(reinterpret_cast<const __m128i*>(from)));
    }
#endif
    void CopyAround(const unsigned char* from, size_t size) {
        const size_t first = std::min(size, m_size - m_putAt);
        std::memcpy(m_bytes.get() + m_putAt, from, first);
        m_putAt += size;
        if (m_putAt >= m_size) {
            m_putAt -= m_size;
            std::memcpy(m_bytes.get(), from + first, m_putAt);
        }
    }

    // ---- The writer ----

    uint64_t Available() const {
        return m_putTold.load(std::memory_order_acquire) - m_writer.taken;
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

    // The polling thread's: bytes put so far, where the next one goes, and how many there is room
    // for if the writer has taken nothing since it was last looked at.
    alignas(64) std::unique_ptr<unsigned char, Freer> m_bytes;
    const size_t m_size;
    enyx_hw_a2c_handler m_handler = nullptr;
    void* m_context = nullptr;
    uint64_t m_put = 0;
    size_t m_putAt = 0;
    size_t m_room;
    uint64_t m_number = 0;
    std::atomic<uint64_t> m_putTold{0};
    std::atomic<uint64_t> m_counted{0};
    std::atomic<int64_t> m_lostStamp{0};
    std::atomic<bool> m_closed{false};

    // The writer's, away from the polling thread's cache line.
    struct alignas(64) Writer {
        RecordHead head{};
        bool bHasHead = false;
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
