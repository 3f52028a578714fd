#include "relay/Order.h"

#include <fmt/format.h>

namespace ZceRelay {

StreamCounts& StreamCounts::operator+=(const StreamCounts& other) {
    received += other.received;
    lost += other.lost;
    duplicates += other.duplicates;
    return *this;
}

std::string CountsText(const StreamCounts& counts) {
    return fmt::format("received={} lost={} duplicates={}", counts.received, counts.lost,
                       counts.duplicates);
}

// False: of a publisher that another one has taken the place of. `nothingLost`: the number in front
// of which nothing is missed by whoever comes late.
bool CStreamOrder::Enter(const Sequence& sequence, uint64_t nothingLost) {
    m_lostBefore = 0;
    if (m_sessions != 0 && sequence.session == m_session) {
        return true;
    }
    if (m_sessions > 1 && sequence.session == m_sessionBefore) {
        ++m_others;
        return false;
    }
    m_last = 0;
    if (m_sessions == 0) {
        m_first = sequence.number;
        m_last = nothingLost;
    }
    m_sessionBefore = m_session;
    m_session = sequence.session;
    ++m_sessions;
    return true;
}

CStreamOrder::Verdict CStreamOrder::Judge(const Sequence& sequence) {
    if (!Enter(sequence, sequence.number - 1)) {
        return Verdict::Other;
    }
    if (sequence.number <= m_last) {
        ++m_counts.duplicates;
        return Verdict::Duplicate;
    }
    m_lostBefore = sequence.number - m_last - 1;
    m_counts.lost += m_lostBefore;
    m_last = sequence.number;
    ++m_counts.received;
    return Verdict::Next;
}

void CStreamOrder::Mark(const Sequence& sequence) {
    if (Enter(sequence, sequence.number) && sequence.number > m_last) {
        m_lostBefore = sequence.number - m_last;
        m_counts.lost += m_lostBefore;
        m_last = sequence.number;
    }
}

std::string CStreamOrder::Text() const {
    return fmt::format("{} first={} last={} sessions={} other-publisher={}", CountsText(m_counts),
                       m_first, m_last, m_sessions, m_others);
}

}  // namespace ZceRelay
