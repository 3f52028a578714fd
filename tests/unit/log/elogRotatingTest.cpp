#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <string>

#include "fakeClock.h"
#include "log/CRwLogger.h"
#include "log/elog.h"
#include "logCapture.h"
#include "logFiles.h"

namespace {

bool s_logWhileOpening = false;

bool IsHeldBack(int sig) {
    sigset_t mask;
    sigemptyset(&mask);
    EXPECT_EQ(pthread_sigmask(SIG_BLOCK, nullptr, &mask), 0);
    return sigismember(&mask, sig) == 1;
}

}  // namespace

// The program is linked with --wrap=fopen: a log line can come in the middle of a rotation.
// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
extern "C" std::FILE* __real_fopen(const char* path, const char* mode);
extern "C" std::FILE* __wrap_fopen(const char* path, const char* mode) {
    if (s_logWhileOpening) {
        s_logWhileOpening = false;
        EXPECT_STREQ(mode, "ab");
        EXPECT_TRUE(IsHeldBack(SIGINT));
        EXPECT_TRUE(IsHeldBack(SIGTERM));
        LOG_WARN("inside");
    }
    return __real_fopen(path, mode);
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
    EXPECT_FALSE(IsHeldBack(SIGINT));
    LOG_INFO("after");
    EXPECT_EQ(out.Text(),
              "[INFO   ][20261116-00:00:00][fpga]outside\n"
              "[WARN   ][20261116-00:00:00][fpga]inside\n"
              "======================log file is rotating, exit log file!===================\n"
              "[INFO   ][20261116-00:00:00][fpga]after\n");
    // The line that caused the rotation keeps its text.
    EXPECT_EQ(velatest::FileText(dir / "fpga_20261116.log"),
              "[INFO   ][20261116-00:00:00][fpga]outside\n"
              "[INFO   ][20261116-00:00:00][fpga]after\n");
}

}  // namespace
