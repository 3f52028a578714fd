#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <system_error>

#include "asUser.h"
#include "fakeClock.h"
#include "log/CRwLogger.h"
#include "log/elog.h"
#include "logCapture.h"
#include "logFiles.h"

namespace {

using testing::ElementsAre;
using velatest::FakeClock;
using velatest::NamesIn;
using velatest::TempDir;
using velatest::WholeFile;

const char* const FIRST_LINE =
    "[INFO   ][20261115-23:59:58][log]log is initialized successfully.\n";

class ElogFile : public testing::Test {
  protected:
    ElogFile() { FakeClock::Set(20261115, 235958); }
    ~ElogFile() override { FakeClock::FailLocalTime(false); }

    // Starts the service; what it printed to standard error is kept.
    int Init(const std::string& dir, const char* name = "fpga") {
        testing::internal::CaptureStderr();
        const int result = m_logger->Init(0, dir.c_str(), name);
        m_error = testing::internal::GetCapturedStderr();
        return result;
    }

    TempDir m_dir;
    std::unique_ptr<CRwLogger> m_logger = std::make_unique<CRwLogger>();
    std::string m_error;
};

mode_t ModeOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777;
}

TEST_F(ElogFile, NameIsDirSlashNameAndDate) {
    ASSERT_EQ(Init(m_dir.path() + "/"), 0);  // a slash of the directory is kept
    EXPECT_THAT(NamesIn(m_dir.path()), ElementsAre("fpga_20261115.log"));
    EXPECT_EQ(WholeFile(m_dir / "fpga_20261115.log"), FIRST_LINE);
    EXPECT_EQ(m_error, "");
}

TEST_F(ElogFile, ExistingFileIsAppendedTo) {
    std::ofstream(m_dir / "fpga_20261115.log") << "before\n";
    ASSERT_EQ(Init(m_dir.path()), 0);
    EXPECT_EQ(WholeFile(m_dir / "fpga_20261115.log"), std::string("before\n") + FIRST_LINE);
}

TEST_F(ElogFile, MissingDirectoriesAreMadeWithMode0755) {
    const mode_t before = umask(0);
    EXPECT_EQ(Init(m_dir / "a/b/c"), 0);
    umask(before);
    EXPECT_EQ(ModeOf(m_dir / "a"), 0755U);
    EXPECT_EQ(ModeOf(m_dir / "a/b"), 0755U);
    EXPECT_EQ(ModeOf(m_dir / "a/b/c"), 0755U);
    EXPECT_THAT(NamesIn(m_dir / "a/b/c"), ElementsAre("fpga_20261115.log"));
}

TEST_F(ElogFile, MissingDirectoryWithASlashAtItsEndIsMade) {
    ASSERT_EQ(Init(m_dir / "new/"), 0);
    EXPECT_THAT(NamesIn(m_dir / "new"), ElementsAre("fpga_20261115.log"));
}

TEST_F(ElogFile, RelativeDirectoryIsMade) {
    const TempDir here(TempDir::Enter::yes);
    ASSERT_EQ(Init("x/y"), 0);
    EXPECT_THAT(NamesIn(here / "x/y"), ElementsAre("fpga_20261115.log"));
}

TEST_F(ElogFile, DirectoryThatCannotBeMadeFails) {
    std::ofstream(m_dir / "file") << "x";
    const std::string dir = m_dir / "file/sub";
    EXPECT_EQ(Init(dir), -1);
    EXPECT_EQ(m_error, "Error! make file or log dir:[" + dir +
                           "] failed! Maybe no access authority.use root try again ?\n");
    EXPECT_FALSE(elog_get_enabled());
}

TEST_F(ElogFile, EmptyDirectoryNameFails) {
    EXPECT_EQ(Init(""), -1);
    EXPECT_EQ(m_error,
              "Error! make file or log dir:[] failed! Maybe no access authority.use root try again "
              "?\n");
}

