#include "exchange/SessionTable.h"

#include <algorithm>

namespace ZceBoard {

CSessionTable::CSessionTable()
    : m_windows{
          {83000, 90000, Phase::Auction},   {90000, 101500, Phase::Trading},
          {101500, 103000, Phase::Break},   {103000, 113000, Phase::Trading},
          {113000, 133000, Phase::Break},   {133000, 150000, Phase::Trading},
          {203000, 210000, Phase::Auction}, {210000, 233000, Phase::Trading},
      } {}

bool CSessionTable::Add(uint32_t first, uint32_t end, Phase phase) {
    const bool meets = std::any_of(
        m_windows.begin(), m_windows.end(),
        [first, end](const Window& window) { return first < window.end && window.first < end; });
    if (meets || first >= end) {
        return false;
    }
    m_windows.push_back({first, end, phase});
    return true;
}

Phase CSessionTable::At(uint32_t hhmmss) const {
    for (const Window& window : m_windows) {
        if (hhmmss >= window.first && hhmmss < window.end) {
            return window.phase;
        }
    }
    return Phase::Closed;
}

Phase PhaseAt(uint32_t hhmmss) {
    static const CSessionTable usual;
    return usual.At(hhmmss);
}

}  // namespace ZceBoard
