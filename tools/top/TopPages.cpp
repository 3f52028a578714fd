#include "top/TopPages.h"

#include <algorithm>

#include "top/TopScroll.h"

namespace ZceBoard {

namespace {

using Kind = TopKey::Kind;

constexpr size_t CHANNEL_WIDTH = 2;  // of the rows' first column
constexpr const char* BOARD_HELP = "arrows, 0-9, a-f: choose a channel  Enter: its instruments";
constexpr const char* INSTRUMENTS_HELP = "arrows, PgUp, PgDn, Home: scroll  0-9, a-f: channel";

// The channels that have a row, in the rows' order.
std::vector<size_t> ListedChannels(const TopView& view) {
    std::vector<size_t> listed;
    for (size_t k = 0; k < CHANNELS; ++k) {
        if (view.board.channels[k].WasEverOpen()) {
            listed.push_back(k);
        }
    }
    return listed;
}

}  // namespace

CTopPages::Answer CTopPages::OnKey(const TopKey& key, const TopView& view, size_t instruments) {
    if (key.kind == Kind::Channel) {
        return view.board.channels[key.channel].WasEverOpen() ? Choose(key.channel)
                                                              : Answer::Nothing;
    }
    return m_bInstruments ? OnInstrumentsKey(key, instruments) : OnBoardKey(key, view);
}

CTopPages::Answer CTopPages::OnBoardKey(const TopKey& key, const TopView& view) {
    if (key.kind == Kind::Back) {
        return Answer::Quit;
    }
    const std::vector<size_t> listed = ListedChannels(view);
    if (listed.empty()) {
        return Answer::Nothing;
    }
    if (key.kind == Kind::Enter) {
        m_bInstruments = true;
        return Choose(m_channel.value_or(listed.front()));
    }
    const std::ptrdiff_t step = ScrollStep(key.kind);
    if (step == 0) {
        return Answer::Nothing;
    }
    if (!m_channel) {
        return Choose(listed.front());
    }
    const auto place = std::find(listed.begin(), listed.end(), *m_channel) - listed.begin();
    return Choose(listed[Moved(static_cast<size_t>(place), step, listed.size() - 1)]);
}

CTopPages::Answer CTopPages::OnInstrumentsKey(const TopKey& key, size_t instruments) {
    if (key.kind == Kind::Back || key.kind == Kind::Leave) {
        m_bInstruments = false;
        return Answer::Changed;
    }
    const std::ptrdiff_t step = ScrollStep(key.kind);
    if (step == 0 || instruments == 0) {
        return Answer::Nothing;
    }
    m_skipped = Moved(m_skipped, step, instruments - 1);
    return Answer::Changed;
}

CTopPages::Answer CTopPages::Choose(size_t channel) {
    m_channel = channel;
    m_skipped = 0;
    return Answer::Changed;
}

std::optional<size_t> CTopPages::ShownChannel() const {
    return m_bInstruments ? m_channel : std::nullopt;
}

TopPage CTopPages::Page(const TopView& view, const std::vector<InstrumentRow>& rows) const {
    if (m_bInstruments) {
        TopPage page{InstrumentLines(view, *m_channel, rows, m_skipped), "q goes back"};
        page.lines[INSTRUMENTS_SPARE_LINE] = INSTRUMENTS_HELP;
        return page;
    }
    TopPage page{TopLines(view), "q quits"};
    const std::vector<size_t> listed = ListedChannels(view);
    if (!listed.empty()) {
        page.lines[TOP_SPARE_LINE] = BOARD_HELP;
    }
    const auto chosen =
        m_channel ? std::find(listed.begin(), listed.end(), *m_channel) : listed.end();
    if (chosen != listed.end()) {
        const auto row = TOP_FIRST_ROW + static_cast<size_t>(chosen - listed.begin());
        page.lines[row].spans.push_back({0, CHANNEL_WIDTH, TopMark::Chosen});
        page.lines[row].text += " <";
    }
    return page;
}

}  // namespace ZceBoard
