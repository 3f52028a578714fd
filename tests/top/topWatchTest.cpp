// The watched processes as the monitor shows them.

#include <gmock/gmock.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "top/TopWatch.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using ZceBoard::CWatchHistory;
using ZceBoard::ShortTime;
using ZceBoard::TopLine;
using ZceBoard::TopMark;
using ZceBoard::WatchView;
using ZceWatch::BoardState;
using ZceWatch::CountersState;
using ZceWatch::Directory;
using ZceWatch::EntryState;
using ZceWatch::Life;

constexpr int64_t aSecond = 1'000'000'000;
constexpr int64_t today = 1'795'485'600 * aSecond;

ZceWatch::Process AProcess() {
    ZceWatch::Process process;
    process.path = "/run/zce/zce-recv-4711.watch";
    process.program = "zce-recv";
    process.pid = 4711;
    process.life = Life::Runs;
    ZceWatch::Stream stream;
    stream.bus = 0;
    stream.channel = 3;
    stream.opening = 2;
    stream.state = EntryState::Open;
    stream.board = BoardState::Runs;
    stream.lastMessageNs = today - 250'000'000;
    stream.types = {{{10, 10000}, {200, 1}, {3, 1}, {1234567, 1}, {0, 0}, {6, 1}}};
    stream.gaps = {850, 12'345, 4'100'000, 2 * aSecond, {}};
    stream.counters = {CountersState::Read, today, 0, 9, 0, 0};
    process.streams = {stream};
    return process;
}

WatchView Seen(CWatchHistory& history, const ZceWatch::Process& process, int64_t realNs = 0) {
    return history.Add("/run/zce", {{process}, {}}, realNs, today);
}

std::vector<std::string> WatchTexts(const WatchView& view, size_t skipped = 0) {
    std::vector<std::string> texts;
    for (const TopLine& line : WatchLines(view, skipped)) {
        texts.push_back(line.text);
    }
    return texts;
}

// What stands out, and how: "!" alarm, "?" warning, "x" closed; without the cells' blanks.
std::vector<std::string> WatchMarks(const WatchView& view) {
    std::vector<std::string> marked;
    for (const TopLine& line : WatchLines(view)) {
        for (const ZceBoard::TopSpan& span : line.spans) {
            std::string text = line.text.substr(span.begin, span.length);
            text.erase(0, text.find_first_not_of(' '));
            text.erase(text.find_last_not_of(' ') + 1);
            const char sign = span.mark == TopMark::Alarm     ? '!'
                              : span.mark == TopMark::Warning ? '?'
                                                              : 'x';
            marked.push_back(sign + text);
        }
    }
    return marked;
}

TEST(TopWatch, ARowTellsAChannelAndItsFirst80ColumnsWhetherAllIsWell) {
    CWatchHistory history;
    ZceWatch::Process process = AProcess();
    EXPECT_THAT(
        WatchTexts(Seen(history, process)),
        ElementsAre("watch /run/zce  1 running  0 ended  0 died", "",
                    "program          pid bus ch state    msg/s   last    gap     1s   1min   ever "
                    "board    backpr  fifo errors    map    t17    t18    t19    t20 other  bytes "
                    "open#",
                    "zce-recv        4711   0  3 open         -  250ms  850ns 12.3us  4.1ms     2s "
                    "running       0     0      0     10    200      3  1.23M      0     6  10004 "
                    "    2"));
    process.streams[0].types[1].messages += 500;
    process.streams[0].types[0].messages += 10;
    process.streams[0].bus = 65535;
    process.program = "a-long-program\n";
    EXPECT_EQ(WatchTexts(Seen(history, process, aSecond / 2))[3].substr(0, 49),
              "a-long-prog>    4711   ?  3 open      1020  250ms");
    EXPECT_THAT(WatchMarks(Seen(history, process, aSecond)), IsEmpty());
}

TEST(TopWatch, WhatIsNotKnownIsADash) {
    CWatchHistory history;
    ZceWatch::Process process = AProcess();
    ZceWatch::Stream& stream = process.streams[0];
    stream.lastMessageNs = 0;
    stream.gaps = {};
    stream.board = BoardState::Unknown;
    stream.counters.state = CountersState::NotRead;
    EXPECT_THAT(
        WatchTexts(Seen(history, process))[3].substr(28),
        testing::StartsWith(
            "open         -      -      -    0ns    0ns    0ns unknown       -     -      -"));
}

TEST(TopWatch, WhatIsWrongStandsOut) {
    CWatchHistory history;
    ZceWatch::Process process = AProcess();
    ZceWatch::Stream& stream = process.streams[0];
    stream.gaps.runningNs = aSecond;
    stream.board = BoardState::Gone;
    stream.counters.backPressure = 7;
    stream.counters.errors = 1;
    EXPECT_THAT(WatchMarks(Seen(history, process)), ElementsAre("!1s", "!gone", "?7", "?1"));
    ++stream.counters.backPressure;
    stream.board = BoardState::Replaced;
    stream.gaps.runningNs = aSecond - 1;
    EXPECT_THAT(WatchMarks(Seen(history, process, 1)), ElementsAre("!replaced", "!8", "?1"));
    ++stream.counters.fifoErrors;
    EXPECT_THAT(WatchMarks(Seen(history, process, 2)), ElementsAre("!replaced", "?8", "!1", "!1"));
    stream.counters.state = CountersState::Failed;
    stream.state = EntryState::Closed;
    stream.board = BoardState::Runs;
    EXPECT_THAT(WatchMarks(Seen(history, process, 3)), ElementsAre("xclosed", "?failed"));
    process.notCounted = 3;
    process.life = Life::Died;
    EXPECT_THAT(WatchMarks(Seen(history, process, 4)),
                ElementsAre("!1 died", "!died", "?failed",
                            "?zce-recv 4711: 3 openings of channels are not counted: its page is "
                            "full"));
    process.life = Life::Ended;
    EXPECT_THAT(WatchMarks(Seen(history, process, 5)).front(), "xended");
}

TEST(TopWatch, WhatCannotBeReadIsToldBelowAndNobodyIsToldToo) {
    CWatchHistory history;
    const WatchView view =
        history.Add("/run/zce", {{}, {"/run/zce/a\x1b.watch: no page"}}, 0, today);
    EXPECT_THAT(WatchTexts(view),
                ElementsAre("watch /run/zce  0 running  0 ended  0 died", "",
                            "no process has a page here", "/run/zce/a\\x1b.watch: no page"));
    EXPECT_THAT(WatchMarks(view), ElementsAre("!/run/zce/a\\x1b.watch: no page"));
}

TEST(TopWatch, RowsAreScrolledAwayFromTheTop) {
    CWatchHistory history;
    ZceWatch::Process process = AProcess();
    process.streams.push_back(process.streams[0]);
    process.streams[1].channel = 12;
    process.streams[0].channel = 4;
    const WatchView view = Seen(history, process);
    EXPECT_EQ(WatchRows(view), 2U);
    EXPECT_EQ(WatchTexts(view).size(), 5U);
    EXPECT_EQ(WatchTexts(view, 1).at(3).substr(24, 8), " 12 open");
    EXPECT_EQ(WatchTexts(view, 2).size(), 3U);
}

TEST(TopWatch, TimesAreShortAndNeverRoundedUp) {
    const std::vector<std::pair<uint64_t, std::string>> times = {{0, "0ns"},
                                                                 {999, "999ns"},
                                                                 {1000, "1us"},
                                                                 {1999, "1.9us"},
                                                                 {99'999, "99.9us"},
                                                                 {100'000, "100us"},
                                                                 {999'999, "999us"},
                                                                 {1'000'000, "1ms"},
                                                                 {999'999'999, "999ms"},
                                                                 {1'000'000'000, "1s"},
                                                                 {59'999'999'999, "59.9s"},
                                                                 {60'000'000'000, "1m"},
                                                                 {3'599'000'000'000, "59.9m"},
                                                                 {3'600'000'000'000, "1h"},
                                                                 {86'399'000'000'000, "23.9h"},
                                                                 {86'400'000'000'000, "1d"},
                                                                 {UINT64_MAX, "213503d"}};
    for (const auto& [ns, text] : times) {
        EXPECT_EQ(ShortTime(ns), text);
    }
}

}  // namespace
