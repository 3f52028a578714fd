#include "record/TickClock.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace ZceRecord {

void CTickClock::Note() {
    constexpr int attempts = 5;
    if (!m_counts) {
        return;
    }
    // The reading that took the least time: the thread may be interrupted in another one.
    Moment best{};
    int64_t least = std::numeric_limits<int64_t>::max();
    for (int k = 0; k < attempts; ++k) {
        const int64_t before = ReadCounter();
        const int64_t timeNs = RealTimeNs();
        const int64_t took = ReadCounter() - before;
        if (took >= 0 && took < least) {
            least = took;
            best = {before + took / 2, timeNs};
        }
    }
    Note(best.count, best.timeNs);
}

void CTickClock::Note(int64_t count, int64_t timeNs) {
    if (!m_moments.empty() && count <= m_moments.back().count) {
        return;
    }
    m_moments.push_back({count, timeNs});
    if (m_moments.size() > MOMENTS) {
        m_moments.pop_front();
    }
}

int64_t CTickClock::Microsecond() const {
    constexpr int64_t nsPerMicrosecond = 1000;
    if (m_moments.size() < 2) {
        return 0;
    }
    const Moment& last = m_moments.back();
    const Moment& before = m_moments[m_moments.size() - 2];
    const int64_t ns = last.timeNs - before.timeNs;
    return ns <= 0 ? 0 : (last.count - before.count) / std::max<int64_t>(ns / nsPerMicrosecond, 1);
}

int64_t CTickClock::TimeOf(int64_t stamp) const {
    if (!m_counts || m_moments.empty()) {
        return stamp;
    }
    if (m_moments.size() == 1) {
        return m_moments.front().timeNs;
    }
    // The first moment that is not before it, but never the very first: most are near the end.
    auto behind = m_moments.end() - 1;
    while (behind - m_moments.begin() > 1 && (behind - 1)->count >= stamp) {
        --behind;
    }
    const Moment& from = *(behind - 1);
    const double nsPerCount = static_cast<double>(behind->timeNs - from.timeNs) /
                              static_cast<double>(behind->count - from.count);
    return from.timeNs + std::llround(static_cast<double>(stamp - from.count) * nsPerCount);
}

}  // namespace ZceRecord
