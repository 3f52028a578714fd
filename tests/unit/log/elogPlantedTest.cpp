// What others have put into the place of the log file. The directory is shared by all users of the
// host: whoever may write there can name any file, but must not lead the service to it.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "fakeClock.h"
#include "log/CRwLogger.h"
#include "log/elog.h"
#include "logCapture.h"
#include "logFiles.h"

namespace {

using velatest::FakeClock;
using velatest::NamesIn;
using velatest::TempDir;
using velatest::WholeFile;

// A descriptor of the test's own.
class Descriptor {
  public:
    Descriptor(const std::string& path, int flags) : m_fd(open(path.c_str(), flags | O_CLOEXEC)) {}
    ~Descriptor() {
        if (m_fd != -1) {
            close(m_fd);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int Get() const { return m_fd; }

  private:
    int m_fd;
};

class ElogPlanted : public testing::Test {
  protected:
    ElogPlanted() {
        FakeClock::Set(20261115, 235958);
        std::ofstream(m_victim) << "theirs\n";
    }

    int Init(const std::string& dir) {
        testing::internal::CaptureStderr();
        const int result = m_logger.Init(0, dir.c_str(), "fpga");
        m_error = testing::internal::GetCapturedStderr();
        return result;
    }
    void ExpectRefused(const std::string& reason) {
        EXPECT_EQ(Init(m_log), -1);
        EXPECT_EQ(m_error, "Error! Create file " + m_log + "/fpga_20261115.log fail, errmsg:" +
                               reason + ". \nError! log init fail.\n");
        EXPECT_FALSE(elog_get_enabled());
    }
    // The service started, the clock moved into the next day.
    void StartAndPassMidnight() {
        ASSERT_EQ(Init(m_log), 0);
        FakeClock::AdvanceSeconds(2);
    }

    TempDir m_dir;
    std::string m_log = m_dir / "log";
    std::string m_victim = m_dir / "victim";
    std::string m_today = m_log + "/fpga_20261115.log";
    std::string m_tomorrow = m_log + "/fpga_20261116.log";
    const bool m_made = std::filesystem::create_directory(m_log);
    CRwLogger m_logger;
    std::string m_error;
};

TEST_F(ElogPlanted, ALinkIsNotFollowed) {
    ASSERT_EQ(symlink(m_victim.c_str(), m_today.c_str()), 0);
    ExpectRefused("Too many levels of symbolic links");
    EXPECT_EQ(WholeFile(m_victim), "theirs\n");
}

TEST_F(ElogPlanted, ALinkToNothingMakesNoFile) {
    ASSERT_EQ(symlink((m_dir / "new").c_str(), m_today.c_str()), 0);
    ExpectRefused("Too many levels of symbolic links");
    EXPECT_FALSE(std::filesystem::exists(m_dir / "new"));
}

TEST_F(ElogPlanted, AFifoNobodyReadsIsRefusedAtOnce) {
    ASSERT_EQ(mkfifo(m_today.c_str(), 0666), 0);
    ExpectRefused("No such device or address");
}

TEST_F(ElogPlanted, AFifoWithAReaderIsRefusedAndClosed) {
    ASSERT_EQ(mkfifo(m_today.c_str(), 0666), 0);
    const Descriptor reader(m_today, O_RDONLY | O_NONBLOCK);
    const std::size_t before = velatest::OpenDescriptors();
    ExpectRefused("No such device or address");
    EXPECT_EQ(velatest::OpenDescriptors(), before);
    char byte = 0;
    EXPECT_EQ(read(reader.Get(), &byte, 1), 0);  // nothing written, no writer left
}

TEST_F(ElogPlanted, ADirectoryIsRefused) {
    std::filesystem::create_directory(m_today);
    ExpectRefused("Is a directory");
}

TEST_F(ElogPlanted, TheDirectoryItselfMayBeALink) {
    ASSERT_EQ(symlink("log", (m_dir / "link").c_str()), 0);
    ASSERT_EQ(Init(m_dir / "link"), 0);
    EXPECT_EQ(WholeFile(m_today),
              "[INFO   ][20261115-23:59:58][log]log is initialized successfully.\n");
}

TEST_F(ElogPlanted, ALinkInTheNextDaysPlaceLeavesStandardOutput) {
    StartAndPassMidnight();
    ASSERT_EQ(symlink(m_victim.c_str(), m_tomorrow.c_str()), 0);
    const velatest::StdoutCapture out;
    testing::internal::CaptureStderr();
    LOG_INFO("a");
    LOG_INFO("b");
    EXPECT_EQ(
        testing::internal::GetCapturedStderr(),
        "Error! Create file " + m_tomorrow + " fail, errmsg:Too many levels of symbolic links. \n");
    EXPECT_EQ(out.Text(),
              "[INFO   ][20261116-00:00:00][fpga]a\n[INFO   ][20261116-00:00:00][fpga]b\n");
    EXPECT_EQ(WholeFile(m_victim), "theirs\n");
    EXPECT_THAT(WholeFile(m_today), testing::Not(testing::HasSubstr("20261116")));
}

TEST_F(ElogPlanted, ASignalHandlersLineFollowsNoLinkAtTheChangeOfDay) {
    StartAndPassMidnight();
    ASSERT_EQ(symlink(m_victim.c_str(), m_tomorrow.c_str()), 0);
    const velatest::StdoutCapture out;
    LOG_WARN_IN_SIGNAL("a", 1, "");
    EXPECT_EQ(out.Text(), "[WARN   ][20261116-00:00:00][fpga]a1\n");
    EXPECT_EQ(WholeFile(m_victim), "theirs\n");
}

TEST_F(ElogPlanted, ASignalHandlersLineGoesIntoNoFifoAtTheChangeOfDay) {
    StartAndPassMidnight();
    ASSERT_EQ(mkfifo(m_tomorrow.c_str(), 0666), 0);
    const Descriptor reader(m_tomorrow, O_RDONLY | O_NONBLOCK);
    const std::size_t before = velatest::OpenDescriptors();
    LOG_WARN_IN_SIGNAL("a", 1, "");
    EXPECT_EQ(velatest::OpenDescriptors(), before);
    char byte = 0;
    EXPECT_EQ(read(reader.Get(), &byte, 1), 0);
}

// Whether every descriptor of the file is closed in a program that the process starts. The file
// must be open.
bool ClosedOnExec(const std::string& path) {
    std::error_code none;
    int found = 0;
    bool closed = true;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        if (std::filesystem::read_symlink(entry.path(), none).string() == path) {
            ++found;
            const int fd = std::stoi(entry.path().filename().string());
            closed = closed && (fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0;
        }
    }
    return found == 1 && closed;
}

TEST_F(ElogPlanted, ProgramsThatTheProcessStartsDoNotInheritTheFile) {
    const std::string dir = std::filesystem::canonical(m_log).string();
    ASSERT_EQ(Init(m_log), 0);
    EXPECT_TRUE(ClosedOnExec(dir + "/fpga_20261115.log"));
    FakeClock::AdvanceSeconds(2);
    LOG_INFO("next day");
    EXPECT_TRUE(ClosedOnExec(dir + "/fpga_20261116.log"));
}

}  // namespace
