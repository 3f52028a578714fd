#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <string>
#include <thread>

#include "SignalProcess.h"
#include "fakeClock.h"
#include "log/CRwLogger.h"
#include "log/elog.h"
#include "logCapture.h"
#include "logFiles.h"

namespace {

bool s_logWhileOpening = false;
bool s_signalWhileOpening = false;
bool s_closeWhileOpening = false;
int s_openings = 0;

bool IsHeldBack(int sig) {
    sigset_t mask;
    sigemptyset(&mask);
    EXPECT_EQ(pthread_sigmask(SIG_BLOCK, nullptr, &mask), 0);
    return sigismember(&mask, sig) == 1;
}

}  // namespace

// The program is linked with --wrap=open: a log line, or a signal, can come in the middle of a
// rotation.
// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
extern "C" int __real_open(const char* path, int flags, ...);
extern "C" int __wrap_open(const char* path, int flags, mode_t mode) {
    ++s_openings;
    if (s_logWhileOpening) {
        s_logWhileOpening = false;
        EXPECT_EQ(flags, O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
        EXPECT_EQ(mode, 0666U);
        EXPECT_FALSE(IsHeldBack(SIGINT));
        EXPECT_FALSE(IsHeldBack(SIGTERM));
        EXPECT_FALSE(IsHeldBack(SIGSEGV));
        LOG_WARN("inside");
    }
    if (s_signalWhileOpening) {
        s_signalWhileOpening = false;
        raise(SIGINT);
    }
    if (s_closeWhileOpening) {
        s_closeWhileOpening = false;
        std::thread(elog_log_file_close).join();
    }
    return __real_open(path, flags, mode);
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

TEST(ElogRotating, LineFromWithinTheRotationIsDroppedFromTheFileWithANotice) {
    const velatest::TempDir dir;
    velatest::FakeClock::Set(20261115, 235959);
    CRwLogger logger;
    ASSERT_EQ(logger.Init(0, dir.path().c_str(), "fpga"), 0);
    velatest::FakeClock::AdvanceSeconds(1);
    const velatest::StdoutCapture out;
    s_logWhileOpening = true;
    LOG_INFO("outside");
    LOG_INFO("after");
    EXPECT_EQ(out.Text(),
              "[INFO   ][20261116-00:00:00][fpga]outside\n"
              "[WARN   ][20261116-00:00:00][fpga]inside\n"
              "======================log file is rotating, exit log file!===================\n"
              "[INFO   ][20261116-00:00:00][fpga]after\n");
    // The line that caused the rotation keeps its text.
    EXPECT_EQ(velatest::WholeFile(dir / "fpga_20261116.log"),
              "[INFO   ][20261116-00:00:00][fpga]outside\n"
              "[INFO   ][20261116-00:00:00][fpga]after\n");
}

TEST(ElogRotating, TheNewDaysFileIsOpenedOnce) {
    const velatest::TempDir dir;
    velatest::FakeClock::Set(20261115, 235959);
    CRwLogger logger;
    ASSERT_EQ(logger.Init(0, dir.path().c_str(), "fpga"), 0);
    velatest::FakeClock::AdvanceSeconds(1);
    s_openings = 0;
    LOG_INFO("first");
    LOG_INFO("second");
    LOG_INFO("third");
    EXPECT_EQ(s_openings, 1);
}

// The handler finds the lock taken and the day's file about to be opened by the thread that it
// interrupts.
TEST(ElogRotating, LineOfASignalInTheRotationGoesIntoTheNewDaysFile) {
    const velatest::TempDir dir;
    velatest::FakeClock::Set(20261115, 235959);
    CRwLogger logger;
    ASSERT_EQ(logger.Init(0, dir.path().c_str(), "fpga"), 0);
    ASSERT_EQ(CSignalProcess::InitSignal(), 0);
    LOG_INFO("old");
    velatest::FakeClock::AdvanceSeconds(1);
    const std::size_t descriptors = velatest::OpenDescriptors();
    s_signalWhileOpening = true;
    LOG_INFO("outside");
    LOG_INFO("after");
    EXPECT_EQ(velatest::WholeFile(dir / "fpga_20261116.log"),
              "[WARN   ][20261116-00:00:00][fpga]Received signal 2 !!\n"
              "[INFO   ][20261116-00:00:00][fpga]outside\n"
              "[INFO   ][20261116-00:00:00][fpga]after\n");
    EXPECT_EQ(velatest::OpenDescriptors(), descriptors);
    EXPECT_EQ(CSignalProcess::m_isExit, 1);
}

// A handler of one thread is at the file while another closes the log: the descriptor that it knows
// must not become anybody else's.
TEST(ElogRotating, CloseLeavesTheDescriptorToAHandlerThatIsAtTheFile) {
    const velatest::TempDir dir;
    velatest::FakeClock::Set(20261115, 120000);
    CRwLogger logger;
    const std::size_t before = velatest::OpenDescriptors();
    ASSERT_EQ(logger.Init(0, dir.path().c_str(), "fpga"), 0);
    velatest::FakeClock::Set(20261116, 120000);
    s_closeWhileOpening = true;
    CSignalProcess::SignalHandler(SIGINT, nullptr, nullptr);
    EXPECT_EQ(velatest::OpenDescriptors(), before + 1);
    LOG_INFO("to standard output alone");
    EXPECT_EQ(velatest::WholeFile(dir / "fpga_20261116.log"),
              "[WARN   ][20261116-12:00:00][fpga]Received signal 2 !!\n");
    elog_log_file_close();
    EXPECT_EQ(velatest::OpenDescriptors(), before);
}

TEST(ElogRotating, StartAfterSuchACloseTakesTheDescriptorOver) {
    const velatest::TempDir dir;
    velatest::FakeClock::Set(20261115, 120000);
    CRwLogger logger;
    ASSERT_EQ(logger.Init(0, dir.path().c_str(), "fpga"), 0);
    const std::size_t open = velatest::OpenDescriptors();
    velatest::FakeClock::Set(20261116, 120000);
    s_closeWhileOpening = true;
    CSignalProcess::SignalHandler(SIGINT, nullptr, nullptr);
    ASSERT_EQ(logger.Init(0, (dir / "second").c_str(), "fpga"), 0);
    EXPECT_EQ(velatest::OpenDescriptors(), open);
    EXPECT_EQ(velatest::WholeFile(dir / "second/fpga_20261116.log"),
              "[INFO   ][20261116-12:00:00][log]log is initialized successfully.\n");
}

}  // namespace
