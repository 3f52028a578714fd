#include "logCapture.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "fakeClock.h"
#include "log/elog.h"

namespace {

using Lines = std::vector<std::string>;

TEST(LogCapture, GivesLevelAndTextOfEachLine) {
    const velatest::LogCapture capture;
    EXPECT_EQ(capture.Lines(), Lines{});
    LOG_ERROR("Config file init fail.");
    LOG_WARN("[x] (y) ");
    LOG_INFO("two\nlines");
    elog_write_line(ELOG_LVL_DEBUG, "fpga", "f.cpp", "F", 3, "d");
    elog_write_line(ELOG_LVL_ASSERT, "fpga", "f.cpp", "F", 3, "a");
    EXPECT_EQ(capture.Lines(), (Lines{"ERROR Config file init fail.", "WARN [x] (y) ",
                                      "INFO two\nlines", "DEBUG d", "ASSERT a"}));
    EXPECT_EQ(capture.LinesOf("INFO"), Lines{"two\nlines"});
    EXPECT_TRUE(capture.Has("DEBUG d"));
    EXPECT_FALSE(capture.Has("DEBUG e"));
}

TEST(LogCapture, StartsAnewAtClearAndFollowsTheDays) {
    velatest::FakeClock::Set(20261120, 235959);
    velatest::LogCapture capture;
    LOG_INFO("a");
    capture.Clear();
    velatest::FakeClock::AdvanceSeconds(1);
    LOG_INFO("b");
    EXPECT_EQ(capture.Lines(), Lines{"INFO b"});
}

TEST(LogCapture, LeavesNothingAndCanBeMadeAgain) {
    std::string dir;
    {
        const velatest::LogCapture capture;
        dir = capture.Dir();
        EXPECT_TRUE(std::filesystem::exists(dir));
        LOG_INFO("a");
    }
    EXPECT_FALSE(std::filesystem::exists(dir));
    const velatest::LogCapture capture;
    LOG_INFO("b");
    EXPECT_EQ(capture.Lines(), Lines{"INFO b"});
}

TEST(StdoutCapture, TakesWhatStdioAndTheDescriptorWrite) {
    velatest::StdoutCapture out;
    std::printf("a\n");
    std::fflush(stdout);
    EXPECT_EQ(write(STDOUT_FILENO, "b\n", 2), 2);
    std::printf("c");
    EXPECT_EQ(out.Text(), "a\nb\nc");
    out.Stop();
    std::printf("not this\n");
    EXPECT_EQ(out.Text(), "a\nb\nc");
}

}  // namespace
