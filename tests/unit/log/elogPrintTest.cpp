#include <gtest/gtest.h>
#include <sys/uio.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include "log/CRwLogger.h"
#include "log/elog.h"
#include "logCapture.h"

namespace {

int s_error = 0;  // of the next writes that would not wait; 0: they are made
int s_failures = 0;
int s_calls = 0;

}  // namespace

// The program is linked with --wrap=pwritev2: what a kernel or a descriptor that does not know a
// write without waiting says to it. Otherwise every descriptor takes it here.
// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
extern "C" ssize_t __wrap_pwritev2(int fd, const iovec* pieces, int count, off_t offset,
                                   int flags) {
    EXPECT_EQ(offset, -1);
    EXPECT_EQ(flags, RWF_NOWAIT);
    ++s_calls;
    if (s_failures > 0) {
        --s_failures;
        errno = s_error;
        return -1;
    }
    return writev(fd, pieces, count);
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

// Each test is a process of its own.
class ElogPrint : public testing::Test {
  protected:
    ElogPrint() {
        EXPECT_EQ(m_logger.Init(0, m_dir.path().c_str(), "fpga"), 0);
        s_calls = 0;
    }

    // What stands on standard output after two lines: the texts without their headers.
    static std::string TwoLines() {
        const velatest::StdoutCapture out;
        LOG_INFO("first");
        LOG_INFO("second");
        std::string texts;
        const std::string whole = out.Text();
        for (const char* text : {"[fpga]first\n", "[fpga]second\n"}) {
            texts += whole.find(text) != std::string::npos ? text : "";
        }
        return texts;
    }
    static constexpr const char* both = "[fpga]first\n[fpga]second\n";

    velatest::TempDir m_dir;
    CRwLogger m_logger;
};

TEST_F(ElogPrint, WhereAWriteWithoutWaitingIsUnknownItIsTriedOnce) {
    for (const int error : {EOPNOTSUPP, EINVAL, ENOSYS, EPERM}) {
        EXPECT_EXIT(
            {
                s_error = error;
                s_failures = 1;
                s_calls = 0;
                const bool bWritten = TwoLines() == both;
                std::exit(bWritten && s_calls == 1 ? 0 : 1);
            },
            testing::ExitedWithCode(0), "")
            << error;
    }
}

TEST_F(ElogPrint, AWriteThatWouldWaitIsMadeWhenItNeedNot) {
    s_error = EAGAIN;
    s_failures = 1;
    EXPECT_EQ(TwoLines(), both);
    EXPECT_EQ(s_failures, 0);
}

TEST_F(ElogPrint, AnInterruptedWriteIsMadeAgain) {
    s_error = EINTR;
    s_failures = 3;
    EXPECT_EQ(TwoLines(), both);
    EXPECT_EQ(s_failures, 0);
}

TEST_F(ElogPrint, AFailedLineIsLeftOutAndTheNextIsTried) {
    s_error = EIO;
    s_failures = 1;
    EXPECT_EQ(TwoLines(), "[fpga]second\n");
}

}  // namespace
