#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "ctl/ChannelInstruments.h"
#include "top/TopScreen.h"

namespace ZceBoard {

struct InstrumentRow {
    ChannelInstrument instrument;
    std::optional<uint64_t> rate;  // messages a second since the look before; none with the first
};

// Makes rows of one channel's instruments, looked at one after another.
class CInstrumentHistory {
  public:
    // The busiest ones first; of equal rates those with more messages, then by table and index.
    // `realNs` as for CTopHistory. Another channel begins anew.
    std::vector<InstrumentRow> Add(size_t channel, const std::vector<ChannelInstrument>& look,
                                   int64_t realNs);
    void Clear() { m_channel.reset(); }

  private:
    using Entry = std::pair<uint32_t, uint32_t>;  // table, index

    std::optional<size_t> m_channel;
    std::map<Entry, uint64_t> m_last;
    int64_t m_lastNs = 0;
};

// The whole text about a channel and its instruments, as wide and as long as it is, but for the
// first `skipped` of the instruments.
// The line of this number is empty.
constexpr size_t INSTRUMENTS_SPARE_LINE = 2;
std::vector<TopLine> InstrumentLines(const TopView& view, size_t channel,
                                     const std::vector<InstrumentRow>& rows, size_t skipped);

}  // namespace ZceBoard
