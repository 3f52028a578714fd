// The keys, and the instruments of a channel.

#include <gmock/gmock.h>

#include "top/TopPages.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using ZceBoard::CInstrumentHistory;
using ZceBoard::CTopPages;
using ZceBoard::InstrumentRow;
using ZceBoard::TopKey;
using ZceBoard::TopLine;
using ZceBoard::TopMark;
using ZceBoard::TopPage;
using ZceBoard::TopSpan;
using Answer = CTopPages::Answer;
using Kind = TopKey::Kind;

constexpr int64_t ONE_SECOND = 1'000'000'000;

// Channels 0, 3 and 12 were open.
ZceBoard::TopView AView() {
    ZceBoard::TopView view;
    view.board.bus = 2;
    view.board.pid = 4711;
    view.board.channels[0] = {true, 1, {0, 5, 6, 7, 8}, 0, 0, 0, 0, 2};
    view.board.channels[3] = {true, 2, {9, 100, 20, 3, 0}, 0, 0, 0, 0, 40};
    view.board.channels[12] = {false, 1, {}, 0, 17, 0, 0, 0};
    return view;
}

std::vector<std::string> Texts(const TopPage& page) {
    std::vector<std::string> texts;
    texts.reserve(page.lines.size());
    for (const TopLine& line : page.lines) {
        texts.push_back(line.text);
    }
    return texts;
}

std::vector<InstrumentRow> SomeRows() {
    return {{{0, 17, "SR301", true, 1234567890}, 1234567},
            {{1, 4094, "SPD-SR301&SR305X", false, 12}, 0},
            {{0, 3, "", true, 0}, std::nullopt}};
}

class TopPages : public testing::Test {
  protected:
    Answer Press(Kind kind, size_t channel = 0) {
        return m_pages.OnKey({kind, channel}, m_view, 3);
    }
    // The row that is chosen, whole; "": none.
    std::string Chosen() const {
        std::string chosen;
        for (const TopLine& line : m_pages.Page(m_view, {}).lines) {
            const bool bMarked =
                line.spans == (line.text.starts_with("12 closed")
                                   ? std::vector<TopSpan>{{3, 6, TopMark::Closed},
                                                          {64, 7, TopMark::Warning},
                                                          {0, 2, TopMark::Chosen}}
                                   : std::vector<TopSpan>{{0, 2, TopMark::Chosen}});
            EXPECT_EQ(line.text.ends_with(" <"), bMarked) << line.text;
            chosen += bMarked ? line.text.substr(0, 9) : "";
        }
        return chosen;
    }
    // The instrument that is the first one on the page.
    std::string First() const {
        return m_pages.Page(m_view, SomeRows()).lines[4].text.substr(0, 5);
    }

    ZceBoard::TopView m_view = AView();
    CTopPages m_pages;
};

TEST_F(TopPages, TheBoardsPageHasItsKeysAndNoChosenChannelAtFirst) {
    EXPECT_THAT(
        Texts(m_pages.Page(m_view, {})),
        ElementsAre(
            "zce-board bus 2, process 4711",
            "0000-00-00 00:00:00.000  closed  running  speed 0  live traffic",
            "instruments  exchange 0+0  learnt 0+0  subscribed 0+0",
            "feeds  L5 any (off)  L1 any (off)  map transmit off  link 0x0",
            "parsed 0  -/s  requests 0  resets board 0, core 0", "faults  none",
            "arrows, 0-9, a-f: choose a channel  Enter: its instruments",
            "ch state  open#    map    t17    t18    t19    t20 other  msg/s dropped instr",
            " 0 open       1      0      5      6      7      8     0      -       0     2",
            " 3 open       2      9    100     20      3      0     0      -       0    40",
            "12 closed     1      0      0      0      0      0     0      -      17     0"));
    EXPECT_EQ(m_pages.Page(m_view, {}).hint, "q quits");
    EXPECT_EQ(Chosen(), "");
    EXPECT_EQ(m_pages.ShownChannel(), std::nullopt);
}

TEST_F(TopPages, ArrowsChooseAmongTheChannelsThatAreListed) {
    EXPECT_EQ(Press(Kind::Down), Answer::Changed);
    EXPECT_EQ(Chosen(), " 0 open  ");
    Press(Kind::Up);
    EXPECT_EQ(Chosen(), " 0 open  ");
    Press(Kind::Down);
    EXPECT_EQ(Chosen(), " 3 open  ");
    Press(Kind::PageDown);
    EXPECT_EQ(Chosen(), "12 closed");
    Press(Kind::Down);
    EXPECT_EQ(Chosen(), "12 closed");
    Press(Kind::Up);
    EXPECT_EQ(Chosen(), " 3 open  ");
    Press(Kind::Home);
    EXPECT_EQ(Chosen(), " 0 open  ");
}

TEST_F(TopPages, ADigitChoosesItsChannelIfThatIsListed) {
    EXPECT_EQ(Press(Kind::Channel, 12), Answer::Changed);
    EXPECT_EQ(Chosen(), "12 closed");
    EXPECT_EQ(Press(Kind::Channel, 4), Answer::Nothing);
    EXPECT_EQ(Chosen(), "12 closed");
    EXPECT_EQ(Press(Kind::Channel, 3), Answer::Changed);
    EXPECT_EQ(Chosen(), " 3 open  ");
}

