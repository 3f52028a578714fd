#pragma once

#include <cstdint>
#include <string>

#include "relay/Wire.h"

namespace ZceRelay {

// What was counted in a channel, or in several together.
struct StreamCounts {
    uint64_t received = 0;
    uint64_t lost = 0;
    uint64_t duplicates = 0;
    StreamCounts& operator+=(const StreamCounts& other);
};
// "received=38988 lost=14455 duplicates=53".
std::string CountsText(const StreamCounts& counts);

// Whether the messages of one channel come one after the other. A subscriber gets each publisher's
// messages in their order; what a publisher sends once more, because it does not know whether it
// got out, comes behind and is a duplicate.
class CStreamOrder {
  public:
    enum class Verdict {
        Next,       // to be taken, LostBefore() messages being missing in front of it
        Duplicate,  // taken or missed before
        Other       // of a publisher whose place another one has taken
    };

    // The first message ever seen may have any number: who comes late has lost nothing. A session
    // that was not seen before takes the place of the present one, and begins with 1.
    Verdict Judge(const Sequence& sequence);
    // A mark: what it says was sent and has not come is lost. LostBefore() says how many it told.
    void Mark(const Sequence& sequence);

    uint64_t LostBefore() const { return m_lostBefore; }
    uint64_t First() const { return m_first; }  // number of the first message or mark, 0: none
    uint64_t Last() const { return m_last; }    // of the present session
    uint32_t Sessions() const { return m_sessions; }
    const StreamCounts& Counts() const { return m_counts; }
    uint64_t Received() const { return m_counts.received; }
    uint64_t Lost() const { return m_counts.lost; }
    uint64_t Duplicates() const { return m_counts.duplicates; }
    uint64_t Others() const { return m_others; }
    // All of it, "received=.. lost=.. duplicates=.. first=.. last=.. sessions=..
    // other-publisher=..".
    std::string Text() const;

  private:
    bool Enter(const Sequence& sequence, uint64_t nothingLost);

    uint64_t m_session = 0;
    uint64_t m_sessionBefore = 0;
    uint64_t m_first = 0;
    uint64_t m_last = 0;
    uint64_t m_lostBefore = 0;
    uint32_t m_sessions = 0;
    StreamCounts m_counts;
    uint64_t m_others = 0;
};

}  // namespace ZceRelay
