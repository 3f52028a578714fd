#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <chrono>
#include <cstring>
#include <fstream>
#include <memory>
#include <numeric>
#include <random>
#include <sstream>
#include <thread>
#include <vector>

#include "memory/Control.h"
#include "sanitizers.h"
#include "tests/vendor/libraryFixture.h"

// A real zce-board, and a process that writes over its memory what it likes.
namespace {

using std::chrono::milliseconds;
using ZceBoard::CBoardMemory;

constexpr int SCRIBBLES = 20'000;

std::string Content(const std::string& path) {
    std::ifstream file(path);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

// A forked child whose standard output and error are a file.
class Child {
  public:
    template <class Work>
    Child(const std::string& output, Work work) {
        m_pid = fork();
        if (m_pid == 0) {
            const int file = open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
            dup2(file, STDOUT_FILENO);
            dup2(file, STDERR_FILENO);
            const rlimit none{0, 0};
            setrlimit(RLIMIT_CORE, &none);
            _exit(work());
        }
    }
    ~Child() {
        if (m_pid > 0) {
            End(SIGKILL);
        }
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    bool Runs() {
        if (m_pid > 0 && waitpid(m_pid, &m_status, WNOHANG) == m_pid) {
            m_pid = -1;
        }
        return m_pid > 0;
    }
    pid_t Pid() const { return m_pid; }
    // Its exit status, or minus the signal that ended it; it is killed after 20 seconds.
    int End(int signal) {
        if (Runs() && signal != 0) {
            kill(m_pid, signal);
        }
        for (int k = 0; k < 4000 && Runs(); ++k) {
            std::this_thread::sleep_for(milliseconds(5));
        }
        if (Runs()) {
            kill(m_pid, SIGKILL);
            waitpid(m_pid, &m_status, 0);
            m_pid = -1;
        }
        return WIFEXITED(m_status) ? WEXITSTATUS(m_status) : -WTERMSIG(m_status);
    }

  private:
    pid_t m_pid = -1;
    int m_status = 0;
};

class HostileProcess : public boardtest::LibraryFixture {
  protected:
    HostileProcess() {
        setenv("ZCE_BOARD_QUIET", "1", 1);
        std::string pattern = testing::TempDir() + "/zcehostile.XXXXXX";
        m_dir = mkdtemp(pattern.data());
        m_board = StartBoard("board");
    }
    ~HostileProcess() override {
        m_receiver.reset();
        m_board.reset();
        for (const char* name : {"board", "second", "receiver"}) {
            unlink((m_dir + "/" + name).c_str());
        }
        rmdir(m_dir.c_str());
    }

    std::unique_ptr<Child> StartBoard(const std::string& output) {
        auto child = std::make_unique<Child>(m_dir + "/" + output, [] {
            execl(ZCE_BOARD_PROGRAM, ZCE_BOARD_PROGRAM, "--products", "all", nullptr);
            return 127;
        });
        EXPECT_TRUE(WaitFor(output, "ready")) << Content(m_dir + "/" + output);
        return child;
    }
    bool WaitFor(const std::string& output, const std::string& text) const {
        for (int k = 0; k < 4000; ++k) {
            if (Content(m_dir + "/" + output).find(text) != std::string::npos) {
                return true;
            }
            std::this_thread::sleep_for(milliseconds(5));
        }
        return false;
    }
    // Polls channel 0, reads and writes registers, and takes messages of any content, for ever.
    void StartReceiver() {
        m_receiver = std::make_unique<Child>(m_dir + "/receiver", [] {
            enyx_hw_accelerator* accelerator = Accelerator();
            enyx_hw_core* core = nullptr;
            enyx_hw_core_enumerate(
                enyx_hw_core_tree_get_root(enyx_hw_enumerate_cores(Mmio(accelerator))), 474, &core,
                1);
            enyx_hw_a2c_stream* stream = OpenA2c(accelerator, "CUSTOM_CHAN0_DATA");
            if (core == nullptr || stream == nullptr) {
                return 3;
            }
            puts("polling");
            fflush(stdout);
            const enyx_hw_register_description word{4UL * 0x11, 0, 32};
            for (uint64_t poll = 0;; ++poll) {
                enyx_hw_a2c_stream_poll_once(
                    stream,
                    [](const unsigned char* data, uint32_t size, void* sum) {
                        *static_cast<uint32_t*>(sum) += std::accumulate(data, data + size, 0U);
                    },
                    &g_sum);
                if (poll % 4096 == 0) {
                    uint64_t value = 0;
                    enyx_hw_read(core, &word, &value);
                    enyx_hw_write(core, &word, 3);
                }
            }
        });
        ASSERT_TRUE(WaitFor("receiver", "polling")) << Content(m_dir + "/receiver");
    }
    // Writes words of a seeded random content over the memory: where nearly everything lies that
    // somebody acts upon, and anywhere.
    void Scribble(uint32_t seed) const {
        const int file = open(ShmPath().c_str(), O_RDWR | O_CLOEXEC);
        struct stat st {};
        ASSERT_EQ(fstat(file, &st), 0);
        const auto size = static_cast<size_t>(st.st_size);
        void* mem = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
        ASSERT_NE(mem, MAP_FAILED);
        auto& shm = *static_cast<ZceBoard::BoardShm*>(mem);
        auto* const words = static_cast<uint32_t*>(mem);
        std::mt19937 random(seed);
        for (int k = 0; k < SCRIBBLES; ++k) {
            const auto words32 = [](const auto& part) { return sizeof(part) / sizeof(uint32_t); };
            uint32_t* from = words;
            size_t count = size / sizeof(uint32_t);
            switch (random() % 6) {
                case 0:
                    count = words32(shm.header) + words32(shm.faults) + words32(shm.stats) +
                            words32(shm.control);
                    break;
                case 1:
                    from = reinterpret_cast<uint32_t*>(&shm.a2c[0].control);
                    count = words32(shm.a2c[0].control);
                    break;
                case 2:
                    from = reinterpret_cast<uint32_t*>(&shm.faults);
                    count = words32(shm.faults.on) + 64;
                    break;
                case 3:
                    from = reinterpret_cast<uint32_t*>(&shm.control);
                    count = 12;
                    break;
                case 4:
                    from = reinterpret_cast<uint32_t*>(&shm.header);
                    count = 48;
                    break;
                default:
                    break;
            }
            const auto kind = static_cast<uint32_t>(random() % 3);
            const auto any = static_cast<uint32_t>(random());
            from[random() % count] = kind == 0 ? any : kind == 1 ? any % 16 : 0xFFFFFFFF;
            if (k % 20 == 0) {
                std::this_thread::sleep_for(std::chrono::microseconds(100));
            }
        }
        munmap(mem, size);
        close(file);
    }

    std::string m_dir;
    std::unique_ptr<Child> m_board;
    std::unique_ptr<Child> m_receiver;
    static uint32_t g_sum;
};
uint32_t HostileProcess::g_sum = 0;

TEST_F(HostileProcess, WordsWrittenAnywhereEndNeitherTheBoardNorAReceiver) {
    StartReceiver();
    for (const uint32_t seed : {1U, 2U, 3U}) {
        Scribble(seed);
        ASSERT_TRUE(m_board->Runs()) << "seed " << seed << ": " << Content(m_dir + "/board");
        ASSERT_TRUE(m_receiver->Runs()) << "seed " << seed << ": " << m_receiver->End(0);
    }
    // It goes on with its work: it passes, answers, and says what it dropped.
    std::this_thread::sleep_for(milliseconds(100));
    CBoardMemory memory;
    ASSERT_EQ(memory.Attach(0), 0) << "the header is right again";
    EXPECT_EQ(AwaitPass(memory), 0);
    const int answer = AskBoard(memory, ZceBoard::Request::Pause, 0);
    EXPECT_TRUE(answer == 0 || answer == EALREADY) << answer;
    EXPECT_TRUE(WaitFor("board", " garbage="));
    EXPECT_EQ(m_receiver->End(SIGKILL), -SIGKILL) << "alive to the end";
    EXPECT_EQ(m_board->End(SIGTERM), 0);
}

TEST_F(HostileProcess, AMemoryCutShortEndsBothWithOneLineEach) {
    if (velatest::underThreadSanitizer) {
        GTEST_SKIP()
            << "its atomic operations hold a lock while they touch the memory: the handler "
               "of the fault then waits for it";
    }
    StartReceiver();
    ASSERT_EQ(truncate(ShmPath().c_str(), 0), 0);
    EXPECT_EQ(m_board->End(0), -SIGBUS);
    EXPECT_EQ(m_receiver->End(0), -SIGBUS);
    const std::string line = "zce-board: bus 0: the board's memory " + ShmPath() +
                             " was cut short by another process; this process ends. Start "
                             "zce-board anew, then the programs that use it.\n";
    EXPECT_EQ(Content(m_dir + "/receiver"), "polling\n" + line);
    const std::string board = Content(m_dir + "/board");
    EXPECT_EQ(board.substr(board.size() < line.size() ? 0 : board.size() - line.size()), line);
    // What is left of it is no board, and the next one takes its place.
    EXPECT_EQ(CBoardMemory::Probe(0), ENODEV);
    m_board = StartBoard("second");
    EXPECT_EQ(CBoardMemory::Probe(0), 0);
}

TEST_F(HostileProcess, ABoardWhoseNameWasTakenSaysSoOnceAndGoesOn) {
    ASSERT_EQ(unlink(ShmPath().c_str()), 0);
    const std::string line =
        "zce-board: bus 0: the name of its memory was removed or replaced by another process: no "
        "program that starts now finds this board. Start it anew.\n";
    EXPECT_TRUE(WaitFor("board", line));
    std::this_thread::sleep_for(milliseconds(1200));
    EXPECT_EQ(m_board->End(SIGTERM), 0);
    const std::string board = Content(m_dir + "/board");
    EXPECT_EQ(board.find(line), board.rfind(line));
}

TEST_F(HostileProcess, AReceiverSaysOnceThatItsBoardHasGoneAndOnceThatANewOneIsThere) {
    unsetenv("ZCE_BOARD_QUIET");
    StartReceiver();
    const std::string opened =
        "libenyx-hw-c: this is the software board, bus 0, zce-board process " +
        std::to_string(m_board->Pid()) + "\npolling\n";
    m_board->End(SIGKILL);
    const std::string gone =
        "zce-board: bus 0: the board has gone; this process gets nothing more from it\n";
    EXPECT_TRUE(WaitFor("receiver", gone));
    EXPECT_EQ(Content(m_dir + "/receiver"), opened + gone);
    m_board = StartBoard("second");
    const std::string back =
        "zce-board: bus 0: a new board is running, but this process has the memory of the old one: "
        "start it anew\n";
    EXPECT_TRUE(WaitFor("receiver", back));
    std::this_thread::sleep_for(milliseconds(500));
    EXPECT_EQ(Content(m_dir + "/receiver"), opened + gone + back);
}

TEST_F(HostileProcess, AReceiverSaysNothingOfItsBoardWhenItIsToldToBeQuiet) {
    StartReceiver();
    m_board->End(SIGKILL);
    m_board = StartBoard("second");
    std::this_thread::sleep_for(milliseconds(1000));
    EXPECT_EQ(Content(m_dir + "/receiver"), "polling\n");
}

TEST_F(HostileProcess, AnotherUserIsToldWhoseTheBoardIs) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can become another user";
    }
    unsetenv("ZCE_BOARD_QUIET");
    Child other(m_dir + "/receiver", [] {
        if (setgid(65534) != 0 || setuid(65534) != 0) {
            return 99;
        }
        const bool refused = Accelerator() == nullptr && errno == EACCES;
        return refused && Accelerator() == nullptr ? 0 : 1;
    });
    EXPECT_EQ(other.End(0), 0);
    EXPECT_EQ(Content(m_dir + "/receiver"),
              "zce-board: bus 0: the board is another user's: have it started with --group and a "
              "group that this user is in, or run as its user\n");
}

TEST_F(HostileProcess, TheGroupOptionTakesANumberOrANameAndRefusesWhatIsNone) {
    for (const char* group : {"no-such-group", "4294967295", "-1", ""}) {
        Child refused(m_dir + "/second", [group] {
            execl(ZCE_BOARD_PROGRAM, ZCE_BOARD_PROGRAM, "--products", "all", "--bus", "1",
                  "--group", group, nullptr);
            return 127;
        });
        EXPECT_EQ(refused.End(0), 2) << group;
        EXPECT_NE(Content(m_dir + "/second")
                      .find("--group: \"" + std::string(group) + "\" is no group of this machine"),
                  std::string::npos)
            << Content(m_dir + "/second");
    }
    const std::string own = std::to_string(getegid());
    Child board(m_dir + "/second", [&own] {
        execl(ZCE_BOARD_PROGRAM, ZCE_BOARD_PROGRAM, "--products", "all", "--bus", "1", "--group",
              own.c_str(), nullptr);
        return 127;
    });
    ASSERT_TRUE(WaitFor("second", "ready")) << Content(m_dir + "/second");
    struct stat st {};
    ASSERT_EQ(stat(ShmPath(1).c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0660U);
    EXPECT_EQ(st.st_gid, getegid());
    EXPECT_EQ(board.End(SIGTERM), 0);
}

}  // namespace