TEST_F(TopPages, EnterShowsTheInstrumentsOfTheChosenOrTheFirstChannel) {
    EXPECT_EQ(Press(Kind::Enter), Answer::Changed);
    EXPECT_EQ(m_pages.ShownChannel(), 0U);
    EXPECT_EQ(Press(Kind::Back), Answer::Changed);
    EXPECT_EQ(m_pages.ShownChannel(), std::nullopt);
    Press(Kind::Channel, 3);
    EXPECT_EQ(m_pages.ShownChannel(), std::nullopt);
    Press(Kind::Enter);
    EXPECT_EQ(m_pages.ShownChannel(), 3U);
    // From one to another.
    Press(Kind::Channel, 12);
    EXPECT_EQ(m_pages.ShownChannel(), 12U);
    EXPECT_EQ(Press(Kind::Leave), Answer::Changed);
    EXPECT_EQ(m_pages.ShownChannel(), std::nullopt);
    EXPECT_EQ(Chosen(), "12 closed");
}

TEST_F(TopPages, OnlyQEndsIt) {
    EXPECT_EQ(Press(Kind::Leave), Answer::Nothing);
    EXPECT_EQ(Press(Kind::Back), Answer::Quit);
}

TEST_F(TopPages, WithoutAChannelThereIsNothingToChoose) {
    m_view.board.channels = {};
    for (const Kind kind : {Kind::Down, Kind::Enter, Kind::Channel}) {
        EXPECT_EQ(Press(kind), Answer::Nothing);
    }
    EXPECT_EQ(Texts(m_pages.Page(m_view, {}))[6], "");
    EXPECT_EQ(Press(Kind::Back), Answer::Quit);
}

TEST_F(TopPages, AChannelsPageHasARowForEachInstrument) {
    Press(Kind::Channel, 3);
    Press(Kind::Enter);
    EXPECT_THAT(Texts(m_pages.Page(m_view, SomeRows())),
                ElementsAre("zce-board bus 2, process 4711",
                            "channel 3  open  subscribed 40  messages 123  -/s  dropped 0",
                            "arrows, PgUp, PgDn, Home: scroll  0-9, a-f: channel",
                            "instrument       table       index messages  msg/s",
                            "SR301            single         17    1.23G  1.23M",
                            "SPD-SR301&SR305X combination  4094       12      0  not subscribed",
                            "-                single          3        0      -"));
    EXPECT_EQ(m_pages.Page(m_view, SomeRows()).hint, "q goes back");
    EXPECT_EQ(Texts(m_pages.Page(m_view, {})).back(), "no instrument");
}

TEST_F(TopPages, TheInstrumentsScrollToTheLastOne) {
    Press(Kind::Enter);
    EXPECT_EQ(Press(Kind::Down), Answer::Changed);
    EXPECT_EQ(First(), "SPD-S");
    Press(Kind::PageDown);
    EXPECT_EQ(First(), "-    ");
    Press(Kind::Up);
    EXPECT_EQ(First(), "SPD-S");
    Press(Kind::PageUp);
    EXPECT_EQ(First(), "SR301");
    Press(Kind::PageDown);
    Press(Kind::Home);
    EXPECT_EQ(First(), "SR301");
    // Another channel's begin at the top.
    Press(Kind::Down);
    Press(Kind::Channel, 3);
    EXPECT_EQ(First(), "SR301");
}

TEST_F(TopPages, DropsSilenceAndAClosedChannelStandOutOnAChannelsPage) {
    const auto spans = [this](size_t channel) {
        return InstrumentLines(m_view, channel, {}, 0)[1].spans;
    };
    EXPECT_THAT(spans(3), IsEmpty());
    // "channel 12  closed  subscribed 0  messages 0  -/s  dropped 17"
    EXPECT_THAT(spans(12),
                ElementsAre(TopSpan{12, 6, TopMark::Closed}, TopSpan{51, 10, TopMark::Warning}));
    m_view.rates.emplace().bDropping[12] = true;
    EXPECT_THAT(spans(12),
                ElementsAre(TopSpan{12, 6, TopMark::Closed}, TopSpan{51, 10, TopMark::Alarm}));
    // "channel 3  open  subscribed 40  messages 123  0/s  dropped 0"
    EXPECT_THAT(spans(3), ElementsAre(TopSpan{46, 3, TopMark::Warning}));
    m_view.rates->messages[3] = 1;
    EXPECT_THAT(spans(3), IsEmpty());
}

TEST(TopInstruments, TheBusiestComeFirstThenThoseWithMoreMessages) {
    CInstrumentHistory history;
    const auto names = [](const std::vector<InstrumentRow>& rows) {
        std::string text;
        for (const InstrumentRow& row : rows) {
            text += row.instrument.name + "=" +
                    (row.rate ? std::to_string(*row.rate) : std::string("-")) + " ";
        }
        return text;
    };
    EXPECT_EQ(names(history.Add(3,
                                {{0, 1, "A", true, 10},
                                 {0, 2, "B", true, 30},
                                 {0, 3, "C", true, 10},
                                 {1, 1, "D", true, 20}},
                                0)),
              "B=- D=- A=- C=- ");
    EXPECT_EQ(names(history.Add(3,
                                {{0, 1, "A", true, 10},
                                 {0, 2, "B", true, 30},
                                 {0, 3, "C", true, 210},
                                 {0, 9, "E", true, 101},
                                 {1, 1, "D", true, 20}},
                                2 * ONE_SECOND)),
              "C=100 E=51 B=0 D=0 A=0 ");
    // Another channel, and the same one anew: no rates.
    EXPECT_EQ(names(history.Add(4, {{0, 1, "A", true, 7}}, 3 * ONE_SECOND)), "A=- ");
    history.Clear();
    EXPECT_EQ(names(history.Add(4, {{0, 1, "A", true, 8}}, 4 * ONE_SECOND)), "A=- ");
}

}  // namespace