// Components of 100 characters: those that end within the first 512 bytes of the path are made.
TEST_F(ElogFile, OnlyTheFirst512BytesOfThePathAreWalked) {
    std::string dir = m_dir.path();
    std::string walked;
    while (dir.size() <= 700) {
        walked = dir.size() < 511 ? dir : walked;
        dir += "/" + std::string(99, 'd');
    }
    EXPECT_EQ(Init(dir), -1);
    EXPECT_EQ(m_error, "Error! make file or log dir:[" + dir +
                           "] failed! Maybe no access authority.use root try again ?\n");
    EXPECT_TRUE(std::filesystem::is_directory(walked));
    EXPECT_THAT(NamesIn(walked), ElementsAre());
}

TEST_F(ElogFile, DirectoryWithoutWritePermissionFails) {
    const std::string dir = m_dir / "fixed";
    ASSERT_EQ(mkdir(dir.c_str(), 0755), 0);
    ASSERT_EQ(chmod(dir.c_str(), 0555), 0);
    ASSERT_EQ(chmod(m_dir.path().c_str(), 0755), 0);
    testing::internal::CaptureStderr();
    const int status = velatest::RunAsUser([&] {
        const bool failed = m_logger->Init(0, dir.c_str(), "fpga") == -1;
        LOG_ERROR("dropped");  // the output is not enabled
        return failed && !elog_get_enabled() ? 0 : 1;
    });
    EXPECT_EQ(status, 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Error! file or dir: [" + dir +
                  "] already exist and havn't write authority. use root try again ?\n");
    EXPECT_THAT(NamesIn(dir), ElementsAre());
}

TEST_F(ElogFile, ParentWithoutWritePermissionFails) {
    ASSERT_EQ(chmod(m_dir.path().c_str(), 0555), 0);
    const std::string dir = m_dir / "new";
    testing::internal::CaptureStderr();
    const int status =
        velatest::RunAsUser([&] { return m_logger->Init(0, dir.c_str(), "fpga") == -1 ? 0 : 1; });
    EXPECT_EQ(status, 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Error! make file or log dir:[" + dir +
                  "] failed! Maybe no access authority.use root try again ?\n");
    chmod(m_dir.path().c_str(), 0755);
}

TEST_F(ElogFile, FileInTheDirectorysPlaceFails) {
    const std::string dir = m_dir / "file";
    std::ofstream(dir.c_str()) << "x";
    EXPECT_EQ(Init(dir), -1);
    EXPECT_EQ(m_error, "Error! Create file " + dir +
                           "/fpga_20261115.log fail, errmsg:Not a directory. \n"
                           "Error! log init fail.\n");
    testing::internal::CaptureStderr();
    EXPECT_EQ(elog_log_file_init(dir.c_str(), "fpga"), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), m_error);
}

TEST_F(ElogFile, TimeThatCannotBeConvertedFails) {
    FakeClock::FailLocalTime(true);
    EXPECT_EQ(Init(m_dir.path()), -1);
    EXPECT_EQ(m_error, "Error! log init fail.\n");
    EXPECT_THAT(NamesIn(m_dir.path()), ElementsAre());
}

TEST_F(ElogFile, NullArgumentsFail) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(m_logger->Init(0, nullptr, "fpga"), -1);
    EXPECT_EQ(m_logger->Init(0, m_dir.path().c_str(), nullptr), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Error! log init fail.\nError! log init fail.\n");
}

TEST_F(ElogFile, FailedInitCanBeTriedAgain) {
    EXPECT_EQ(Init(""), -1);
    EXPECT_EQ(Init(m_dir.path()), 0);
    EXPECT_EQ(WholeFile(m_dir / "fpga_20261115.log"), FIRST_LINE);
}

TEST_F(ElogFile, PercentSignsInDirAndNameAreOrdinaryCharacters) {
    const std::string dir = m_dir / "%s%n%d";
    ASSERT_EQ(Init(dir, "%s%x%n"), 0);
    EXPECT_THAT(NamesIn(dir), ElementsAre("%s%x%n_20261115.log"));
}

TEST_F(ElogFile, NameOf255BytesIsOpenedWhole) {
    // "<dir>/" + name + "_20261115.log": 255 bytes, and the zero behind them, fill the buffer.
    const std::string name(255 - m_dir.path().size() - 1 - 13, 'n');
    ASSERT_EQ(Init(m_dir.path(), name.c_str()), 0);
    EXPECT_THAT(NamesIn(m_dir.path()), ElementsAre(name + "_20261115.log"));
}

TEST_F(ElogFile, LongerNameIsCutAndOpened) {
    const std::string name(255 - m_dir.path().size() - 1 - 13 + 1, 'n');
    ASSERT_EQ(Init(m_dir.path(), name.c_str()), 0);
    EXPECT_EQ(m_error, "");
    EXPECT_THAT(NamesIn(m_dir.path()), ElementsAre(name + "_20261115.lo"));
    EXPECT_EQ(WholeFile(m_dir / (name + "_20261115.lo")), FIRST_LINE);
}

// The date is cut too: what is left of it names the file, and here the next day's as well.
TEST_F(ElogFile, NameCutInItsDateIsOpened) {
    const std::string name(255 - m_dir.path().size() - 1 - 7, 'n');
    ASSERT_EQ(Init(m_dir.path(), name.c_str()), 0);
    FakeClock::AdvanceSeconds(2);
    LOG_INFO("a");
    EXPECT_THAT(NamesIn(m_dir.path()), ElementsAre(name + "_202611"));
    EXPECT_EQ(WholeFile(m_dir / (name + "_202611")),
              std::string(FIRST_LINE) + "[INFO   ][20261116-00:00:00][fpga]a\n");
}

// Of the pattern, "<dir>/" + name + "_%s.log", 255 bytes are kept. Without the whole "%s" there is
// no date.
TEST_F(ElogFile, PatternCutInItsDateMarkIsTheName) {
    const std::size_t room = 255 - m_dir.path().size() - 1;
    const std::string whole(room - 3, 'w');  // "_%s"
    const std::string half(room - 2, 'h');   // "_%"
    const std::string bare(room - 1, 'b');   // "_"
    ASSERT_EQ(Init(m_dir.path(), whole.c_str()), 0);
    elog_log_file_close();
    ASSERT_EQ(Init(m_dir.path(), half.c_str()), 0);
    elog_log_file_close();
    ASSERT_EQ(Init(m_dir.path(), bare.c_str()), 0);
    EXPECT_EQ(m_error, "");
    EXPECT_THAT(NamesIn(m_dir.path()), ElementsAre(bare + "_", half + "_%", whole + "_20"));
}

TEST_F(ElogFile, PatternCutInTheNameIsTheName) {
    const std::string name(400, 'n');
    const std::string cut(255 - m_dir.path().size() - 1, 'n');
    ASSERT_EQ(Init(m_dir.path(), name.c_str()), 0);
    EXPECT_THAT(NamesIn(m_dir.path()), ElementsAre(cut));
    EXPECT_EQ(WholeFile(m_dir / cut), FIRST_LINE);
}

TEST_F(ElogFile, PatternCutInTheDirectoryNamesAFileBesideIt) {
    std::string dir = m_dir / std::string(150, 'd');
    const std::string cut(255 - dir.size() - 1, 'e');
    const std::string last = cut + "eeee";
    ASSERT_EQ(Init(dir + "/" + last), 0);
    EXPECT_THAT(NamesIn(dir), ElementsAre(cut, last));
    EXPECT_EQ(WholeFile(dir + "/" + cut), FIRST_LINE);
    EXPECT_THAT(NamesIn(dir + "/" + last), ElementsAre());
}

TEST_F(ElogFile, SecondInitKeepsTheFileAndInstallsTheFormatsAgain) {
    ASSERT_EQ(Init(m_dir.path()), 0);
    elog_set_level_format(ELOG_LVL_INFO, 0);
    elog_set_filter_level(ELOG_LVL_ASSERT);
    EXPECT_EQ(Init(m_dir / "other", "other"), 0);
    LOG_INFO("a");
    EXPECT_THAT(NamesIn(m_dir.path()), ElementsAre("fpga_20261115.log"));
    EXPECT_EQ(WholeFile(m_dir / "fpga_20261115.log"),
              std::string(FIRST_LINE) + FIRST_LINE + "[INFO   ][20261115-23:59:58][fpga]a\n");
}

TEST_F(ElogFile, DestructorClosesTheFileAndOutputGoesOnToStandardOutput) {
    ASSERT_EQ(Init(m_dir.path()), 0);
    m_logger.reset();
    const velatest::StdoutCapture out;
    LOG_INFO("after");
    FakeClock::AdvanceSeconds(2);  // a new day opens no file either
    LOG_INFO("next day");
    EXPECT_EQ(out.Text(),
              "[INFO   ][20261115-23:59:58][fpga]after\n"
              "[INFO   ][20261116-00:00:00][fpga]next day\n");
    EXPECT_EQ(WholeFile(m_dir / "fpga_20261115.log"), FIRST_LINE);
    EXPECT_THAT(NamesIn(m_dir.path()), ElementsAre("fpga_20261115.log"));
}

TEST_F(ElogFile, CanBeOpenedAgainAfterTheClose) {
    ASSERT_EQ(Init(m_dir.path()), 0);
    m_logger = std::make_unique<CRwLogger>();
    elog_log_file_close();
    ASSERT_EQ(Init(m_dir / "second"), 0);
    EXPECT_EQ(WholeFile(m_dir / "second/fpga_20261115.log"), FIRST_LINE);
}

TEST_F(ElogFile, FirstLineAfterMidnightGoesIntoTheNewDaysFile) {
    ASSERT_EQ(Init(m_dir.path()), 0);
    FakeClock::AdvanceSeconds(1);
    LOG_INFO("old");
    FakeClock::AdvanceSeconds(1);
    LOG_INFO("new");
    LOG_INFO("newer");
    EXPECT_EQ(WholeFile(m_dir / "fpga_20261115.log"),
              std::string(FIRST_LINE) + "[INFO   ][20261115-23:59:59][fpga]old\n");
    EXPECT_EQ(WholeFile(m_dir / "fpga_20261116.log"),
              "[INFO   ][20261116-00:00:00][fpga]new\n[INFO   ][20261116-00:00:00][fpga]newer\n");
}

// Whether the process has the file open.
bool IsOpen(const std::string& path) {
    std::error_code none;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        if (std::filesystem::read_symlink(entry.path(), none).string() == path) {
            return true;
        }
    }
    return false;
}

