// What zce-watch tells of the pages: the text for Prometheus, letter by letter, and which of
// several pages is told.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "tempDir.h"
#include "watch/WatchExport.h"
#include "wholeFile.h"

namespace velatest {
namespace {

using testing::HasSubstr;
using testing::Not;
using ZceWatch::BoardState;
using ZceWatch::CountersState;
using ZceWatch::Directory;
using ZceWatch::EntryState;
using ZceWatch::ExportSettings;
using ZceWatch::ExportText;
using ZceWatch::Life;
using ZceWatch::Process;
using ZceWatch::Stream;

constexpr int64_t SECOND = 1'000'000'000;
constexpr int64_t NOW = 1'795'485'600 * SECOND;
constexpr int64_t DAY = 86'400 * SECOND;

ExportSettings Settings() {
    return {NOW, 3 * DAY, "3.10.0"};
}

Stream OpenStream(uint64_t channel) {
    Stream stream;
    stream.bus = 0;
    stream.channel = channel;
    stream.opening = 1;
    stream.state = EntryState::Open;
    stream.openedNs = NOW - 100 * SECOND;
    return stream;
}

Process Running(const std::string& program, uint64_t pid, std::vector<Stream> streams) {
    Process process;
    process.program = program;
    process.pid = pid;
    process.beginNs = NOW - 100 * SECOND;
    process.streams = std::move(streams);
    return process;
}

// The lines of a text that begin with the name and a brace or a blank.
std::vector<std::string> LinesOf(const std::string& text, const std::string& name) {
    std::vector<std::string> lines;
    std::istringstream source(text);
    for (std::string line; std::getline(source, line);) {
        if (line.rfind(name + "{", 0) == 0 || line.rfind(name + " ", 0) == 0) {
            lines.push_back(line);
        }
    }
    return lines;
}

std::string Line(const std::string& text, const std::string& name) {
    const std::vector<std::string> lines = LinesOf(text, name);
    return lines.size() == 1 ? lines[0] : "not one line but " + std::to_string(lines.size());
}

TEST(WatchExport, TellsAChannelLetterByLetter) {
    Stream stream = OpenStream(3);
    stream.bus = 1;
    stream.board = BoardState::Runs;
    stream.polls = 12'345'678'901;
    stream.lastMessageNs = NOW - SECOND / 4;
    stream.types[0] = {2, 1'000};
    stream.types[1] = {3, 300};
    stream.types[2] = {4, 400};
    stream.types[3] = {5, 500};
    stream.types[4] = {6, 600};
    stream.types[5] = {7, 70};
    stream.gaps.runningNs = 500;
    stream.gaps.secondNs = 1'500;
    stream.gaps.minuteNs = 2'500'000;
    stream.gaps.everNs = 3'000'000'001;
    stream.gaps.histogram[0] = 1'000;
    stream.gaps.histogram[1] = 20;
    stream.gaps.histogram[ZceWatch::GAP_BUCKETS - 1] = 1;
    stream.counters = {CountersState::Read, NOW - SECOND, 11, 12, 13, 14};
    Directory pages;
    pages.processes = {Running("zce-recv", 4711, {stream})};
    pages.refused = {"a sentence"};

    EXPECT_EQ(ExportText(pages, Settings()), WholeFile(std::string(WATCH_TESTS) + "/channel.prom"));
}

TEST(WatchExport, TellsItselfWhereNobodyIsWatched) {
    EXPECT_EQ(ExportText({}, Settings()),
              "# HELP zce_watch_build_info The version of zce-watch, as a label.\n"
              "# TYPE zce_watch_build_info gauge\n"
              "zce_watch_build_info{version=\"3.10.0\"} 1\n"
              "# HELP zce_export_timestamp_seconds When this was written.\n"
              "# TYPE zce_export_timestamp_seconds gauge\n"
              "zce_export_timestamp_seconds 1795485600.000000000\n"
              "# HELP zce_pages_unreadable Pages that could not be read: their processes are not "
              "told here.\n"
              "# TYPE zce_pages_unreadable gauge\n"
              "zce_pages_unreadable 0\n"
              "# HELP zce_streams_not_counted Openings of streams for which the page of a running "
              "process had no room.\n"
              "# TYPE zce_streams_not_counted gauge\n"
              "zce_streams_not_counted 0\n");
}

TEST(WatchExport, QuotesWhatAProgramIsCalled) {
    Directory pages;
    pages.processes = {Running("a\"b\\c\nd\xff\xe9\x83\x91", 1, {OpenStream(0)})};
    EXPECT_EQ(Line(ExportText(pages, Settings()), "zce_process_up"),
              "zce_process_up{program=\"a\\\"b\\\\c\\\\x0ad\\\\xff\xe9\x83\x91\",bus=\"0\",channel="
              "\"0\"} 1");
}

TEST(WatchExport, WhatADamagedPageSaysIsStillNumbers) {
    Stream stream = OpenStream(2);
    stream.lastMessageNs = -1'500'000'000;
    stream.openedNs = -1;
    stream.gaps.everNs = UINT64_MAX;
    stream.gaps.runningNs = UINT64_MAX;
    Directory pages;
    pages.processes = {Running("p", 1, {stream})};
    const std::string text = ExportText(pages, Settings());
    const std::string labels = "{program=\"p\",bus=\"0\",channel=\"2\"";
    EXPECT_EQ(Line(text, "zce_last_message_timestamp_seconds"),
              "zce_last_message_timestamp_seconds" + labels + "} -1.500000000");
    EXPECT_EQ(Line(text, "zce_stream_open_timestamp_seconds"),
              "zce_stream_open_timestamp_seconds" + labels + "} -0.000000001");
    EXPECT_EQ(LinesOf(text, "zce_longest_poll_gap_seconds").back(),
              "zce_longest_poll_gap_seconds" + labels + ",window=\"ever\"} 18446744073.709551615");
}

TEST(WatchExport, TellsABusThatIsNotKnown) {
    Stream stream = OpenStream(2);
    stream.bus = 65535;
    Directory pages;
    pages.processes = {Running("p", 1, {stream})};
    EXPECT_EQ(Line(ExportText(pages, Settings()), "zce_polls_total"),
              "zce_polls_total{program=\"p\",bus=\"unknown\",channel=\"2\"} 0");
}

// Two boards whose numbers are not known have channels of the same labels.
TEST(WatchExport, OfTwoChannelsWithTheSameLabelsTheOneOpenedLastIsTold) {
    std::vector<Stream> streams = {OpenStream(0), OpenStream(0), OpenStream(0)};
    streams[0].polls = 1;
    streams[1].polls = 2;
    streams[1].openedNs += SECOND;
    streams[2].polls = 3;
    streams[2].openedNs += 2 * SECOND;
    streams[2].state = EntryState::Closed;
    for (int turn = 0; turn < 3; ++turn) {
        Directory pages;
        pages.processes = {Running("p", 1, streams)};
        EXPECT_EQ(Line(ExportText(pages, Settings()), "zce_polls_total"),
                  "zce_polls_total{program=\"p\",bus=\"0\",channel=\"0\"} 2");
        std::rotate(streams.begin(), streams.begin() + 1, streams.end());
    }
}

TEST(WatchExport, LeavesOutCountersThatWereNotRead) {
    Stream stream = OpenStream(0);
    stream.counters = {CountersState::Failed, 0, 0, 0, 0, 0};
    Directory pages;
    pages.processes = {Running("p", 1, {stream})};
    const std::string text = ExportText(pages, Settings());
    EXPECT_THAT(text, Not(HasSubstr("zce_stream_backpressure_total")));
    EXPECT_THAT(text, Not(HasSubstr("zce_stream_errors_total")));
    EXPECT_EQ(Line(text, "zce_stream_counters_failed"),
              "zce_stream_counters_failed{program=\"p\",bus=\"0\",channel=\"0\"} 1");
}

// Failed now, read before: what was read is still what the stream had counted then.
TEST(WatchExport, KeepsCountersThatWereReadBefore) {
    Stream stream = OpenStream(0);
    stream.counters = {CountersState::Failed, NOW - SECOND, 5, 0, 0, 0};
    Directory pages;
    pages.processes = {Running("p", 1, {stream})};
    EXPECT_EQ(Line(ExportText(pages, Settings()), "zce_stream_backpressure_total"),
              "zce_stream_backpressure_total{program=\"p\",bus=\"0\",channel=\"0\"} 5");
}

TEST(WatchExport, AProcessThatIsGoneStandsStill) {
    Process gone = Running("p", 1, {OpenStream(0)});
    gone.life = Life::Died;
    gone.streams[0].gaps = {7 * SECOND, 8 * SECOND, 9 * SECOND, 10 * SECOND, {}};
    gone.streams[0].polls = 99;
    Directory pages;
    pages.processes = {gone};
    const std::string text = ExportText(pages, Settings());
    EXPECT_EQ(Line(text, "zce_process_up"),
              "zce_process_up{program=\"p\",bus=\"0\",channel=\"0\"} 0");
    EXPECT_EQ(Line(text, "zce_stream_open"),
              "zce_stream_open{program=\"p\",bus=\"0\",channel=\"0\"} 0");
    EXPECT_EQ(Line(text, "zce_polls_total"),
              "zce_polls_total{program=\"p\",bus=\"0\",channel=\"0\"} 99");
    EXPECT_THAT(text, HasSubstr("state=\"died\"} 1"));
    // No gap runs on in a process that is gone.
    EXPECT_THAT(text, Not(HasSubstr("zce_last_poll_timestamp_seconds")));
    EXPECT_EQ(Line(text, "zce_longest_poll_gap_seconds"),
              "zce_longest_poll_gap_seconds{program=\"p\",bus=\"0\",channel=\"0\",window=\"ever\"} "
              "10.000000000");
}

TEST(WatchExport, AProcessThatIsGoneIsForgotten) {
    Process gone = Running("p", 1, {OpenStream(0)});
    gone.life = Life::Ended;
    gone.beginNs = NOW - 9 * DAY;
    gone.streams[0].openedNs = NOW - 9 * DAY;
    Directory pages;
    // Each of these is a sign of life.
    for (int64_t* const sign :
         {&gone.endNs, &gone.streams[0].closedNs, &gone.streams[0].lastMessageNs,
          &gone.streams[0].counters.readNs, &gone.streams[0].openedNs, &gone.beginNs}) {
        const int64_t before = *sign;
        *sign = NOW - 3 * DAY;
        pages.processes = {gone};
        EXPECT_EQ(LinesOf(ExportText(pages, Settings()), "zce_process_up").size(), 1U);
        *sign = NOW - 3 * DAY - 1;
        pages.processes = {gone};
        EXPECT_EQ(LinesOf(ExportText(pages, Settings()), "zce_process_up").size(), 0U);
        *sign = before;
    }
    // One that runs is told however old it is.
    gone.life = Life::Runs;
    pages.processes = {gone};
    EXPECT_EQ(LinesOf(ExportText(pages, Settings()), "zce_process_up").size(), 1U);
}

// The pid of the page that is told of several with the same labels.
std::string ToldOf(std::vector<Process> processes) {
    std::string first;
    std::sort(processes.begin(), processes.end(),
              [](const Process& a, const Process& b) { return a.pid < b.pid; });
    do {  // in whatever order they are found
        Directory pages;
        pages.processes = processes;
        const std::string line = Line(ExportText(pages, Settings()), "zce_process_info");
        if (!first.empty() && first != line) {
            return first + " and " + line;
        }
        first = line;
    } while (
        std::next_permutation(processes.begin(), processes.end(),
                              [](const Process& a, const Process& b) { return a.pid < b.pid; }));
    return first;
}

TEST(WatchExport, OfSeveralPagesTheRunningOneIsToldThenTheYoungest) {
    Process old = Running("p", 1, {OpenStream(0)});
    Process young = Running("p", 2, {OpenStream(0)});
    old.life = young.life = Life::Died;
    old.beginNs = NOW - 200 * SECOND;
    EXPECT_EQ(ToldOf({old, young}),
              "zce_process_info{program=\"p\",bus=\"0\",channel=\"0\",pid=\"2\"} 1");
    old.life = Life::Runs;
    EXPECT_EQ(ToldOf({old, young}),
              "zce_process_info{program=\"p\",bus=\"0\",channel=\"0\",pid=\"1\"} 1");
    Process youngest = young;
    youngest.pid = 3;
    youngest.life = Life::Runs;
    EXPECT_EQ(ToldOf({old, young, youngest}),
              "zce_process_info{program=\"p\",bus=\"0\",channel=\"0\",pid=\"3\"} 1");
}

TEST(WatchExport, AnotherProgramOrChannelIsAnotherSeries) {
    Directory pages;
    pages.processes = {Running("p", 1, {OpenStream(0), OpenStream(3)}),
                       Running("q", 2, {OpenStream(0)})};
    EXPECT_EQ(LinesOf(ExportText(pages, Settings()), "zce_process_up"),
              (std::vector<std::string>{"zce_process_up{program=\"p\",bus=\"0\",channel=\"0\"} 1",
                                        "zce_process_up{program=\"p\",bus=\"0\",channel=\"3\"} 1",
                                        "zce_process_up{program=\"q\",bus=\"0\",channel=\"0\"} "
                                        "1"}));
}

TEST(WatchExport, CountsTheStreamsWithoutRoomOfThoseThatRun) {
    Directory pages;
    pages.processes = {Running("p", 1, {}), Running("q", 2, {}), Running("r", 3, {})};
    pages.processes[0].notCounted = 2;
    pages.processes[1].notCounted = 3;
    pages.processes[2].notCounted = 40;
    pages.processes[2].life = Life::Died;
    EXPECT_EQ(Line(ExportText(pages, Settings()), "zce_streams_not_counted"),
              "zce_streams_not_counted 5");
}

TEST(WatchExport, TheSumOfAClosedStreamEndsWithIt) {
    Stream stream = OpenStream(0);
    stream.state = EntryState::Closed;
    stream.closedNs = stream.openedNs + 5 * SECOND;
    Directory pages;
    pages.processes = {Running("p", 1, {stream})};
    EXPECT_EQ(Line(ExportText(pages, Settings()), "zce_poll_gap_seconds_sum"),
              "zce_poll_gap_seconds_sum{program=\"p\",bus=\"0\",channel=\"0\"} 5.000000000");
}

// The host's clock was set back meanwhile, or the process is gone and its last poll not known.
TEST(WatchExport, NoSumIsBelowZero) {
    Stream set = OpenStream(0);
    set.state = EntryState::Closed;
    set.closedNs = set.openedNs - SECOND;
    Directory pages;
    pages.processes = {Running("p", 1, {set, OpenStream(1)})};
    pages.processes[0].life = Life::Died;
    EXPECT_EQ(LinesOf(ExportText(pages, Settings()), "zce_poll_gap_seconds_sum"),
              (std::vector<std::string>{
                  "zce_poll_gap_seconds_sum{program=\"p\",bus=\"0\",channel=\"0\"} 0.000000000",
                  "zce_poll_gap_seconds_sum{program=\"p\",bus=\"0\",channel=\"1\"} 0.000000000"}));
}

TEST(WatchList, HasALineForEachChannel) {
    ASSERT_EQ(setenv("TZ", "UTC-8", 1), 0);
    tzset();
    Stream busy = OpenStream(0);
    busy.bus = 65535;
    busy.types[0].messages = 40;
    busy.types[5].messages = 2;
    busy.lastMessageNs = NOW;
    busy.gaps.everNs = 1'234'567;
    busy.board = BoardState::Gone;
    Process gone = Running("a\nb", 23, {OpenStream(15)});
    gone.life = Life::Died;
    Directory pages;
    pages.processes = {Running("zce-recv", 4711, {busy, OpenStream(3)}), gone};
    pages.processes[0].streams[1].state = EntryState::Closed;
    EXPECT_EQ(
        ZceWatch::ListText(pages),
        "program                   pid state        bus channel stream        messages last "
        "message         longest gap board\n"
        "zce-recv                 4711 running  unknown       0 open                42 "
        "2026-11-24 10:00:00     1.235 ms gone\n"
        "zce-recv                 4711 running        0       3 closed               0 -      "
        "                 0.000 ms unknown\n"
        "a\\x0ab                     23 died           0      15 closed               0 -      "
        "                 0.000 ms unknown\n");
}

TEST(WatchOutput, ReplacesTheFileForAllToRead) {
    const TempDir place;
    const std::string file = place / "zce.prom";
    PutFile(file, "what was there before, and is longer");
    std::string error;
    ASSERT_TRUE(ZceWatch::ReplaceFile(file, "new\n", error)) << error;
    EXPECT_EQ(WholeFile(file), "new\n");
    struct stat state {};
    ASSERT_EQ(stat(file.c_str(), &state), 0);
    EXPECT_EQ(state.st_mode & 07777U, 0644U);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(place.path()), {}), 1);
}

// Whoever has the old file open reads the old text to its end: the new one is another file.
TEST(WatchOutput, NobodySeesAHalfFile) {
    const TempDir place;
    const std::string file = place / "zce.prom";
    PutFile(file, "old text\n");
    std::ifstream reader(file);
    std::string error;
    ASSERT_TRUE(ZceWatch::ReplaceFile(file, "n\n", error)) << error;
    std::string line;
    EXPECT_TRUE(std::getline(reader, line));
    EXPECT_EQ(line, "old text");
}

TEST(WatchOutput, TellsWhyAFileCannotBeWritten) {
    const TempDir place;
    std::string error;
    EXPECT_FALSE(ZceWatch::ReplaceFile(place / "none/zce.prom", "text\n", error));
    EXPECT_EQ(error, place / "none/zce.prom" + " cannot be written: No such file or directory");
    // A directory cannot be replaced; nothing is left beside it.
    std::filesystem::create_directory(place / "zce.prom");
    EXPECT_FALSE(ZceWatch::ReplaceFile(place / "zce.prom", "text\n", error));
    EXPECT_EQ(error, place / "zce.prom" + " cannot be written: Is a directory");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(place.path()), {}), 1);
}

// As on a full disk: a part of the text is taken, and then no more.
TEST(WatchOutput, WhatCannotBeWrittenWholeLeavesTheOldFile) {
    const TempDir place;
    const std::string file = place / "zce.prom";
    PutFile(file, "old text\n");
    ASSERT_NE(signal(SIGXFSZ, SIG_IGN), SIG_ERR);
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const rlimit tenBytes{10, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &tenBytes), 0);
    std::string error;
    const bool bReplaced = ZceWatch::ReplaceFile(file, "longer than ten bytes\n", error);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
    EXPECT_FALSE(bReplaced);
    EXPECT_EQ(error, file + " cannot be written: File too large");
    EXPECT_EQ(WholeFile(file), "old text\n");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(place.path()), {}), 1);
}

}  // namespace
}  // namespace velatest
