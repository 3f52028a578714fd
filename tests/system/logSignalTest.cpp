// The log service in processes of its own, with the host's clock, real signals and a standard
// output that stalls.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>  // NOLINT(modernize-deprecated-headers): kill(), tgkill()
#include <sys/syscall.h>
#include <sys/wait.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <random>
#include <regex>
#include <sstream>
#include <vector>

#include "SignalProcess.h"
#include "log/CRwLogger.h"
#include "log/elog.h"
#include "process.h"
#include "sanitizers.h"
#include "stalledOutput.h"
#include "tempDir.h"

namespace velatest {

namespace {

constexpr unsigned int signalCount = underSanitizer ? 60 : 1000;
constexpr unsigned int atOnce = 10;  // processes
constexpr int goodEnd = 0;
constexpr int flagUnset = 3;
constexpr int faultSeen = 42;

using Seconds = std::chrono::duration<double>;

// A process that runs a function of this program; `output` is its standard output.
class Child {
  public:
    // `ready` gets a number once the body says so.
    using Body = std::function<int(const std::function<void(int)>& ready)>;

    Child(int output, const Body& body) {
        std::array<int, 2> ends{};
        EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
        m_pid = fork();
        if (m_pid == 0) {
            dup2(output, STDOUT_FILENO);
            _exit(body([&ends](int number) {
                EXPECT_EQ(write(ends[1], &number, sizeof(number)), ssize_t{sizeof(number)});
            }));
        }
        close(ends[1]);
        m_ready = ends[0];
    }
    ~Child() {
        if (!m_ended) {
            kill(m_pid, SIGKILL);
            waitpid(m_pid, nullptr, 0);
        }
        close(m_ready);
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    // The number, -1 if the process ended without.
    int WaitReady() const {
        int number = -1;
        return read(m_ready, &number, sizeof(number)) == sizeof(number) ? number : -1;
    }
    void Signal(int signal) const { kill(m_pid, signal); }
    // Of one of its threads, as the kernel shows it: "0000000000000000" for none.
    std::string BlockedSignals(int thread) const {
        const std::string status = ReadFile("/proc/" + std::to_string(m_pid) + "/task/" +
                                            std::to_string(thread) + "/status");
        const std::string name = "SigBlk:\t";
        const std::size_t at = status.find(name);
        return at == std::string::npos ? status : status.substr(at + name.size(), 16);
    }
    void SignalThread(int thread, int signal) const { syscall(SYS_tgkill, m_pid, thread, signal); }
    // The exit status, 128 + signal for one that a signal ended, -1 for one that goes on.
    int WaitEnd(Seconds limit = Seconds(10)) {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        int status = 0;
        while (waitpid(m_pid, &status, WNOHANG) != m_pid) {
            if (std::chrono::steady_clock::now() >= deadline) {
                return -1;
            }
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
        m_ended = true;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

  private:
    pid_t m_pid = -1;
    int m_ready = -1;
    bool m_ended = false;
};

int ThreadId() {
    return static_cast<int>(syscall(SYS_gettid));
}

// The log's files of a directory, one behind the other.
std::string LogText(const std::string& dir) {
    std::string text;
    for (const auto& entry : std::filesystem::directory_iterator(dir)) {
        text += ReadFile(entry.path().string());
    }
    return text;
}

class LogSignal : public testing::Test {
  protected:
    // Without TZ the C library reads its zone anew at every call, under a lock of its own that
    // ThreadSanitizer does not see.
    LogSignal() { setenv("TZ", "UTC", 1); }
    int OpenFile(const std::string& path) {
        m_files.push_back(open(path.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
        return m_files.back();
    }
    ~LogSignal() override {
        for (const int file : m_files) {
            close(file);
        }
    }
    TempDir m_dir;
    std::vector<int> m_files;
};

// Four threads log until the exit flag is set.
int LogFromFourThreads(const std::string& dir, const std::function<void(int)>& ready) {
    CRwLogger logger;
    if (logger.Init(0, dir.c_str(), "fpga") != 0 || CSignalProcess::InitSignal() != 0) {
        return 1;
    }
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([thread] {
            for (int line = 0; CSignalProcess::m_isExit == 0; ++line) {
                LOG_INFO("thread %d line %d.", thread, line);
            }
        });
    }
    ready(0);
    for (std::thread& thread : threads) {
        thread.join();
    }
    return CSignalProcess::m_isExit == 1 ? goodEnd : flagUnset;
}

// Every line of the file is whole, and the signal's is among them once.
void ExpectWhole(const std::string& text) {
    std::istringstream stream(text);
    std::size_t signals = 0;
    for (std::string line; std::getline(stream, line);) {
        ASSERT_GT(line.size(), 34U) << line;
        ASSERT_EQ(line.substr(27, 7), "][fpga]") << line;
        const std::string said = line.substr(34);
        signals += said == "Received signal 2 !!" ? 1U : 0U;
        ASSERT_TRUE(said == "Received signal 2 !!" ||
                    (said.starts_with("thread ") && said.find('.') == said.size() - 1))
            << line;
    }
    EXPECT_EQ(signals, 1U);
    EXPECT_EQ(text.back(), '\n');
}

class RandomMoments : public LogSignal {
  protected:
    // Starts ten processes at a time, interrupts each at a moment of its own, and looks how they
    // end. `stalled`: nobody reads what they print.
    void Interrupt(unsigned int count, bool stalled, std::uint_fast32_t seed) {
        std::mt19937 random(seed);
        std::uniform_int_distribution<int> microseconds(0, 4000);
        for (unsigned int done = 0; done < count; done += atOnce) {
            std::vector<std::unique_ptr<StalledOutput>> outputs;
            std::vector<std::unique_ptr<Child>> children;
            for (unsigned int number = 0; number < atOnce; ++number) {
                children.push_back(Start(number, stalled, outputs));
            }
            for (const auto& child : children) {
                ASSERT_EQ(child->WaitReady(), 0);
                std::this_thread::sleep_for(std::chrono::microseconds(microseconds(random)));
                child->Signal(SIGINT);
            }
            for (unsigned int number = 0; number < atOnce; ++number) {
                ASSERT_EQ(children[number]->WaitEnd(), goodEnd) << "signal " << done + number;
                // The first line is the service's own.
                const std::string text = LogText(LogDir(number));
                ASSERT_NO_FATAL_FAILURE(ExpectWhole(text.substr(text.find('\n') + 1)));
                std::filesystem::remove_all(LogDir(number));
            }
        }
    }

  private:
    std::string LogDir(unsigned int number) const {
        return m_dir / ("log" + std::to_string(number));
    }
    std::unique_ptr<Child> Start(unsigned int number, bool stalled,
                                 std::vector<std::unique_ptr<StalledOutput>>& outputs) {
        int output = -1;
        if (stalled) {
            const std::string path = m_dir / ("pipe" + std::to_string(number));
            std::filesystem::remove(path);
            outputs.push_back(std::make_unique<StalledOutput>(path));
            output = open(path.c_str(), O_WRONLY | O_CLOEXEC);
        } else {
            output = open("/dev/null", O_WRONLY | O_CLOEXEC);
        }
        auto child = std::make_unique<Child>(
            output, [dir = LogDir(number)](const std::function<void(int)>& ready) {
                return LogFromFourThreads(dir, ready);
            });
        close(output);
        return child;
    }
};

TEST_F(RandomMoments, EverySigintSetsTheFlagAndTheProcessEnds) {
    Interrupt(signalCount * 7 / 10, false, 20261120);
}

TEST_F(RandomMoments, EverySigintSetsTheFlagAndTheProcessEndsIfNobodyReadsWhatItPrints) {
    Interrupt(signalCount * 3 / 10, true, 20261121);
}

TEST_F(LogSignal, BeforeTheHandlersAreThereAStalledOutputKeepsNoSignalFromEndingTheProcess) {
    for (const int signal : {SIGTERM, SIGINT}) {
        const StalledOutput pipe(m_dir / ("pipe" + std::to_string(signal)));
        Child child(OpenFile(m_dir / ("pipe" + std::to_string(signal))),
                    [&](const std::function<void(int)>& /*ready*/) {
                        CRwLogger logger;
                        logger.Init(0, m_dir.path().c_str(), "fpga");
                        for (;;) {
                            LOG_INFO("a line");
                        }
                        return goodEnd;
                    });
        ASSERT_TRUE(pipe.WaitUntilFull());
        child.Signal(signal);
        EXPECT_EQ(child.WaitEnd(Seconds(1)), 128 + signal);
    }
}

TEST_F(LogSignal, AThreadThatPrintsAndOneThatLogsAreNoDeadlockForTheHandler) {
    if (underThreadSanitizer) {
        GTEST_SKIP()
            << "ThreadSanitizer itself holds the signal back until the thread has printed.";
    }
    const StalledOutput pipe(m_dir / "pipe");
    const int output = OpenFile(m_dir / "pipe");
    Child child(output, [&](const std::function<void(int)>& ready) {
        CRwLogger logger;
        if (logger.Init(0, (m_dir / "log").c_str(), "fpga") != 0 ||
            CSignalProcess::InitSignal() != 0) {
            return 1;
        }
        std::thread([&ready] {
            ready(ThreadId());
            for (;;) {
                std::printf("what the application prints\n");
            }
        }).detach();
        while (CSignalProcess::m_isExit == 0) {
            LOG_INFO("a line");
        }
        return goodEnd;
    });
    const int printer = child.WaitReady();
    ASSERT_GT(printer, 0);
    ASSERT_TRUE(pipe.WaitUntilFull());
    child.SignalThread(printer, SIGINT);
    EXPECT_EQ(child.WaitEnd(Seconds(1)), goodEnd);
    EXPECT_THAT(LogText(m_dir / "log"), testing::HasSubstr("][fpga]Received signal 2 !!\n"));
}

// A thread of a process that logs, and now waits for a standard output that stalls.
int LogFromAThread(const std::string& dir, const std::function<void(int)>& ready) {
    static CRwLogger logger;
    sigset_t own{};
    sigemptyset(&own);
    sigaddset(&own, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &own, nullptr);
    if (logger.Init(0, dir.c_str(), "fpga") != 0 || CSignalProcess::InitSignal() != 0) {
        return 1;
    }
    std::thread([&ready] {
        ready(ThreadId());
        for (;;) {
            LOG_INFO("a line");
        }
    }).detach();
    int signal = 0;
    sigwait(&own, &signal);
    elog_log_file_close();
    return goodEnd;
}

TEST_F(LogSignal, NoLogCallBlocksASignal) {
    const StalledOutput pipe(m_dir / "pipe");
    Child child(OpenFile(m_dir / "pipe"), [&](const std::function<void(int)>& ready) {
        return LogFromAThread(m_dir / "log", ready);
    });
    const int logging = child.WaitReady();
    ASSERT_GT(logging, 0);
    ASSERT_TRUE(pipe.WaitUntilFull());
    EXPECT_EQ(child.BlockedSignals(logging), "0000000000000200");  // SIGUSR1, the process's own
}

TEST_F(LogSignal, TheFileIsFreeWhileStandardOutputStalls) {
    const StalledOutput pipe(m_dir / "pipe");
    Child child(OpenFile(m_dir / "pipe"), [&](const std::function<void(int)>& ready) {
        return LogFromAThread(m_dir / "log", ready);
    });
    ASSERT_GT(child.WaitReady(), 0);
    ASSERT_TRUE(pipe.WaitUntilFull());
    child.Signal(SIGUSR1);  // it closes the log's file and ends
    EXPECT_EQ(child.WaitEnd(Seconds(1)), goodEnd);
}

// What the log call cannot read: the application's own handler hears of it.
const char* Nowhere() {
    static volatile std::uintptr_t address = 8;
    return reinterpret_cast<const char*>(address);
}

void HandleFault(void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    sigaction(SIGSEGV, &action, nullptr);
}

TEST_F(LogSignal, AFaultInALogCallReachesTheApplicationsHandler) {
    Child child(OpenFile("/dev/null"), [&](const std::function<void(int)>& /*ready*/) {
        CRwLogger logger;
        logger.Init(0, m_dir.path().c_str(), "fpga");
        HandleFault([](int /*signal*/) { _exit(faultSeen); });
        LOG_INFO("%s", Nowhere());
        return goodEnd;
    });
    EXPECT_EQ(child.WaitEnd(), faultSeen);
}

TEST_F(LogSignal, AThreadThatItsFaultHandlerKeepsDoesNotKeepTheOthersFromLogging) {
    Child child(OpenFile("/dev/null"), [&](const std::function<void(int)>& /*ready*/) {
        static std::atomic<bool> isKept{false};
        CRwLogger logger;
        logger.Init(0, m_dir.path().c_str(), "fpga");
        HandleFault([](int /*signal*/) {
            isKept = true;
            for (;;) {
                pause();
            }
        });
        std::thread([] { LOG_INFO("%s", Nowhere()); }).detach();
        while (!isKept) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        LOG_INFO("the others");
        return goodEnd;
    });
    EXPECT_EQ(child.WaitEnd(), goodEnd);
    EXPECT_THAT(LogText(m_dir.path()), testing::HasSubstr("][fpga]the others\n"));
}

// Each of the threads' lines is there whole, once, and in its thread's order.
void ExpectThreadsLines(const std::string& text, int threads, int lines) {
    std::vector<int> next(static_cast<std::size_t>(threads), 0);
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        const std::size_t said = line.find("thread ");
        if (said == std::string::npos) {
            continue;  // the service's first line
        }
        ASSERT_EQ(said, 34U) << line;
        const int thread = line[41] - '0';
        ASSERT_TRUE(thread >= 0 && thread < threads) << line;
        const int number = next[static_cast<std::size_t>(thread)]++;
        const auto length = static_cast<std::size_t>(number * 7 % 1990);
        ASSERT_EQ(line.substr(34), "thread " + std::to_string(thread) + " line " +
                                       std::to_string(number) + " " +
                                       std::string(length, static_cast<char>('a' + thread)));
    }
    EXPECT_EQ(next, std::vector<int>(static_cast<std::size_t>(threads), lines));
}

TEST_F(LogSignal, LinesOfEightThreadsAreNeverTorn) {
    constexpr int threadCount = 8;
    constexpr int lineCount = 1000;
    const StalledOutput pipe(m_dir / "pipe");
    Child child(OpenFile(m_dir / "pipe"), [&](const std::function<void(int)>& /*ready*/) {
        CRwLogger logger;
        logger.Init(0, (m_dir / "log").c_str(), "fpga");
        std::vector<std::thread> threads;
        threads.reserve(threadCount);
        for (int thread = 0; thread < threadCount; ++thread) {
            threads.emplace_back([thread] {
                for (int line = 0; line < lineCount; ++line) {
                    LOG_INFO("thread %d line %d %s", thread, line,
                             std::string(static_cast<std::size_t>(line * 7 % 1990),
                                         static_cast<char>('a' + thread))
                                 .c_str());
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        return goodEnd;
    });
    std::string printed;
    while (child.WaitEnd(Seconds(0.001)) == -1) {
        printed += pipe.Drain();
    }
    printed += pipe.Drain();
    ASSERT_NO_FATAL_FAILURE(ExpectThreadsLines(printed, threadCount, lineCount));
    ASSERT_NO_FATAL_FAILURE(ExpectThreadsLines(LogText(m_dir / "log"), threadCount, lineCount));
}

}  // namespace

}  // namespace velatest
