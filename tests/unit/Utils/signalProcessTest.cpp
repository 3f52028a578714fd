#include "SignalProcess.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <string>
#include <type_traits>
#include <vector>

#include "logCapture.h"

namespace {

struct Asked {
    int sig;
    int flags;
    bool isMaskEmpty;
    bool isHandler;
    bool isIgnore;
};
std::vector<Asked> s_asked;
bool s_isRecording = false;
int s_failing = 0;  // the signal whose sigaction fails
int s_writes = 0;
int s_writesBeforeTheFlag = 0;

bool IsEmpty(const sigset_t& mask) {
    for (int sig = 1; sig < NSIG; ++sig) {
        if (sigismember(&mask, sig) == 1) {
            return false;
        }
    }
    return true;
}

}  // namespace

// The program is linked with --wrap for each of these.
// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
extern "C" int __real_sigaction(int sig, const struct sigaction* now, struct sigaction* before);
extern "C" int __wrap_sigaction(int sig, const struct sigaction* now, struct sigaction* before) {
    if (s_isRecording) {
        s_asked.push_back({sig, now->sa_flags, IsEmpty(now->sa_mask),
                           now->sa_sigaction == &CSignalProcess::SignalHandler,
                           now->sa_handler == SIG_IGN});
        if (sig == s_failing) {
            errno = EINVAL;
            return -1;
        }
    }
    return __real_sigaction(sig, now, before);
}

extern "C" ssize_t __real_write(int file, const void* bytes, std::size_t size);
extern "C" ssize_t __wrap_write(int file, const void* bytes, std::size_t size) {
    ++s_writes;
    s_writesBeforeTheFlag += CSignalProcess::m_isExit == 0 ? 1 : 0;
    return __real_write(file, bytes, size);
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

using Lines = std::vector<std::string>;

class SignalProcess : public testing::Test {
  protected:
    SignalProcess() {
        s_asked.clear();
        s_isRecording = true;
    }
    ~SignalProcess() override {
        s_isRecording = false;
        s_failing = 0;
        CSignalProcess::m_isExit = 0;
        for (const int sig : {SIGINT, SIGTERM, SIGPIPE}) {
            std::signal(sig, SIG_DFL);
        }
    }
    velatest::LogCapture m_log;
};

TEST(SignalProcessAtLoad, ExitFlagIsOneByteAndZero) {
    static_assert(sizeof(CSignalProcess::m_isExit) == 1);
    static_assert(std::is_empty_v<CSignalProcess>);
    EXPECT_EQ(CSignalProcess::m_isExit, 0);
}

TEST_F(SignalProcess, InstallsIntTermAndPipeInThisOrder) {
    ASSERT_EQ(CSignalProcess::InitSignal(), 0);
    ASSERT_EQ(s_asked.size(), 3U);
    const std::array<int, 3> order = {SIGINT, SIGTERM, SIGPIPE};
    for (std::size_t i = 0; i < order.size(); ++i) {
        EXPECT_EQ(s_asked[i].sig, order[i]);
        EXPECT_EQ(s_asked[i].flags, SA_SIGINFO);
        EXPECT_TRUE(s_asked[i].isMaskEmpty);
        EXPECT_EQ(s_asked[i].isHandler, i < 2);
        EXPECT_EQ(s_asked[i].isIgnore, i == 2);
    }
    EXPECT_EQ(m_log.Lines(), Lines{});
    EXPECT_EQ(CSignalProcess::m_isExit, 0);
}

TEST_F(SignalProcess, FailureIsLoggedAndEndsTheInstallation) {
    const struct {
        int sig;
        std::size_t asked;
        const char* line;
    } cases[] = {{SIGINT, 1, "ERROR Failed to install SIGINT handle! msg:Invalid argument."},
                 {SIGTERM, 2, "ERROR Failed to install SIGTERM handle! msg:Invalid argument."},
                 {SIGPIPE, 3, "ERROR Failed to install SIGPIPE handle! msg:Invalid argument."}};
    for (const auto& at : cases) {
        s_asked.clear();
        m_log.Clear();
        s_failing = at.sig;
        EXPECT_EQ(CSignalProcess::InitSignal(), -1);
        EXPECT_EQ(s_asked.size(), at.asked);
        EXPECT_EQ(m_log.Lines(), Lines{at.line});
    }
}

TEST_F(SignalProcess, SigintSetsTheFlagAndTheProcessGoesOn) {
    ASSERT_EQ(CSignalProcess::InitSignal(), 0);
    raise(SIGINT);
    EXPECT_EQ(CSignalProcess::m_isExit, 1);
    EXPECT_EQ(m_log.Lines(), Lines{"WARN Received signal 2 !!"});
}

TEST_F(SignalProcess, FlagIsSetBeforeTheLineGoesOut) {
    s_writes = 0;
    s_writesBeforeTheFlag = 0;
    CSignalProcess::SignalHandler(SIGINT, nullptr, nullptr);
    EXPECT_EQ(s_writes, 2);  // one to standard output, one to the file
    EXPECT_EQ(s_writesBeforeTheFlag, 0);
}

TEST_F(SignalProcess, SecondSignalOnlyLogsAgain) {
    ASSERT_EQ(CSignalProcess::InitSignal(), 0);
    raise(SIGINT);
    raise(SIGINT);
    raise(SIGTERM);
    EXPECT_EQ(CSignalProcess::m_isExit, 1);
    EXPECT_EQ(m_log.Lines(), (Lines{"WARN Received signal 2 !!", "WARN Received signal 2 !!",
                                    "WARN Received signal 15 !!"}));
}

TEST_F(SignalProcess, SigtermSetsTheFlag) {
    ASSERT_EQ(CSignalProcess::InitSignal(), 0);
    raise(SIGTERM);
    EXPECT_EQ(CSignalProcess::m_isExit, 1);
    EXPECT_EQ(m_log.Lines(), Lines{"WARN Received signal 15 !!"});
}

TEST_F(SignalProcess, SigpipeIsIgnored) {
    ASSERT_EQ(CSignalProcess::InitSignal(), 0);
    raise(SIGPIPE);
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    close(ends[0]);
    EXPECT_EQ(write(ends[1], "x", 1), -1);
    EXPECT_EQ(errno, EPIPE);
    close(ends[1]);
    EXPECT_EQ(CSignalProcess::m_isExit, 0);
    EXPECT_EQ(m_log.Lines(), Lines{});
}

TEST_F(SignalProcess, HandlerKeepsErrno) {
    const int output = dup(STDOUT_FILENO);
    ASSERT_EQ(close(STDOUT_FILENO), 0);  // the line's way there fails with EBADF
    errno = EDOM;
    CSignalProcess::SignalHandler(SIGINT, nullptr, nullptr);
    const int after = errno;
    dup2(output, STDOUT_FILENO);
    close(output);
    EXPECT_EQ(after, EDOM);
    EXPECT_EQ(m_log.Lines(), Lines{"WARN Received signal 2 !!"});
}

}  // namespace
