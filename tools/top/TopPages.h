#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "top/TopInstruments.h"
#include "top/TopPage.h"
#include "top/TopScreen.h"

namespace ZceBoard {

// The pages of the monitor on a terminal, and the keys that lead through them: the board with its
// channels, and one channel's instruments.
class CTopPages {
  public:
    enum class Answer { Nothing, Changed, Quit };
    // What a key does while this view is shown with so many instruments.
    Answer OnKey(const TopKey& key, const TopView& view, size_t instruments);

    // The channel whose instruments are shown.
    std::optional<size_t> ShownChannel() const;

    // `rows`: of the shown channel, if any.
    TopPage Page(const TopView& view, const std::vector<InstrumentRow>& rows) const;

  private:
    Answer OnBoardKey(const TopKey& key, const TopView& view);
    Answer OnInstrumentsKey(const TopKey& key, size_t instruments);
    Answer Choose(size_t channel);

    std::optional<size_t> m_channel;  // the chosen one
    bool m_bInstruments = false;      // they are shown
    size_t m_skipped = 0;             // instruments that are scrolled away
};

}  // namespace ZceBoard
