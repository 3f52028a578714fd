#pragma once

#include <atomic>
#include <cstdint>

namespace ZceRecord {

// What the thread that writes tells the polling threads, in a cache line of its own.
struct alignas(64) Beat {
    std::atomic<uint64_t> passes{0};      // goes on every 2 ms or so
    std::atomic<int64_t> microsecond{0};  // in counts; 0: not known yet
};

// The stamps of the messages that one thread polls: each is larger than the one before.
//
// To read the processor's counter takes some 10 ns, on a virtual machine 30. So of messages that
// come poll by poll, without an empty one between, not each is stamped with a reading of its own:
// the second is, then every second, fourth and eighth as long as these polls take less than a
// microsecond altogether. A stamp can be earlier than its poll by that, and by what a poll in the
// middle takes all of a sudden, though not by more than a beat.
class CStamps {
  public:
    void BeginPoll() { ++m_polls; }

    // For a message of this poll.
    template <int64_t (*read)()>
    int64_t Next(const Beat& beat) {
        const uint64_t pass = beat.passes.load(std::memory_order_relaxed);
        const bool follows = m_polls <= 1 && pass == m_pass;
        m_polls = 0;
        if (follows && m_stamp != m_lastOfReading) [[likely]] {
            return ++m_stamp;
        }
        const int64_t now = read();
        Fit(follows, now, beat.microsecond.load(std::memory_order_relaxed));
        m_pass = pass;
        m_readAt = now;
        m_stamp = now > m_stamp ? now : m_stamp + 1;
        m_lastOfReading = m_stamp + m_each - 1;
        return m_stamp;
    }

  private:
    static constexpr int64_t MOST_OF_A_READING = 8;

    // How many messages this reading is for.
    void Fit(bool follows, int64_t now, int64_t microsecond) {
        const int64_t took = now - m_readAt;
        if (!follows) {
            m_each = 1;
        } else if (took > microsecond) {
            m_each = m_each > 1 ? m_each / 2 : 1;
        } else if (2 * took <= microsecond && m_each < MOST_OF_A_READING) {
            m_each *= 2;
        }
    }

    uint64_t m_polls = 0;  // since the one before that had a message
    uint64_t m_pass = 0;
    int64_t m_stamp = 0;
    int64_t m_lastOfReading = 0;  // the stamp behind which the counter is read again
    int64_t m_readAt = 0;
    int64_t m_each = 1;  // messages of a reading
};

}  // namespace ZceRecord
