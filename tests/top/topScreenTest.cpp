#include "top/TopScreen.h"

#include <gmock/gmock.h>

#include "ctl/TextTable.h"

namespace {

using testing::ElementsAre;
using ZceBoard::AddHint;
using ZceBoard::BoardSnapshot;
using ZceBoard::CTopHistory;
using ZceBoard::FitScreen;
using ZceBoard::ShortNumber;
using ZceBoard::TopLine;
using ZceBoard::TopMark;
using ZceBoard::TopSpan;
using ZceBoard::TopView;

constexpr int64_t SECOND = 1'000'000'000;

BoardSnapshot ABoard() {
    BoardSnapshot board;
    board.bus = 2;
    board.pid = 4711;
    board.passes = 100;
    board.date = 20261120;
    board.hhmmss = 90501;
    board.millisecond = 7;
    board.phase = 2;
    board.speedMilli = 1000;
    board.tables[0] = {4080, 4079, 1200};
    board.tables[1] = {387, 386, 30};
    board.switchWord = 2;
    board.bMapTransmit = true;
    board.linkStatus = 15;
    board.feeds = {1, 2};
    board.parsed = 5000;
    board.requests = 8;
    board.boardResets = 1;
    board.coreResets = 3;
    board.channels[0] = {true, 1, {50, 1000, 200, 3000, 400}, 0, 0, 0, 0, 1230};
    board.channels[12] = {false, 3, {0, 1234567, 0, 98765432109, 0}, 6, 12345678, 0, 0, 0};
    return board;
}

std::vector<std::string> TextsOf(const std::vector<TopLine>& lines) {
    std::vector<std::string> texts;
    texts.reserve(lines.size());
    for (const TopLine& line : lines) {
        texts.push_back(line.text);
    }
    return texts;
}

std::vector<std::string> TopTexts(const TopView& view) {
    return TextsOf(ZceBoard::TopLines(view));
}

std::vector<std::string> Fitted(const std::vector<std::string>& texts, size_t columns,
                                size_t rows) {
    return TextsOf(FitScreen({texts.begin(), texts.end()}, columns, rows));
}

// What stands out, and how: "!" alarm, "?" warning, "x" closed.
std::vector<std::string> MarkedIn(const std::vector<TopLine>& lines) {
    std::vector<std::string> marked;
    for (const TopLine& line : lines) {
        for (const TopSpan& span : line.spans) {
            const char sign = span.mark == TopMark::Alarm     ? '!'
                              : span.mark == TopMark::Warning ? '?'
                                                              : 'x';
            marked.push_back(sign + line.text.substr(span.begin, span.length));
        }
    }
    return marked;
}

TEST(TopScreen, TheTextTellsTheBoardAndARowForEachChannelThatWasEverOpen) {
    CTopHistory history;
    EXPECT_THAT(
        TopTexts(history.Add(ABoard(), 0)),
        ElementsAre(
            "zce-board bus 2, process 4711",
            "2026-11-20 09:05:01.007  trading  running  speed 1  live traffic",
            "instruments  exchange 4080+387  learnt 4079+386  subscribed 1200+30",
            "feeds  L5 ok (off)  L1 closed (on)  map transmit on  link 0xf",
            "parsed 5000  -/s  requests 8  resets board 1, core 3", "faults  none", "",
            "ch state  open#    map    t17    t18    t19    t20 other  msg/s dropped instr",
            " 0 open       1     50   1000    200   3000    400     0      -       0  1230",
            "12 closed     3      0  1.23M      0  98.7G      0     6      -   12.3M     0"));
}

TEST(TopScreen, WhatIsOutOfTheOrdinaryIsInCapitals) {
    BoardSnapshot board = ABoard();
    board.bPaused = true;
    board.source = 2;
    board.speedMilli = 0;
    board.bHeldInReset = true;
    board.linkStatus = 6;
    board.faults = "link-down value=6, crash";
    CTopHistory history;
    history.Add(board, 0);
    const auto lines = TopTexts(history.Add(board, SECOND));
    EXPECT_EQ(lines[1],
              "2026-11-20 09:05:01.007  trading  PAUSED  speed 0  replay traffic  NOT ANSWERING");
    EXPECT_EQ(lines[3],
              "feeds  L5 ok (off)  L1 closed (on)  map transmit on  link 0x6  HELD IN RESET");
    EXPECT_EQ(lines[5], "faults  link-down value=6, crash");
}

TEST(TopScreen, NothingStandsOutOfABoardThatIsInOrder) {
    BoardSnapshot board = ABoard();
    board.channels[12] = {};
    CTopHistory history;
    history.Add(board, 0);
    ++board.passes;
    ++board.channels[0].sent[1];
    EXPECT_THAT(MarkedIn(TopLines(history.Add(board, SECOND))), ElementsAre());
}

TEST(TopScreen, DropsFaultsSilenceAndClosedChannelsStandOut) {
    BoardSnapshot board = ABoard();
    board.bPaused = true;
    board.bHeldInReset = true;
    board.faults = "crash";
    board.channels[3] = board.channels[0];
    board.channels[4] = board.channels[0];
    board.channels[4].subscribed = 0;
    CTopHistory history;
    // Without a look before there is no telling who gets nothing, and what is dropped just now.
    EXPECT_THAT(MarkedIn(TopLines(history.Add(board, 0))),
                ElementsAre("?PAUSED", "!HELD IN RESET", "!crash", "xclosed", "?  12.3M"));
    ++board.channels[0].dropped;
    ++board.channels[3].sent[4];
    board.channels[3].dropped = 0;
    EXPECT_THAT(MarkedIn(TopLines(history.Add(board, SECOND))),
                ElementsAre("?PAUSED", "!NOT ANSWERING", "!HELD IN RESET", "!crash", "?     0",
                            "!      1", "xclosed", "?  12.3M"));
}

TEST(TopScreen, WhatIsCutOffDoesNotStandOut) {
    TopLine line("ab");
    line.Append("cdef", TopMark::Alarm);
    line.Append("gh", TopMark::Closed);
    const auto screen = FitScreen({line}, 4, 1);
    EXPECT_EQ(screen[0].text, "abc>");
    EXPECT_THAT(screen[0].spans, ElementsAre(TopSpan{2, 2, TopMark::Alarm}));
}

TEST(TopScreen, ABoardWhoseChannelsWereNeverOpenSaysSo) {
    BoardSnapshot board = ABoard();
    board.channels = {};
    EXPECT_THAT(TopTexts(CTopHistory().Add(board, 0)).back(), "no channel was ever open");
}

TEST(TopScreen, RatesAreWhatCameSinceTheLookBefore) {
    CTopHistory history;
    BoardSnapshot board = ABoard();
    EXPECT_FALSE(history.Add(board, 7 * SECOND).rates.has_value());
    board.parsed += 301;
    board.channels[0].sent[0] += 1;
    board.channels[0].sent[1] += 100;
    board.channels[0].sent[4] += 50;
    board.channels[0].other += 9;
    const auto view = history.Add(board, 9 * SECOND);
    ASSERT_TRUE(view.rates.has_value());
    EXPECT_EQ(view.rates->messages[0], 80U);
    EXPECT_EQ(view.rates->messages[12], 0U);
    EXPECT_EQ(view.rates->parsed, 151U);
    const auto lines = TopTexts(view);
    EXPECT_EQ(lines[4], "parsed 5301  151/s  requests 8  resets board 1, core 3");
    EXPECT_EQ(lines[8],
              " 0 open       1     51   1100    200   3000    450     9     80       0  1230");
    EXPECT_EQ(history.Add(board, 10 * SECOND).rates->messages[0], 0U);
}

TEST(TopScreen, CountsThatRunBackGiveNoRate) {
    CTopHistory history;
    BoardSnapshot board = ABoard();
    history.Add(board, 0);
    board.parsed = 0;
    EXPECT_EQ(history.Add(board, SECOND).rates->parsed, 0U);
}

TEST(TopScreen, ABoardIsNotAnsweringAfterASecondWithoutAPass) {
    CTopHistory history;
    BoardSnapshot board = ABoard();
    EXPECT_TRUE(history.Add(board, 0).bAnswering);
    EXPECT_TRUE(history.Add(board, SECOND - 1).bAnswering);
    EXPECT_FALSE(history.Add(board, SECOND).bAnswering);
    ++board.passes;
    EXPECT_TRUE(history.Add(board, SECOND + 1).bAnswering);
}

TEST(TopScreen, AllSixteenChannelsFitOnAnOrdinaryTerminal) {
    BoardSnapshot board = ABoard();
    for (auto& channel : board.channels) {
        constexpr uint64_t MOST = UINT64_MAX;
        channel = {true, UINT32_MAX, {MOST, MOST, MOST, MOST, MOST}, MOST, MOST, 0, 0, 8191};
    }
    CTopHistory history;
    history.Add(board, 0);
    const auto lines = TopTexts(history.Add(board, SECOND));
    EXPECT_EQ(lines.size(), 24U);
    EXPECT_EQ(Fitted(lines, 80, 24), lines);
    EXPECT_EQ(lines[23],
              "15 open   4.29G  18.4E  18.4E  18.4E  18.4E  18.4E 18.4E      0   18.4E  8191");
}

TEST(TopScreen, WhatDoesNotFitIsCutAndSaidToBe) {
    const std::vector<std::string> lines{"abcdef", "abcde", "abcd", ""};
    EXPECT_THAT(Fitted(lines, 5, 4), ElementsAre("abcd>", "abcde", "abcd", ""));
    EXPECT_THAT(Fitted(lines, 20, 3), ElementsAre("abcdef", "abcde", "... 2 more lines"));
    EXPECT_THAT(Fitted(lines, 5, 3), ElementsAre("abcd>", "abcde", "... >"));
    EXPECT_THAT(Fitted(lines, 1, 1), ElementsAre(">"));
    EXPECT_THAT(Fitted(lines, 0, 2), ElementsAre("", ""));
    EXPECT_THAT(Fitted(lines, 5, 0), ElementsAre());
}

TEST(TopScreen, AHintStandsAtTheRightEndIfThereIsRoom) {
    std::string line = "abc";
    AddHint(line, "xy", 6);
    EXPECT_EQ(line, "abc");
    AddHint(line, "xy", 7);
    EXPECT_EQ(line, "abc  xy");
}

TEST(TopScreen, ALongNumberIsShortenedWithoutBeingRoundedUp) {
    EXPECT_EQ(ShortNumber(0, 5), "0");
    EXPECT_EQ(ShortNumber(99999, 5), "99999");
    EXPECT_EQ(ShortNumber(100000, 5), "100K");
    EXPECT_EQ(ShortNumber(999999, 6), "999999");
    EXPECT_EQ(ShortNumber(1234567, 6), "1.23M");
    EXPECT_EQ(ShortNumber(12999999, 6), "12.9M");
    EXPECT_EQ(ShortNumber(999999999, 6), "999M");
    EXPECT_EQ(ShortNumber(1000000000, 6), "1.00G");
    EXPECT_EQ(ShortNumber(1234567890123, 6), "1.23T");
    EXPECT_EQ(ShortNumber(18446744073709551615U, 6), "18.4E");
}

TEST(TextTable, ColumnsAreAlignedAndNoLineEndsWithBlanks) {
    ZceBoard::CTextTable table({"name", ">n", "last"});
    table.Add({"a", "10", ""});
    table.Add({"abcdef", "9", "x"});
    EXPECT_EQ(table.Text(),
              "name     n  last\n"
              "a       10\n"
              "abcdef   9  x\n");
}

}  // namespace
