#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <filesystem>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "SignalProcess.h"
#include "Utils/clockSeam.h"
#include "log/CRwLogger.h"
#include "log/elog.h"
#include "logCapture.h"
#include "logFiles.h"

namespace {

// Every reading of the clock is some minutes later: a new day after about a hundred of them.
std::atomic<std::time_t> s_now{1'795'163'400};  // 2026-11-20 08:30:00 UTC
constexpr std::time_t STEP_SECONDS = 900;

}  // namespace

namespace VORBA2::Clock {

std::time_t WallSeconds() {
    return s_now += STEP_SECONDS;
}

bool LocalTime(std::time_t at, std::tm& result) {
    return gmtime_r(&at, &result) != nullptr;
}

}  // namespace VORBA2::Clock

namespace {

constexpr int THREADS = 8;
constexpr int LINES = 1000;

void Log(int thread) {
    for (int line = 0; line < LINES; ++line) {
        LOG_INFO("thread %d line %d.", thread, line);
    }
}

// What stands behind the header of each line of each file; the headers are looked at.
std::vector<std::string> Texts(const std::string& dir) {
    std::vector<std::string> texts;
    for (const std::string& name : velatest::NamesIn(dir)) {
        std::istringstream file(velatest::WholeFile((std::filesystem::path(dir) / name).string()));
        for (std::string line; std::getline(file, line);) {
            EXPECT_TRUE(line.starts_with("[INFO   ][20") || line.starts_with("[WARN   ][20"))
                << line;
            texts.push_back(line.size() < 34 ? line : line.substr(34));
        }
    }
    return texts;
}

// Signals come to threads that log, write and change the day's file, all at once.
TEST(ElogRace, ThreadsAndSignalHandlersChangeTheFileTogether) {
    const velatest::TempDir dir;
    CRwLogger logger;
    ASSERT_EQ(logger.Init(0, dir.path().c_str(), "fpga"), 0);
    ASSERT_EQ(CSignalProcess::InitSignal(), 0);
    const std::size_t descriptors = velatest::NamesIn("/proc/self/fd").size();
    std::string printed;
    {
        const velatest::StdoutCapture out;
        std::atomic<int> left{THREADS};
        std::vector<std::thread> threads;
        threads.reserve(THREADS);
        for (int thread = 0; thread < THREADS; ++thread) {
            threads.emplace_back([thread, &left] {
                Log(thread);
                --left;
                while (left != 0) {
                    std::this_thread::yield();
                }
            });
        }
        while (left != 0) {
            for (std::thread& thread : threads) {
                pthread_kill(thread.native_handle(), SIGINT);
            }
            std::this_thread::yield();
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        printed = out.Text();
    }
    EXPECT_EQ(velatest::NamesIn("/proc/self/fd").size(), descriptors);
    EXPECT_EQ(CSignalProcess::m_isExit, 1);

    std::vector<std::string> texts = Texts(dir.path());
    ASSERT_FALSE(texts.empty());
    texts.erase(texts.begin());  // the service's own, printed before the capture
    EXPECT_EQ(static_cast<std::size_t>(std::count(printed.begin(), printed.end(), '\n')),
              texts.size());
    EXPECT_GT(velatest::NamesIn(dir.path()).size(), 10U);
    const auto signals = std::partition(texts.begin(), texts.end(), [](const std::string& text) {
        return text != "Received signal 2 !!";
    });
    EXPECT_GT(texts.end() - signals, 0);
    texts.erase(signals, texts.end());
    std::vector<std::string> expected;
    expected.reserve(std::size_t{THREADS} * LINES);
    for (int thread = 0; thread < THREADS; ++thread) {
        for (int line = 0; line < LINES; ++line) {
            expected.push_back("thread " + std::to_string(thread) + " line " +
                               std::to_string(line) + ".");
        }
    }
    std::sort(texts.begin(), texts.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(texts, expected);
}

}  // namespace
