#include "capturetool/Rates.h"

#include <algorithm>

namespace ZceCaptureTool {

void CPeakWindow::MoveTo(int64_t step) {
    const uint64_t steps = NsBetween(m_step, step);
    if (steps >= STEPS) {
        m_counts.fill(0);
        m_inWindow = 0;
    } else {
        for (int64_t left = m_step + 1; left <= step; ++left) {
            uint32_t& count = m_counts[static_cast<std::size_t>((left % STEPS + STEPS) % STEPS)];
            m_inWindow -= count;
            count = 0;
        }
    }
    m_step = step;
}

void CPeakWindow::Add(int64_t timeNs) {
    const auto stepNs = static_cast<int64_t>(m_lengthNs / STEPS);
    const int64_t step = timeNs / stepNs - (timeNs % stepNs < 0 ? 1 : 0);
    if (step > m_step) {
        MoveTo(step);
    } else if (NsBetween(step, m_step) >= STEPS) {  // the clock was set back
        m_counts.fill(0);
        m_inWindow = 0;
        m_step = step;
    }
    ++m_counts[static_cast<std::size_t>((step % STEPS + STEPS) % STEPS)];
    ++m_inWindow;
    if (m_inWindow > m_peak) {
        m_peak = m_inWindow;
        m_peakNs = timeNs;
    }
}

void CBursts::Add(int64_t timeNs) {
    // Messages of two threads may be a little out of order.
    const uint64_t apartNs =
        std::max(NsBetween(m_now.lastNs, timeNs), NsBetween(timeNs, m_now.lastNs));
    if (m_now.messages == 0 || apartNs >= m_gapNs) {
        End();
        m_now = {0, timeNs, timeNs};
    }
    ++m_now.messages;
    m_now.lastNs = std::max(m_now.lastNs, timeNs);
}

void CBursts::End() {
    for (std::size_t k = 0; k < AT_LEAST.size(); ++k) {
        m_counts[k] += m_now.messages >= AT_LEAST[k] ? 1 : 0;
    }
    if (m_now.messages >= 2 && m_now.messages > m_largest.messages) {
        m_largest = m_now;
    }
    m_now = {};
}

}  // namespace ZceCaptureTool
