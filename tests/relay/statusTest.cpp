// Lines that nobody reads.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "relay-tool/Ending.h"

namespace ZceRelay {
namespace {

// In a child whose standard output is this file: its exit status, or minus the signal that ended
// it.
int TellInto(int output) {
    const pid_t child = fork();
    if (child == 0) {
        alarm(10);
        dup2(output, STDOUT_FILENO);
        setvbuf(stdout, nullptr, _IONBF, 0);
        TellStatus("zce-relay status\n");
        TellStatus("zce-relay status\n");
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

TEST(RelayStatus, WaitsForNoReader) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    EXPECT_EQ(TellInto(ends[1]), 0);
    char said[64] = {};
    EXPECT_EQ(read(ends[0], said, sizeof(said)), 34);
    EXPECT_STREQ(said, "zce-relay status\nzce-relay status\n");
    ASSERT_EQ(fcntl(ends[1], F_SETFL, O_NONBLOCK), 0);
    while (write(ends[1], said, sizeof(said)) > 0) {}
    ASSERT_EQ(fcntl(ends[1], F_SETFL, 0), 0);
    EXPECT_EQ(TellInto(ends[1]), 0);
    close(ends[0]);
    close(ends[1]);
}

TEST(RelayStatus, ATerminalThatHasGoneEndsNothing) {
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_TRUE(grantpt(terminal) == 0 && unlockpt(terminal) == 0);
    const int output = open(ptsname(terminal), O_RDWR | O_NOCTTY);
    ASSERT_GE(output, 0);
    close(terminal);
    EXPECT_EQ(TellInto(output), 0);
    close(output);
}

}  // namespace
}  // namespace ZceRelay
