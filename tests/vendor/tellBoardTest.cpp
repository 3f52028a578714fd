// What the library says on standard error of the board that it opens, whatever standard error is.

#include <fcntl.h>
#include <sys/socket.h>

#include <csignal>
#include <string>
#include <vector>

#include "tests/vendor/libraryFixture.h"

namespace {

using boardtest::InChild;

class TellBoard : public boardtest::LibraryFixture {
  protected:
    TellBoard() {
        unsetenv("ZCE_BOARD_QUIET");
        EXPECT_EQ(pipe2(m_pipe, O_CLOEXEC), 0);
        m_line = Line(0);
    }
    ~TellBoard() override {
        close(m_pipe[0]);
        close(m_pipe[1]);
    }

    static std::string Line(uint32_t bus) {
        return "libenyx-hw-c: this is the software board, bus " + std::to_string(bus) +
               ", zce-board process " + std::to_string(getpid()) + "\n";
    }
    // A child that opens the board with `output` as its standard error. 0: it got it, and errno is
    // as before.
    static int OpenWith(int output, uint32_t bus = 0) {
        return InChild([output, bus] {
            alarm(20);  // whoever waits is ended
            dup2(output, STDERR_FILENO);
            return Opens(bus) ? 0 : 1;
        });
    }
    static bool Opens(uint32_t bus) {
        enyx_hw_accelerator_descriptor* descriptor = nullptr;
        enyx_hw_filter* filter = enyx_hw_filter_create();
        enyx_hw_filter_set_index(filter, bus);
        const int found = enyx_hw_enumerate_accelerators(filter, &descriptor, 1);
        errno = 77;
        return found == 1 && enyx_hw_accelerator_get(descriptor) != nullptr && errno == 77;
    }
    // What is in a pipe or a socket just now.
    static std::string Taken(int file) {
        fcntl(file, F_SETFL, O_NONBLOCK);
        std::string text;
        std::array<char, 4096> bytes{};
        for (ssize_t got = 0; (got = read(file, bytes.data(), bytes.size())) > 0;) {
            text.append(bytes.data(), static_cast<size_t>(got));
        }
        return text;
    }
    static void Fill(int file) {
        const int flags = fcntl(file, F_GETFL);
        fcntl(file, F_SETFL, flags | O_NONBLOCK);
        const std::vector<char> block(4096, 'x');
        while (write(file, block.data(), block.size()) > 0) {}
        while (write(file, block.data(), 1) > 0) {}
        fcntl(file, F_SETFL, flags);
    }