TEST_F(ElogFile, OldFileIsClosedAtTheChangeAndTheLastOneAtTheEnd) {
    const std::string dir = std::filesystem::canonical(m_dir.path()).string();
    ASSERT_EQ(Init(dir), 0);
    EXPECT_TRUE(IsOpen(dir + "/fpga_20261115.log"));
    FakeClock::AdvanceSeconds(2);
    LOG_INFO("new");
    EXPECT_FALSE(IsOpen(dir + "/fpga_20261115.log"));
    EXPECT_TRUE(IsOpen(dir + "/fpga_20261116.log"));
    m_logger.reset();
    EXPECT_FALSE(IsOpen(dir + "/fpga_20261116.log"));
}

TEST_F(ElogFile, FirstLineGoesIntoTheFileOpenedAtTheStart) {
    ASSERT_EQ(elog_log_file_init(m_dir.path().c_str(), "fpga"), 0);
    std::filesystem::rename(m_dir / "fpga_20261115.log", m_dir / "moved");
    elog_set_filter_level(ELOG_LVL_VERBOSE);
    elog_start();
    EXPECT_THAT(NamesIn(m_dir.path()), ElementsAre("moved"));
    EXPECT_EQ(WholeFile(m_dir / "moved"), "log is initialized successfully.\n");
}

