// zce-capture stats: the rate and the longest gap over the day.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <random>
#include <string>
#include <vector>

#include "boardMessage.h"
#include "capturetool/Stats.h"
#include "tempDir.h"
#include "wholeFile.h"

namespace velatest {
namespace {

using testing::HasSubstr;
using ZceCaptureTool::DayStats;
using ZceCaptureTool::StatsOptions;

constexpr uint32_t HALF = 500'000'000;

class Stats : public testing::Test {
  protected:
    Stats() {
        setenv("TZ", "UTC-8", 1);
        tzset();
        m_options.files = {"day.pcap"};
    }
    static std::string Other(unsigned int channel, uint64_t number) {
        return Prefix(1, channel, number) + OtherMessage(2, "x");
    }
    DayStats Gather() {
        DayStats stats;
        std::string error;
        EXPECT_TRUE(GatherStats(m_options, stats, error)) << error;
        return stats;
    }
    std::string Fails() {
        DayStats stats;
        std::string error;
        EXPECT_FALSE(GatherStats(m_options, stats, error));
        return error;
    }
    TempDir m_dir{TempDir::Enter::yes};
    StatsOptions m_options;
};

TEST_F(Stats, ARowForEachStretchOfTime) {
    CaptureBytes()
        .Add(RECORDED_SECOND, HALF, Other(3, 1))
        .Add(RECORDED_SECOND, HALF + 1000, Other(0, 1))
        .Add(RECORDED_SECOND + 1, 0, Other(3, 2))
        .Write("day.pcap");
    CaptureBytes().Add(RECORDED_SECOND + 3, HALF, Other(3, 3)).Write("later.pcap");
    m_options.files = {"day.pcap", "later.pcap"};
    m_options.binSeconds = 1;
    EXPECT_EQ(StatsTable(Gather()),
              "from                              messages     a second       longest gap, s\n"
              "2026-11-20 08:45:04.000000000            2          2.0          0.000001000\n"
              "2026-11-20 08:45:05.000000000            1          1.0          0.499999000\n"
              "2026-11-20 08:45:06.000000000            0          0.0                    -\n"
              "2026-11-20 08:45:07.000000000            1          1.0          2.500000000\n"
              "4 messages in rows of 1.000000000 s; longest gap 2.500000000 s, to 2026-11-20 "
              "08:45:07.500000000\n");
    m_options.channels = {0};
    EXPECT_EQ(StatsTable(Gather()),
              "from                              messages     a second       longest gap, s\n"
              "2026-11-20 08:45:04.000000000            1          1.0                    -\n"
              "1 messages in rows of 1.000000000 s; longest gap 0.000000000 s\n");
    m_options.channels = {9};
    EXPECT_EQ(Fails(), "day.pcap: there is no message of these channels");
}

TEST_F(Stats, TheWidthFitsTheDay) {
    const struct {
        uint64_t seconds;
        uint64_t binNs;
    } cases[] = {{0, 1'000'000},
                 {10, 500'000'000},
                 {14'400, 300'000'000'000},
                 {4'320'000, 21'600'000'000'000 * 8}};
    for (const auto& one : cases) {
        CaptureBytes()
            .Add(RECORDED_SECOND, 0, Other(3, 1))
            .Add(RECORDED_SECOND + one.seconds, 0, Other(3, 2))
            .Write("day.pcap");
        const DayStats stats = Gather();
        EXPECT_EQ(stats.binNs, one.binNs) << one.seconds;
        EXPECT_LE(stats.bins.size(), 50U);
        EXPECT_EQ(stats.longestGapNs, one.seconds * 1'000'000'000);
    }
    m_options.binSeconds = 1e-3;
    EXPECT_EQ(Fails(),
              "--bin 0.001: more than 100000 rows for 4320000.000000000 s: take a longer one");
}

// Times that a file may hold, and clocks that were set back.
TEST_F(Stats, AnyTimes) {
    CaptureBytes()
        .Add(0, 0, Other(3, 1))
        .Add(4294967295, 999'999'999, Other(3, 2))
        .Add(RECORDED_SECOND, 0, Other(3, 3))
        .Write("day.pcap");
    const DayStats stats = Gather();
    uint64_t messages = 0;
    for (const auto& bin : stats.bins) {
        messages += bin.messages;
    }
    EXPECT_EQ(messages, 3U);
    EXPECT_LE(stats.bins.size(), 50U);
    // The seconds of the second one are below 0, as libpcap reads them.
    EXPECT_EQ(stats.longestGapNs, 1795135504'000'000'001U);
}

TEST_F(Stats, AreThoseOfTheMessagesOneByOne) {
    std::mt19937_64 random(9);
    CaptureBytes capture;
    std::vector<uint64_t> times;
    uint64_t now = RECORDED_SECOND * 1'000'000'000;
    for (uint64_t k = 1; k <= 3000; ++k) {
        now += random() % (random() % 100 == 0 ? 3'000'000'000 : 20'000'000);
        times.push_back(now);
        capture.Add(now / 1'000'000'000, now % 1'000'000'000, Other(3, k));
    }
    capture.Write("day.pcap");
    m_options.binSeconds = 0.25;
    const DayStats stats = Gather();
    EXPECT_EQ(stats.messages, 3000U);
    for (std::size_t k = 0; k < stats.bins.size(); ++k) {
        uint64_t messages = 0;
        uint64_t gap = 0;
        for (std::size_t m = 0; m < times.size(); ++m) {
            if (times[m] / 250'000'000 == static_cast<uint64_t>(stats.BeginOf(k)) / 250'000'000) {
                ++messages;
                gap = std::max(gap, m == 0 ? 0 : times[m] - times[m - 1]);
            }
        }
        ASSERT_EQ(stats.bins[k].messages, messages) << k;
        ASSERT_EQ(stats.bins[k].longestGapNs, gap) << k;
    }
}

TEST_F(Stats, ThePlotIsOfTheSameFigures) {
    DayStats stats;
    stats.firstNs = 1795135504'500'000'000;
    stats.binNs = 500'000'000;
    stats.bins = {{3, 0}, {0, 0}, {1, 1'250'000'000}};
    stats.longestGapNs = 1'250'000'000;
    const std::string script = PlotScript(stats, "it's \\n");
    EXPECT_THAT(script, testing::StartsWith("$day << EOD\n"
                                            "1795164304.500000000 6 NaN\n"
                                            "1795164305.000000000 0 NaN\n"
                                            "1795164305.500000000 2 1.25\n"
                                            "EOD\n"));
    EXPECT_THAT(script, HasSubstr("set title 'it''s \\n' noenhanced\n"));
    EXPECT_THAT(script, HasSubstr("set yrange [*:2.5]\n"));
    EXPECT_THAT(script, HasSubstr("set xrange ['1795164304.500000000':'1795164306.000000000']\n"));
}

TEST_F(Stats, ThePlotIsDrawn) {
    CaptureBytes capture;
    capture.Add(RECORDED_SECOND, 0, Other(3, 1)).Write("day.pcap");
    m_options.plot = "day.svg";
    EXPECT_EQ(RunStats(m_options), 0);  // a single message, which is at no distance from another
    EXPECT_NE(WholeFile("day.svg").find(">messages a second<"), std::string::npos);
    capture.Add(RECORDED_SECOND + 50, 0, Other(3, 2)).Write("day.pcap");
    EXPECT_EQ(RunStats(m_options), 0);
    const std::string svg = WholeFile("day.svg");
    for (const char* text : {"<svg", ">longest gap, s<", ">day.pcap<", ">08:45:", "</svg>"}) {
        EXPECT_NE(svg.find(text), std::string::npos) << text;
    }
}

TEST_F(Stats, WhatCannotBeDone) {
    CaptureBytes capture;
    capture.Add(RECORDED_SECOND, 0, Other(3, 1)).Write("day.pcap");
    const auto run = [this](int status) {
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        EXPECT_EQ(RunStats(m_options), status);
        testing::internal::GetCapturedStdout();
        return testing::internal::GetCapturedStderr();
    };
    m_options.plot = "day.pcap";
    EXPECT_EQ(run(2), "zce-capture: day.pcap: it is the capture itself: give another file\n");
    EXPECT_EQ(WholeFile("day.pcap"), capture.Bytes());
    m_options.plot = "day.svg";
    setenv("PATH", "/nowhere", 1);
    EXPECT_EQ(run(2),
              "zce-capture: gnuplot, which draws the plot: No such file or directory: install "
              "gnuplot-nox, or leave out --plot for a table\n");
    setenv("PATH", m_dir.path().c_str(), 1);
    PutFile("gnuplot", "#!/bin/sh\nexit 1\n");
    chmod("gnuplot", 0755);
    EXPECT_EQ(run(2),
              "zce-capture: gnuplot could not draw the plot: its reason is above; leave out "
              "--plot for a table\n");
    EXPECT_NE(access("day.svg", F_OK), 0);
    m_options.plot = "";
    PutFile("day.pcap", capture.Bytes() + "x");
    EXPECT_EQ(run(1),
              "zce-capture: day.pcap: packet 2: truncated dump file; tried to read 16 header "
              "bytes, only got 1: what is before it is counted\n");
    CaptureBytes().Write("day.pcap");
    EXPECT_EQ(run(2), "zce-capture: day.pcap: there is no message\n");
    m_options.files = {"none.pcap"};
    EXPECT_EQ(run(2), "zce-capture: none.pcap: No such file or directory\n");
}

}  // namespace
}  // namespace velatest
