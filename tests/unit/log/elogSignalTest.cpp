#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <csignal>
#include <string>
#include <thread>
#include <vector>

#include "SignalProcess.h"
#include "fakeClock.h"
#include "log/CRwLogger.h"
#include "log/elog.h"
#include "logCapture.h"
#include "logFiles.h"

namespace {

using velatest::FakeClock;

std::string SignalLine() {
    const velatest::StdoutCapture out;
    LOG_WARN_IN_SIGNAL("s");
    return out.Text();
}

std::string OrdinaryLine() {
    const velatest::StdoutCapture out;
    LOG_WARN("s");
    return out.Text();
}

TEST(ElogSignal, LineLooksLikeAnyOther) {
    const velatest::LogCapture capture;
    struct {
        unsigned int date;
        unsigned int time;
    } const cases[] = {{19700101, 0},      {20240229, 235959}, {20240301, 0},
                       {20261120, 83000},  {20261231, 235959}, {20270101, 0},
                       {20281231, 120000}, {21000301, 10203}};
    for (const auto& at : cases) {
        FakeClock::Set(at.date, at.time);
        EXPECT_EQ(SignalLine(), OrdinaryLine()) << at.date << " " << at.time;
    }
    FakeClock::Set(20261120, 83000);
    EXPECT_EQ(SignalLine(), "[WARN   ][20261120-08:30:00][fpga]s\n");
}

TEST(ElogSignal, DoesNotAskTheCLibraryForTheLocalTime) {
    const velatest::LogCapture capture;
    FakeClock::Set(20261120, 83000);
    FakeClock::FailLocalTime(true);
    EXPECT_EQ(OrdinaryLine(), "[WARN   ][][fpga]s\n");
    EXPECT_EQ(SignalLine(), "[WARN   ][20261120-08:30:00][fpga]s\n");
    FakeClock::FailLocalTime(false);
}

TEST(ElogSignal, LeavesTheChangeOfTheFileToTheNextOrdinaryLine) {
    FakeClock::Set(20261120, 235959);
    const velatest::LogCapture capture;
    FakeClock::AdvanceSeconds(1);
    LOG_WARN_IN_SIGNAL("signal");
    EXPECT_EQ(velatest::NamesIn(capture.Dir()), std::vector<std::string>{"fpga_20261120.log"});
    LOG_INFO("ordinary");
    EXPECT_EQ(velatest::FileText(capture.Dir() + "/fpga_20261121.log"),
              "[INFO   ][20261121-00:00:00][fpga]ordinary\n");
    EXPECT_EQ(capture.Lines(), (std::vector<std::string>{"WARN signal", "INFO ordinary"}));
}

TEST(ElogSignal, ObeysFilterAndEnabledFlag) {
    const velatest::LogCapture capture;
    elog_set_filter_level(ELOG_LVL_ERROR);
    LOG_WARN_IN_SIGNAL("a");
    elog_set_filter_level(255);
    elog_write_line_in_signal(7, "fpga", "f", "F", 1, "b");
    elog_set_enabled(false);
    LOG_WARN_IN_SIGNAL("c");
    EXPECT_TRUE(capture.Lines().empty());
}

// Signals come all the time to a thread that does nothing but log: every line stays whole.
TEST(ElogSignal, HandlerNeverCutsIntoALine) {
    constexpr int enough = 300;
    velatest::LogCapture capture;
    ASSERT_EQ(CSignalProcess::InitSignal(), 0);
    std::atomic<bool> end{false};
    std::thread sender([&end, target = pthread_self()] {
        while (!end) {
            pthread_kill(target, SIGINT);
            std::this_thread::yield();
        }
    });
    std::vector<std::string> ordinary;
    for (int i = 0; i < enough || CSignalProcess::m_isExit == 0; ++i) {
        LOG_INFO("%d %s", i, std::string(300, 'x').c_str());
        ordinary.push_back("INFO " + std::to_string(i) + " " + std::string(300, 'x'));
    }
    end = true;
    sender.join();

    std::vector<std::string> got;
    std::size_t signals = 0;
    for (const std::string& line : capture.Lines()) {
        if (line == "WARN Received signal 2 !!") {
            ++signals;
        } else {
            got.push_back(line);
        }
    }
    EXPECT_EQ(got, ordinary);
    EXPECT_GT(signals, 0U);
    EXPECT_EQ(CSignalProcess::m_isExit, 1);
}

}  // namespace
