#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "fakeClock.h"
#include "log/CRwLogger.h"
#include "log/elog.h"
#include "logCapture.h"
#include "logFiles.h"

namespace {

using velatest::FakeClock;

// What the lines of this file look like in the log file, bytes and all.
class ElogLine : public testing::Test {
  protected:
    ElogLine() {
        FakeClock::Set(20261115, 93005);
        EXPECT_EQ(m_logger.Init(0, m_dir.path().c_str(), "fpga"), 0);
        m_start = File().size();
    }
    ~ElogLine() override { FakeClock::FailLocalTime(false); }
    std::string File() const { return velatest::WholeFile(m_dir / "fpga_20261115.log"); }
    std::string Written() const { return File().substr(m_start); }

    velatest::TempDir m_dir;
    CRwLogger m_logger;
    std::size_t m_start = 0;
};

std::string Ids() {
    char text[64];
    std::snprintf(text, sizeof(text), "pid:%04d tid:%04d", static_cast<int>(getpid()),
                  static_cast<int>(syscall(SYS_gettid)));
    return text;
}

TEST_F(ElogLine, ErrorHasLabelTimeAndTag) {
    LOG_ERROR("Could not create mmio, errmsg:%s.", "No such device");
    EXPECT_EQ(Written(),
              "[ERROR  ][20261115-09:30:05][fpga]Could not create mmio, errmsg:No such device.\n");
}

TEST_F(ElogLine, WarnEventAndInfoLookTheSameBehindTheirLabels) {
    LOG_WARN("a");
    elog_write_line(ELOG_LVL_EVENT, "fpga", "x.cpp", "F", 1, "b");
    LOG_INFO("c");
    EXPECT_EQ(Written(),
              "[WARN   ][20261115-09:30:05][fpga]a\n"
              "[EVENT  ][20261115-09:30:05][fpga]b\n"
              "[INFO   ][20261115-09:30:05][fpga]c\n");
}

TEST_F(ElogLine, AssertHasAllParts) {
    elog_write_line(ELOG_LVL_ASSERT, "fpga", "/a/b/x.cpp", "Fun", 77, "text");
    EXPECT_EQ(Written(), "[ASSERT ][20261115-09:30:05 " + Ids() + "][fpga](x.cpp Fun:77)text\n");
}

TEST_F(ElogLine, DebugAndVerboseLackTheFunction) {
    elog_write_line(ELOG_LVL_DEBUG, "fpga", "/a/b/x.cpp", "Fun", 77, "d");
    elog_write_line(ELOG_LVL_VERBOSE, "fpga", "x.cpp", "Fun", 8, "v");
    EXPECT_EQ(Written(), "[DEBUG  ][20261115-09:30:05 " + Ids() +
                             "][fpga](x.cpp:77)d\n"
                             "[VERBOSE][20261115-09:30:05 " +
                             Ids() + "][fpga](x.cpp:8)v\n");
}

TEST_F(ElogLine, ThreadIdIsTheKernelsIdOfTheThread) {
    std::string ids;
    std::thread([&ids] {
        ids = Ids();
        elog_write_line(ELOG_LVL_DEBUG, "fpga", "x.cpp", "F", 1, "t");
    }).join();
    EXPECT_EQ(Written(), "[DEBUG  ][20261115-09:30:05 " + ids + "][fpga](x.cpp:1)t\n");
    EXPECT_NE(ids, Ids());
}

TEST_F(ElogLine, LineNumberIsCutToFourCharacters) {
    elog_write_line(ELOG_LVL_DEBUG, "fpga", "x.cpp", "F", 12345, "d");
    elog_write_line(ELOG_LVL_DEBUG, "fpga", "x.cpp", "F", 9999, "d");
    EXPECT_THAT(Written(), testing::HasSubstr("(x.cpp:1234)d\n"));
    EXPECT_THAT(Written(), testing::HasSubstr("(x.cpp:9999)d\n"));
}

// Each subset of a header's parts, bit by bit.
TEST_F(ElogLine, FormatWordChoosesTheParts) {
    char pid[32];
    char tid[32];
    std::snprintf(pid, sizeof(pid), "pid:%04d", static_cast<int>(getpid()));
    std::snprintf(tid, sizeof(tid), "tid:%04d", static_cast<int>(syscall(SYS_gettid)));
    const std::string time = "20261115-09:30:05";
    const std::vector<std::pair<std::uint64_t, std::string>> cases = {
        {0, ""},
        {1, "[INFO   ]"},
        {2, "[T]"},
        {4, "[" + time + "]"},
        {8, std::string("[") + pid + "]"},
        {16, std::string("[") + tid + "]"},
        {4 + 8, "[" + time + " " + pid + "]"},
        {4 + 16, "[" + time + " " + tid + "]"},
        {8 + 16, std::string("[") + pid + " " + tid + "]"},
        {4 + 8 + 16, "[" + time + " " + pid + " " + tid + "]"},
        {32, "(x.cpp)"},
        {64, "(Fun)"},
        {128, "(77)"},
        {32 + 64, "(x.cpp Fun)"},
        {32 + 128, "(x.cpp:77)"},
        {64 + 128, "(Fun:77)"},
        {32 + 64 + 128, "(x.cpp Fun:77)"},
        {1 + 2 + 128, "[INFO   ][T](77)"},
    };
    for (const auto& [word, header] : cases) {
        m_start = File().size();
        elog_set_level_format(ELOG_LVL_INFO, word);
        elog_write_line(ELOG_LVL_INFO, "T", "/p/x.cpp", "Fun", 77, "m");
        EXPECT_EQ(Written(), header + "m\n") << word;
    }
}

TEST_F(ElogLine, TimeIsEmptyIfItCannotBeConverted) {
    FakeClock::FailLocalTime(true);
    LOG_INFO("a");
    EXPECT_EQ(Written(), "[INFO   ][][fpga]a\n");
}

TEST_F(ElogLine, NullTextsCountAsEmpty) {
    elog_set_level_format(ELOG_LVL_INFO, ELOG_FMT_TAG | ELOG_FMT_DIR | ELOG_FMT_FUNC);
    elog_write_line(ELOG_LVL_INFO, nullptr, nullptr, nullptr, 1, "a");
    EXPECT_EQ(Written(), "[]( )a\n");
}

TEST_F(ElogLine, NewlineOf2047CharactersIsThe2048thByte) {
    elog_set_level_format(ELOG_LVL_INFO, 0);
    const std::string text(2047, 'x');
    LOG_INFO("%s", text.c_str());
    EXPECT_EQ(Written(), text + "\n");
}

TEST_F(ElogLine, TextOf2046CharactersIsWhole) {
    elog_set_level_format(ELOG_LVL_INFO, 0);
    const std::string text(2046, 'x');
    LOG_INFO("%s", text.c_str());
    EXPECT_EQ(Written(), text + "\n");
}

TEST_F(ElogLine, LongerTextIsCutSoThatItsNewlineIsThe2048thByte) {
    elog_set_level_format(ELOG_LVL_INFO, 0);
    for (const std::size_t length : {2048U, 2049U, 5000U}) {
        m_start = File().size();
        LOG_INFO("%s", std::string(length, 'x').c_str());
        EXPECT_EQ(Written(), std::string(2047, 'x') + "\n") << length;
    }
}

TEST_F(ElogLine, HeaderCountsIntoThe2048Bytes) {
    LOG_INFO("%s", std::string(3000, 'x').c_str());
    const std::string header = "[INFO   ][20261115-09:30:05][fpga]";
    EXPECT_EQ(Written(), header + std::string(2047 - header.size(), 'x') + "\n");
}

TEST_F(ElogLine, OverlongHeaderIsCutSilently) {
    elog_write_line(ELOG_LVL_INFO, std::string(3000, 't').c_str(), "f", "F", 1, "text");
    const std::string begin = "[INFO   ][20261115-09:30:05][";
    EXPECT_EQ(Written(), begin + std::string(2047 - begin.size(), 't') + "\n");
}

TEST_F(ElogLine, HeaderThatFillsAllButOneByteLeavesNoText) {
    elog_set_level_format(ELOG_LVL_INFO, ELOG_FMT_TAG);
    elog_write_line(ELOG_LVL_INFO, std::string(2045, 't').c_str(), "f", "F", 1, "text");
    EXPECT_EQ(Written(), "[" + std::string(2045, 't') + "]\n");
}

TEST_F(ElogLine, FailedFormattingGivesAFullLineWithNothingOfAnEarlierOne) {
    elog_set_level_format(ELOG_LVL_INFO, ELOG_FMT_LVL);
    LOG_INFO("%s", std::string(2100, 'x').c_str());
    m_start = File().size();
    LOG_INFO("%lc", static_cast<wint_t>(0x7fffffff));  // no character of the C locale
    EXPECT_EQ(Written(), "[INFO   ]" + std::string(2047 - 9, ' ') + "\n");
}

TEST_F(ElogLine, LevelsAboveTheFilterAreDropped) {
    elog_set_filter_level(ELOG_LVL_WARN);
    LOG_ERROR("e");
    LOG_WARN("w");
    elog_write_line(ELOG_LVL_EVENT, "fpga", "f", "F", 1, "v");
    LOG_INFO("i");
    EXPECT_EQ(Written(),
              "[ERROR  ][20261115-09:30:05][fpga]e\n"
              "[WARN   ][20261115-09:30:05][fpga]w\n");
}

TEST_F(ElogLine, NothingIsWrittenWhileDisabled) {
    EXPECT_TRUE(elog_get_enabled());
    elog_set_enabled(false);
    EXPECT_FALSE(elog_get_enabled());
    const velatest::StdoutCapture out;
    elog_write_line(ELOG_LVL_ASSERT, "fpga", "f", "F", 1, "a");
    elog_write_raw("raw");
    elog_write_raw_large("raw");
    elog_hex_dump("n", 16, "x", 1);
    EXPECT_EQ(Written(), "");
    EXPECT_EQ(out.Text(), "");
    elog_set_enabled(true);
    LOG_INFO("b");
    EXPECT_EQ(Written(), "[INFO   ][20261115-09:30:05][fpga]b\n");
}

TEST_F(ElogLine, LevelBeyondTheLastIsDroppedByTheInstalledFilter) {
    elog_write_line(7, "fpga", "f", "F", 1, "a");
    EXPECT_EQ(Written(), "");
}

TEST_F(ElogLine, LevelBeyondTheLastIsWrittenAsVerboseBehindAWarning) {
    elog_set_filter_level(255);
    elog_set_level_format(ELOG_LVL_VERBOSE, ELOG_FMT_LVL);
    elog_set_level_format(200, 0);
    elog_write_line(255, "fpga", "f", "F", 1, "a");
    EXPECT_EQ(Written(),
              "[WARN   ][20261115-09:30:05][log]There is no log level 255, its line follows as "
              "VERBOSE.\n"
              "[VERBOSE]a\n");
}

TEST_F(ElogLine, TheFirstLevelBeyondTheLastHasNoFormatToo) {
    elog_set_filter_level(255);
    elog_set_level_format(ELOG_LVL_VERBOSE, ELOG_FMT_LVL);
    elog_set_level_format(7, 0);
    elog_write_line(7, "fpga", "f", "F", 1, "a");
    EXPECT_EQ(Written(),
              "[WARN   ][20261115-09:30:05][log]There is no log level 7, its line follows as "
              "VERBOSE.\n"
              "[VERBOSE]a\n");
}

TEST_F(ElogLine, TheFirstLineOfAllIsElogStarts) {
    elog_set_level_format(ELOG_LVL_INFO, ELOG_FMT_TAG | ELOG_FMT_DIR | ELOG_FMT_FUNC);
    elog_start();
    EXPECT_EQ(Written(), "[log](elog elog_start)log is initialized successfully.\n");
}

TEST_F(ElogLine, GoesToStandardOutputToo) {
    const velatest::StdoutCapture out;
    LOG_INFO("both");
    EXPECT_EQ(out.Text(), "[INFO   ][20261115-09:30:05][fpga]both\n");
    EXPECT_EQ(Written(), out.Text());
}

TEST_F(ElogLine, LinesOfThreadsDoNotMix) {
    constexpr int perThread = 200;
    const velatest::StdoutCapture out;
    std::vector<std::thread> threads;
    for (const char letter : {'a', 'b', 'c', 'd'}) {
        threads.emplace_back([letter] {
            for (int i = 0; i < perThread; ++i) {
                LOG_INFO("%s", std::string(100, letter).c_str());
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::string rest = Written();
    int lines = 0;
    for (; !rest.empty(); ++lines) {
        const std::string line = rest.substr(0, rest.find('\n') + 1);
        ASSERT_EQ(line, "[INFO   ][20261115-09:30:05][fpga]" +
                            std::string(100, line[line.size() - 2]) + "\n");
        rest.erase(0, line.size());
    }
    EXPECT_EQ(lines, 4 * perThread);
}

TEST(ElogBeforeInit, LinesAreDropped) {
    const velatest::StdoutCapture out;
    EXPECT_FALSE(elog_get_enabled());
    elog_set_filter_level(ELOG_LVL_VERBOSE);
    LOG_ERROR("lost");
    elog_write_raw("lost");
    EXPECT_EQ(out.Text(), "");
}

TEST(ElogWithoutFile, LinesGoToStandardOutputAlone) {
    const velatest::StdoutCapture out;
    elog_set_filter_level(ELOG_LVL_VERBOSE);
    elog_start();
    LOG_ERROR("seen");
    elog_set_level_format(ELOG_LVL_WARN, ELOG_FMT_LVL | ELOG_FMT_TIME);
    FakeClock::Set(20261120, 235959);
    LOG_WARN("a");
    FakeClock::AdvanceSeconds(1);
    LOG_WARN("b");
    EXPECT_EQ(out.Text(),
              "log is initialized successfully.\n"
              "seen\n"
              "[WARN   ][20261120-23:59:59]a\n"
              "[WARN   ][20261121-00:00:00]b\n");
}

}  // namespace