TEST_F(ElogFile, FileChangesOverMonthAndYear) {
    FakeClock::Set(20261231, 235959);
    ASSERT_EQ(Init(m_dir.path()), 0);
    FakeClock::AdvanceSeconds(1);
    LOG_INFO("a");
    EXPECT_THAT(NamesIn(m_dir.path()), ElementsAre("fpga_20261231.log", "fpga_20270101.log"));
}

TEST_F(ElogFile, ClockSetBackKeepsTheFile) {
    ASSERT_EQ(Init(m_dir.path()), 0);
    FakeClock::Set(20261114, 120000);
    LOG_INFO("back");
    FakeClock::Set(20261115, 120000);
    LOG_INFO("again");
    EXPECT_THAT(NamesIn(m_dir.path()), ElementsAre("fpga_20261115.log"));
    EXPECT_EQ(WholeFile(m_dir / "fpga_20261115.log"),
              std::string(FIRST_LINE) +
                  "[INFO   ][20261114-12:00:00][fpga]back\n"
                  "[INFO   ][20261115-12:00:00][fpga]again\n");
}

TEST_F(ElogFile, DayIsTheMostRecentStampNotTheClock) {
    ASSERT_EQ(Init(m_dir.path()), 0);
    FakeClock::Set(20261116, 1);
    elog_write_raw("unstamped\n");
    EXPECT_THAT(NamesIn(m_dir.path()), ElementsAre("fpga_20261115.log"));
    LOG_INFO("a");
    elog_write_raw("raw\n");
    EXPECT_EQ(WholeFile(m_dir / "fpga_20261116.log"), "[INFO   ][20261116-00:00:01][fpga]a\nraw\n");
}

