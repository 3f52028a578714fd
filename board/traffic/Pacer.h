#pragma once

#include <algorithm>
#include <cstdint>

namespace ZceBoard {

// Turns passing time into a number of events. What was missed is caught up with, but no more than
// the events of MAX_BACKLOG_NS, and no more than MaxBatch() events at once.
class CPacer {
  public:
    static constexpr int64_t MAX_BACKLOG_NS = 100000000;
    static constexpr uint64_t BATCHES_PER_SECOND = 100;
    static constexpr uint64_t LARGEST_BATCH = 4096;

    // Events a second, at most 10^7.
    explicit CPacer(uint64_t rate) : m_rate(rate) {}

    // How many events are due at `nowNs`, a clock that does not go back; they count as done.
    uint64_t Due(int64_t nowNs) {
        const int64_t elapsed = m_started ? nowNs - m_last : 0;
        m_started = true;
        m_last = nowNs;
        const auto passed = static_cast<uint64_t>(std::clamp<int64_t>(elapsed, 0, MAX_BACKLOG_NS));
        const uint64_t most = static_cast<uint64_t>(MAX_BACKLOG_NS) * m_rate + NS_PER_EVENT_SECOND;
        m_credit = std::min(m_credit + passed * m_rate, most);
        const uint64_t due = std::min(m_credit / NS_PER_EVENT_SECOND, MaxBatch());
        m_credit -= due * NS_PER_EVENT_SECOND;
        return due;
    }

    // Whether events are due already, whatever the time.
    bool HasBacklog() const { return m_credit >= NS_PER_EVENT_SECOND; }

    // Nothing is owed from now on.
    void Forget() { m_credit = 0; }

    uint64_t MaxBatch() const {
        return std::clamp<uint64_t>(m_rate / BATCHES_PER_SECOND, 1, LARGEST_BATCH);
    }

  private:
    static constexpr uint64_t NS_PER_EVENT_SECOND = 1000000000;

    uint64_t m_rate;
    uint64_t m_credit = 0;  // ns x rate
    int64_t m_last = 0;
    bool m_started = false;
};

}  // namespace ZceBoard
