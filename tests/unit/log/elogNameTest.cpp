// The names of the log's files where they fill their 256 bytes: in a directory whose path has 200
// characters the name of 41 characters is the longest that is kept whole.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "fakeClock.h"
#include "log/CRwLogger.h"
#include "log/elog.h"
#include "logFiles.h"
#include "tempDir.h"

namespace {

using testing::ElementsAre;
using velatest::FakeClock;
using velatest::NamesIn;
using velatest::WholeFile;

const std::string g_first = "[INFO   ][20261116-12:00:00][log]log is initialized successfully.\n";

std::string N(std::size_t count) {
    return std::string(count, 'n');
}

class ElogName : public testing::Test {
  protected:
    ElogName() { FakeClock::Set(20261116, 120000); }

    // A new directory whose path has this many characters.
    std::string DirOf(std::size_t length) {
        const std::string base = m_dir / std::to_string(m_dirs++);
        const std::size_t rest = length - base.size() - 2;
        const std::size_t half = rest / 2;
        std::string path =
            base + "/" + std::string(half, 'd') + "/" + std::string(rest - half, 'e');
        std::filesystem::create_directories(path);
        EXPECT_EQ(path.size(), length);
        return path;
    }
    // Starts the service; what it printed to standard error is kept.
    int Init(const std::string& dir, std::size_t nameLength) {
        testing::internal::CaptureStderr();
        const int result = m_logger.Init(0, dir.c_str(), N(nameLength).c_str());
        m_error = testing::internal::GetCapturedStderr();
        return result;
    }

    velatest::TempDir m_dir;
    CRwLogger m_logger;
    std::string m_error;

  private:
    int m_dirs = 0;
};

TEST_F(ElogName, EveryLengthFromWholeToCutWithinTheName) {
    const struct {
        std::size_t length;
        std::string file;
    } cases[] = {
        {39, N(39) + "_20261116.log"},
        {40, N(40) + "_20261116.log"},
        {41, N(41) + "_20261116.log"},
        {42, N(42) + "_20261116.lo"},
        {43, N(43) + "_20261116.l"},
        {44, N(44) + "_20261116."},
        {45, N(45) + "_20261116"},
        {46, N(46) + "_2026111"},
        {47, N(47) + "_202611"},  // the pattern fills its bytes
        {48, N(48) + "_20261"},   // and from here on is cut too
        {49, N(49) + "_2026"},
        {50, N(50) + "_202"},
        {51, N(51) + "_20"},
        {52, N(52) + "_%"},  // half of the date's mark is none
        {53, N(53) + "_"},
        {54, N(54)},
        {55, N(54)},
        {86, N(54)},
    };
    for (const auto& at : cases) {
        SCOPED_TRACE(at.length);
        const std::string dir = DirOf(200);
        ASSERT_EQ(Init(dir, at.length), 0);
        EXPECT_EQ(m_error, "");
        EXPECT_THAT(NamesIn(dir), ElementsAre(at.file));
        EXPECT_EQ(WholeFile(dir + "/" + at.file), g_first);
        elog_log_file_close();
    }
}

TEST_F(ElogName, ASlashAtTheDirectorysEndCounts) {
    const std::string whole = DirOf(199);
    ASSERT_EQ(Init(whole + "/", 41), 0);
    EXPECT_THAT(NamesIn(whole), ElementsAre(N(41) + "_20261116.log"));
    elog_log_file_close();
    const std::string cut = DirOf(199);
    ASSERT_EQ(Init(cut + "/", 42), 0);
    EXPECT_THAT(NamesIn(cut), ElementsAre(N(42) + "_20261116.lo"));
}

TEST_F(ElogName, ACutNameWithItsDateChangesWithTheDay) {
    const std::string dir = DirOf(200);
    ASSERT_EQ(Init(dir, 42), 0);
    LOG_INFO("a");  // the day is that of a line
    FakeClock::Set(20261117, 1);
    LOG_INFO("b");
    EXPECT_THAT(NamesIn(dir), ElementsAre(N(42) + "_20261116.lo", N(42) + "_20261117.lo"));
    EXPECT_EQ(WholeFile(dir + "/" + N(42) + "_20261117.lo"),
              "[INFO   ][20261117-00:00:01][fpga]b\n");
}

TEST_F(ElogName, ACutNameWithoutItsWholeDayIsOneFileForSeveralDays) {
    const std::string month = DirOf(200);
    ASSERT_EQ(Init(month, 47), 0);
    FakeClock::Set(20261117, 1);
    LOG_INFO("a");
    EXPECT_THAT(NamesIn(month), ElementsAre(N(47) + "_202611"));
    EXPECT_EQ(WholeFile(month + "/" + N(47) + "_202611"),
              g_first + "[INFO   ][20261117-00:00:01][fpga]a\n");
    FakeClock::Set(20261201, 1);
    LOG_INFO("b");
    EXPECT_THAT(NamesIn(month), ElementsAre(N(47) + "_202611", N(47) + "_202612"));
    elog_log_file_close();

    FakeClock::Set(20261116, 120000);
    const std::string never = DirOf(200);
    ASSERT_EQ(Init(never, 86), 0);
    FakeClock::Set(20261117, 1);
    LOG_INFO("c");
    EXPECT_THAT(NamesIn(never), ElementsAre(N(54)));
    EXPECT_EQ(WholeFile(never + "/" + N(54)), g_first + "[INFO   ][20261117-00:00:01][fpga]c\n");
}

TEST_F(ElogName, ACutNameThatCannotBeOpenedFailsTheStart) {
    const std::string dir = DirOf(200);
    std::filesystem::create_directory(dir + "/" + N(42) + "_20261116.lo");
    EXPECT_EQ(Init(dir, 42), -1);
    EXPECT_EQ(m_error, "Error! Create file " + dir + "/" + N(42) +
                           "_20261116.lo fail, errmsg:Is a directory. \n"
                           "Error! log init fail.\n");
}

}  // namespace
