#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

namespace ZceWatch {

// The longest gap of the last second, of the last minute and of all time, as of the moments that it
// is told of: seconds are counted from the first of them. A gap belongs to the second in which it
// ends. All in ticks.
class CGapWindows {
  public:
    explicit CGapWindows(uint64_t perSecond) : m_perSecond(perSecond) {}

    // Tells the time. True: one second or more are over. To be called before Add of what ends now.
    bool RollTo(uint64_t now) {
        if (m_secondEnd == 0) [[unlikely]] {
            m_secondEnd = now + m_perSecond;
        }
        if (now < m_secondEnd) [[likely]] {
            return false;
        }
        Roll(now);
        return true;
    }
    // True: one of the three below is another one now.
    bool Add(uint64_t gap) {
        if (gap <= m_running) [[likely]] {
            return false;
        }
        m_running = gap;
        m_ever = std::max(m_ever, gap);
        return true;
    }

    // Of the last whole second and the running one.
    uint64_t Second() const { return std::max(m_seconds[m_last], m_running); }
    // Of the last 60 whole seconds and the running one.
    uint64_t Minute() const { return std::max(m_minute, m_running); }
    uint64_t Ever() const { return m_ever; }

  private:
    static constexpr size_t SECONDS = 60;

    void Roll(uint64_t now) {
        const uint64_t over = 1 + (now - m_secondEnd) / m_perSecond;
        m_secondEnd += over * m_perSecond;
        for (uint64_t k = 0; k < std::min<uint64_t>(over, SECONDS); ++k) {
            m_last = (m_last + 1) % SECONDS;
            m_seconds[m_last] = k == 0 && over <= SECONDS ? m_running : 0;
        }
        m_minute = *std::max_element(m_seconds.begin(), m_seconds.end());
        m_running = 0;
    }

    uint64_t m_perSecond;
    uint64_t m_secondEnd = 0;                   // of the running second
    uint64_t m_running = 0;                     // its longest gap
    std::array<uint64_t, SECONDS> m_seconds{};  // those of the seconds before
    size_t m_last = 0;
    uint64_t m_minute = 0;
    uint64_t m_ever = 0;
};

}  // namespace ZceWatch