    std::unique_ptr<ZceBoard::CBoardMemory> m_memory = MakeBoard();
    int m_pipe[2] = {-1, -1};
    std::string m_line;
};

TEST_F(TellBoard, WhichItIsOnceInAProcess) {
    const auto second = MakeBoard(3);
    EXPECT_EQ(InChild([this] {
                  dup2(m_pipe[1], STDERR_FILENO);
                  return Opens(3) && Opens(3) && Opens(0) ? 0 : 1;
              }),
              0);
    EXPECT_EQ(Taken(m_pipe[0]), Line(3));
}

TEST_F(TellBoard, NothingIfItIsToldToBeQuiet) {
    setenv("ZCE_BOARD_QUIET", "1", 1);
    EXPECT_EQ(OpenWith(m_pipe[1]), 0);
    EXPECT_EQ(Taken(m_pipe[0]), "");
    setenv("ZCE_BOARD_QUIET", "0", 1);
    EXPECT_EQ(OpenWith(m_pipe[1]), 0);
    EXPECT_EQ(Taken(m_pipe[0]), m_line);
}

TEST_F(TellBoard, NothingBeforeABoardIsOpened) {
    EXPECT_EQ(InChild([this] {
                  dup2(m_pipe[1], STDERR_FILENO);
                  enyx_hw_accelerator_descriptor* none = nullptr;
                  return enyx_hw_enumerate_accelerators(enyx_hw_filter_create(), &none, 0);
              }),
              1);
    EXPECT_EQ(OpenWith(m_pipe[1], 4), 1);  // there is none
    EXPECT_EQ(Taken(m_pipe[0]), "");
}

TEST_F(TellBoard, APipeThatIsFullIsNotWaitedForAndNobodyElseIsMadeNotToWait) {
    Fill(m_pipe[1]);
    EXPECT_EQ(OpenWith(m_pipe[1]), 0);
    EXPECT_EQ(fcntl(m_pipe[1], F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(Taken(m_pipe[0]).find_first_not_of('x'), std::string::npos);
}

TEST_F(TellBoard, APipeThatNobodyReadsEndsNobody) {
    close(m_pipe[0]);
    m_pipe[0] = -1;
    EXPECT_EQ(OpenWith(m_pipe[1]), 0);
    // An application's own signal that waits goes on waiting.
    EXPECT_EQ(InChild([this] {
                  sigset_t signals;
                  sigemptyset(&signals);
                  sigaddset(&signals, SIGPIPE);
                  sigprocmask(SIG_BLOCK, &signals, nullptr);
                  raise(SIGPIPE);
                  dup2(m_pipe[1], STDERR_FILENO);
                  const bool opened = Opens(0);
                  sigpending(&signals);
                  return opened && sigismember(&signals, SIGPIPE) == 1 ? 0 : 1;
              }),
              0);
}

TEST_F(TellBoard, APipeOfAnotherUserGetsItIfThereIsRoomJustNow) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can become another user";
    }
    m_memory.reset();
    // The pipe cannot be opened anew then.
    const auto asOther = [this] {
        return InChild([this] {
            alarm(20);
            if (setgid(65534) != 0 || setuid(65534) != 0) {
                return 99;
            }
            const auto own = MakeBoard();
            dup2(m_pipe[1], STDERR_FILENO);
            return Opens(0) ? 0 : 1;
        });
    };
    EXPECT_EQ(asOther(), 0);
    const std::string told = Taken(m_pipe[0]);
    EXPECT_EQ(told.find("libenyx-hw-c: this is the software board, bus 0, zce-board process "), 0U);
    Fill(m_pipe[1]);
    EXPECT_EQ(asOther(), 0);
    EXPECT_EQ(Taken(m_pipe[0]).find_first_not_of('x'), std::string::npos);
    close(m_pipe[0]);
    m_pipe[0] = -1;
    EXPECT_EQ(asOther(), 0);
}

TEST_F(TellBoard, ASocketThatIsFullOrClosedIsNotWaitedForEither) {
    int ends[2] = {-1, -1};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    EXPECT_EQ(OpenWith(ends[1]), 0);
    EXPECT_EQ(Taken(ends[0]), m_line);
    Fill(ends[1]);
    EXPECT_EQ(OpenWith(ends[1]), 0);
    EXPECT_EQ(Taken(ends[0]).find_first_not_of('x'), std::string::npos);
    close(ends[0]);
    EXPECT_EQ(OpenWith(ends[1]), 0);
    close(ends[1]);
}

TEST_F(TellBoard, AFileGetsItBehindWhatIsThere) {
    FILE* const file = tmpfile();
    ASSERT_NE(file, nullptr);
    ASSERT_EQ(write(fileno(file), "before\n", 7), 7);
    EXPECT_EQ(OpenWith(fileno(file)), 0);
    ASSERT_EQ(write(fileno(file), "after\n", 6), 6);
    lseek(fileno(file), 0, SEEK_SET);
    EXPECT_EQ(Taken(fileno(file)), "before\n" + m_line + "after\n");
    fclose(file);
}

TEST_F(TellBoard, WithoutAStandardErrorTheBoardIsOpenedAllTheSame) {
    EXPECT_EQ(InChild([] {
                  close(STDERR_FILENO);
                  return Opens(0) ? 0 : 1;
              }),
              0);
    // The next file that is opened then, the board's, gets no line written over it.
    EXPECT_EQ(InChild([] {
                  close(STDERR_FILENO);
                  const std::string name = "/dev/shm/" + ZceBoard::ShmName(0).substr(1);
                  const int file = open(name.c_str(), O_RDWR | O_CLOEXEC);
                  return file == STDERR_FILENO && Opens(0) ? 0 : 1;
              }),
              0);
    EXPECT_EQ(m_memory->Shm().header.magic.load(), ZceBoard::SHM_MAGIC);
    const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
    EXPECT_EQ(OpenWith(full), 0);
    close(full);
}

}  // namespace