TEST_F(ElogFile, FailedReopenLeavesStandardOutputAndTheNextDayTriesAgain) {
    const std::string dir = m_dir / "log";
    ASSERT_EQ(Init(dir), 0);
    std::filesystem::remove_all(dir);
    FakeClock::AdvanceSeconds(2);
    const velatest::StdoutCapture out;
    testing::internal::CaptureStderr();
    LOG_INFO("a");
    LOG_INFO("b");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Error! Create file " + dir +
                  "/fpga_20261116.log fail, errmsg:No such file or directory. \n");
    EXPECT_EQ(out.Text(),
              "[INFO   ][20261116-00:00:00][fpga]a\n[INFO   ][20261116-00:00:00][fpga]b\n");
    ASSERT_EQ(mkdir(dir.c_str(), 0755), 0);
    FakeClock::Set(20261117, 0);
    LOG_INFO("c");
    EXPECT_EQ(WholeFile(dir + "/fpga_20261117.log"), "[INFO   ][20261117-00:00:00][fpga]c\n");
    EXPECT_THAT(NamesIn(dir), ElementsAre("fpga_20261117.log"));
}

// The largest size a file may have stands for the end of the disk.
TEST_F(ElogFile, FullDiskLosesTheLineAndNothingElse) {
    constexpr rlim_t full = 1 << 20;
    std::ofstream(m_dir / "fpga_20261115.log").close();
    std::filesystem::resize_file(m_dir / "fpga_20261115.log", full);
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
    limit.rlim_cur = full;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    const velatest::StdoutCapture out;
    ASSERT_EQ(Init(m_dir.path()), 0);
    for (int i = 0; i < 100; ++i) {
        LOG_INFO("%s", std::string(200, 'x').c_str());
    }
    FakeClock::AdvanceSeconds(2);
    LOG_INFO("next day");
    EXPECT_EQ(m_error, "");
    EXPECT_EQ(std::filesystem::file_size(m_dir / "fpga_20261115.log"), full);
    EXPECT_EQ(WholeFile(m_dir / "fpga_20261116.log"),
              "[INFO   ][20261116-00:00:00][fpga]next day\n");
    EXPECT_EQ(out.Text().size(),
              std::string(FIRST_LINE).size() + std::size_t{100} * (34 + 200 + 1) + 34 + 8 + 1);
}

TEST_F(ElogFile, StandardOutputIsUnbufferedAfterInit) {
    const velatest::StdoutCapture out;
    ASSERT_EQ(Init(m_dir.path()), 0);
    struct stat before {};
    struct stat after {};
    ASSERT_EQ(fstat(STDOUT_FILENO, &before), 0);
    std::printf("x");
    ASSERT_EQ(fstat(STDOUT_FILENO, &after), 0);
    EXPECT_EQ(after.st_size - before.st_size, 1);
}

TEST(ILogger, DestructorsAreTheFirstSlotsAndInitTheNext) {
    // Two slots belong to the destructor (complete, deleting); Init is the third.
    const TempDir dir;
    CRwLogger logger;
    using Init = int (*)(CRwLogger*, int, const char*, const char*);
    void** table = nullptr;  // the object holds nothing but the pointer to its slots
    std::memcpy(&table, static_cast<void*>(&logger), sizeof(table));
    EXPECT_EQ(sizeof(CRwLogger), sizeof(void*));
    EXPECT_EQ(reinterpret_cast<Init>(table[2])(&logger, 7, dir.path().c_str(), "slot"), 0);
    EXPECT_EQ(NamesIn(dir.path()).size(), 1U);
}

}  // namespace
