#include "watch/StreamWatch.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <ctime>
#include <utility>

#include "watch/Ticks.h"

namespace ZceWatch {

namespace {

template <class Value, class New>
void Put(std::atomic<Value>& word, New value) {
    word.store(static_cast<Value>(value), std::memory_order_relaxed);
}

// Without a loop: it is asked for at every tick of an idle stream.
template <size_t... TYPE>
uint64_t SumOf(const std::array<TypeCount, TYPES>& counts, std::index_sequence<TYPE...> /*all*/) {
    return (counts[TYPE].messages.load(std::memory_order_relaxed) + ...);
}

// FIRST_GAP_NS is 2^11: bucket 1 is of gaps of 12 bits.
size_t BucketOf(uint64_t gapNs) {
    constexpr int firstBits = std::bit_width(FIRST_GAP_NS);
    static_assert(std::has_single_bit(FIRST_GAP_NS));
    const int bits = static_cast<int>(std::bit_width(gapNs));
    const auto bucket = static_cast<size_t>(bits < firstBits ? 0 : bits - firstBits + 1);
    return bucket < GAP_BUCKETS ? bucket : GAP_BUCKETS - 1;
}

BoardState BoardStateOf(int told) {
    switch (told) {
        case 0:
            return BoardState::Runs;
        case 1:
            return BoardState::Gone;
        case 2:
            return BoardState::Replaced;
        default:
            return BoardState::Unknown;
    }
}

}  // namespace

CStreamWatch::CStreamWatch(Entry& entry, const TickClock& clock)
    : m_entry(entry),
      m_clock(clock),
      m_firstGap(NsToTicks(FIRST_GAP_NS, clock.perSecond)),
      m_longStretch(NsToTicks(STRETCH_NS, clock.perSecond)),
      m_shortStretch(m_longStretch / 16 * 13),
      m_notePause(NsToTicks(NOTE_PAUSE_NS, clock.perSecond)),
      m_windows(clock.perSecond) {}

void CStreamWatch::TickAt(uint64_t now) {
    AddTo(m_entry.polls, m_stretch);
    Put(m_entry.lastPollTicks, now);
    if (m_lastTick == 0) [[unlikely]] {
        m_windows.RollTo(now);
        TellGaps();
    } else {
        // Another core's counter may be some ticks behind.
        const uint64_t took = now > m_lastTick ? now - m_lastTick : 0;
        if (m_windows.RollTo(now)) [[unlikely]] {
            m_bCareDue = true;
        }
        AddGap(took);
        FitStretch(took);
    }
    m_lastTick = now;
    m_left = m_stretch;
    if (now >= m_noteAt && NoteMessageTime()) [[unlikely]] {
        m_noteAt = now + m_notePause;
    }
}

void CStreamWatch::AddGap(uint64_t gap) {
    uint64_t shorts = m_stretch;
    if (gap >= m_firstGap) [[unlikely]] {
        AddTo(m_entry.gaps[BucketOf(TicksToNs(gap, m_clock.perSecond))], 1);
        --shorts;
    }
    AddTo(m_entry.gaps[0], shorts);
    if (m_windows.Add(gap)) [[unlikely]] {
        TellGaps();
    }
}

// Quickly up to the half of what a stretch may take, then by eighths: each reading of the clock
// that is saved counts, while a little room is left for polls of unequal length.
void CStreamWatch::FitStretch(uint64_t took) {
    if (took > m_longStretch) {
        m_stretch = m_stretch > 1 ? m_stretch / 2 : 1;
    } else if (took < m_shortStretch && m_stretch < MOST_POLLS) {
        const uint64_t more = took < m_longStretch / 2 ? m_stretch : m_stretch / 8;
        m_stretch = std::min(m_stretch + more, MOST_POLLS);
    }
}

void CStreamWatch::TellGaps() {
    Put(m_entry.gapSecondNs, TicksToNs(m_windows.Second(), m_clock.perSecond));
    Put(m_entry.gapMinuteNs, TicksToNs(m_windows.Minute(), m_clock.perSecond));
    Put(m_entry.gapEverNs, TicksToNs(m_windows.Ever(), m_clock.perSecond));
}

bool CStreamWatch::NoteMessageTime() {
    const uint64_t messages = SumOf(m_entry.messages, std::make_index_sequence<TYPES>());
    if (messages == m_messages) {
        return false;
    }
    m_messages = messages;
    Put(m_entry.lastMessageNs, ClockNs(CLOCK_REALTIME_COARSE));
    return true;
}

void CStreamWatch::TakeCare(enyx_hw_a2c_stream* stream) {
    const int kept = errno;
    m_bCareDue = false;
    ReadCounters(stream);
    if (m_calls.boardState != nullptr) {
        Put(m_entry.boardState, BoardStateOf(m_calls.boardState()));
    }
    errno = kept;
}

void CStreamWatch::ReadCounters(enyx_hw_a2c_stream* stream) {
    uint32_t backPressure = 0;
    uint32_t packets = 0;
    uint32_t fifoErrors = 0;
    uint32_t errors = 0;
    const bool good = m_calls.backPressure(stream, &backPressure) == 0 &&
                      m_calls.packets(stream, &packets) == 0 &&
                      m_calls.fifoErrors(stream, &fifoErrors) == 0 &&
                      m_calls.errors(stream, &errors) == 0;
    if (good) {
        Put(m_entry.backPressure, backPressure);
        Put(m_entry.packets, packets);
        Put(m_entry.fifoErrors, fifoErrors);
        Put(m_entry.errors, errors);
        Put(m_entry.countersNs, ClockNs(CLOCK_REALTIME_COARSE));
    }
    m_entry.countersState.store(
        static_cast<uint64_t>(good ? CountersState::Read : CountersState::Failed),
        std::memory_order_release);
}

void CStreamWatch::Opened(const VendorCalls& calls) {
    m_calls = calls;
    m_bOpen = true;
    m_lastTick = 0;
    m_stretch = 1;  // ended by the first poll
    m_left = 1;
    m_bCareDue = true;
    Put(m_entry.lastPollTicks, 0);
    Put(m_entry.countersState, CountersState::NotRead);
    for (Word* word :
         {&m_entry.backPressure, &m_entry.packets, &m_entry.fifoErrors, &m_entry.errors}) {
        Put(*word, 0);
    }
    Put(m_entry.boardState, BoardState::Unknown);
    AddTo(m_entry.opening, 1);
    Put(m_entry.openedNs, ClockNs(CLOCK_REALTIME));
    Put(m_entry.closedNs, 0);
    m_entry.state.store(static_cast<uint64_t>(EntryState::Open), std::memory_order_release);
}

void CStreamWatch::Closed(enyx_hw_a2c_stream* stream) {
    m_bOpen = false;
    AddTo(m_entry.polls, m_stretch - m_left);
    NoteMessageTime();
    ReadCounters(stream);
    Put(m_entry.closedNs, ClockNs(CLOCK_REALTIME));
    m_entry.state.store(static_cast<uint64_t>(EntryState::Closed), std::memory_order_release);
}

}  // namespace ZceWatch
