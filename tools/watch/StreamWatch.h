#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "DrvEnyx/enyxHw.h"
#include "watch/GapWindows.h"
#include "watch/Ticks.h"
#include "watch/WatchPage.h"

namespace ZceWatch {

// What is called of the library behind this one. Only the last may be missing (null).
struct VendorCalls {
    decltype(&enyx_hw_a2c_stream_poll_once) poll = nullptr;
    decltype(&enyx_hw_a2c_stream_stats_get_backpressure) backPressure = nullptr;
    decltype(&enyx_hw_a2c_stream_stats_get_packet_count) packets = nullptr;
    decltype(&enyx_hw_a2c_stream_stats_get_fifo_errors) fifoErrors = nullptr;
    decltype(&enyx_hw_a2c_stream_stats_get_errors) errors = nullptr;
    // 0: the board runs; 1: it is gone; 2: it is gone, and a new one runs.
    int (*boardState)() = nullptr;
};

// Which clock the ticks are of.
struct TickClock {
    TickSource source = TickSource::Monotonic;
    uint64_t perSecond = 1'000'000'000;
};

// Adds to a word that no other thread writes: no instruction of it is locked.
inline uint64_t AddTo(Word& word, uint64_t more) {
    const uint64_t sum = word.load(std::memory_order_relaxed) + more;
    word.store(sum, std::memory_order_relaxed);
    return sum;
}

// An entry of the page and what its writer has to know besides. All is the polling thread's; Opened
// and Closed belong to the thread that opens and closes the stream, and the stream is another
// thread's only by what orders the two.
class alignas(64) CStreamWatch {
  public:
    CStreamWatch(Entry& entry, const TickClock& clock);

    // ---- For each poll ----

    // What the poll is to call with a message, through OnPacket. True: this poll is the one that
    // ends a stretch, at which the clock is to be read (Tick).
    bool CountPoll(enyx_hw_a2c_handler handler, void* context) {
        m_handler = handler;
        m_context = context;
        return --m_left == 0;
    }
    decltype(&enyx_hw_a2c_stream_poll_once) NextPoll() const { return m_calls.poll; }
    // The handler that stands in the application's place; `context` is a CStreamWatch.
    static void OnPacket(const unsigned char* data, unsigned int size, void* context) {
        auto& watch = *static_cast<CStreamWatch*>(context);
        watch.CountMessage(data, size);
        watch.m_handler(data, size, watch.m_context);
    }
    // A comparison for each type, which the processor foresees: an address that is computed from
    // the type would have every count wait for the message's memory.
    void CountMessage(const unsigned char* data, uint32_t size) {
        uint32_t type = 0;
        if (size >= sizeof(type)) [[likely]] {
            std::memcpy(&type, data, sizeof(type));
        }
        if (type == 17) [[likely]] {
            Count<Type::Market17>(size);
        } else if (type == 18) {
            Count<Type::Market18>(size);
        } else if (type == 19) {
            Count<Type::Market19>(size);
        } else if (type == 20) {
            Count<Type::Market20>(size);
        } else if (type == 2) {
            Count<Type::Map>(size);
        } else {
            Count<Type::Other>(size);
        }
    }

    // ---- Once in several polls ----

    void Tick() { TickAt(ReadTicks(m_clock.source)); }
    // The clock shows `now` at the poll that ends a stretch.
    void TickAt(uint64_t now);
    // Whether what happens once a second is due: it waits for a poll that found nothing.
    bool CareIsDue() const { return m_bCareDue; }
    // Reads the stream's counters and the board's state. Keeps errno.
    void TakeCare(enyx_hw_a2c_stream* stream);

    // ---- Openings ----

    void Opened(const VendorCalls& calls);
    // While the stream is still there: its counters are read once more.
    void Closed(enyx_hw_a2c_stream* stream);
    bool IsOpen() const { return m_bOpen; }

  private:
    static constexpr uint64_t MOST_POLLS = 128;  // of a stretch
    static constexpr uint64_t STRETCH_NS = 1500;
    static constexpr uint64_t NOTE_PAUSE_NS = 1'000'000;

    template <Type TYPE>
    void Count(uint32_t size) {
        TypeCount& count = m_entry.messages[static_cast<size_t>(TYPE)];
        AddTo(count.messages, 1);
        AddTo(count.bytes, size);
    }
    void AddGap(uint64_t gap);
    void FitStretch(uint64_t took);
    void TellGaps();
    // Whether messages have come since it was done last.
    bool NoteMessageTime();
    void ReadCounters(enyx_hw_a2c_stream* stream);

    // For each poll.
    Entry& m_entry;
    uint64_t m_left = 1;  // polls of this stretch
    enyx_hw_a2c_handler m_handler = nullptr;
    void* m_context = nullptr;
    VendorCalls m_calls;
    // For each stretch.
    TickClock m_clock;
    uint64_t m_firstGap;  // in ticks, as are the next
    uint64_t m_longStretch;
    uint64_t m_shortStretch;  // with an eighth more there is room left in the long one
    uint64_t m_notePause;
    uint64_t m_noteAt = 0;    // when it is looked after the time of messages next
    uint64_t m_lastTick = 0;  // 0: not polled in this opening
    uint64_t m_stretch = 1;   // polls
    uint64_t m_messages = 0;  // when their time was noted last
    bool m_bCareDue = false;
    bool m_bOpen = false;
    CGapWindows m_windows;
};

}  // namespace ZceWatch
