#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <limits>
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
    LOG_WARN_IN_SIGNAL("s ", -7, "!");
    return out.Text();
}

std::string OrdinaryLine() {
    const velatest::StdoutCapture out;
    LOG_WARN("s %d!", -7);
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
    EXPECT_EQ(SignalLine(), "[WARN   ][20261120-08:30:00][fpga]s -7!\n");
}

TEST(ElogSignal, DoesNotAskTheCLibraryForTheLocalTime) {
    const velatest::LogCapture capture;
    FakeClock::Set(20261120, 83000);
    FakeClock::FailLocalTime(true);
    EXPECT_EQ(OrdinaryLine(), "[WARN   ][][fpga]s -7!\n");
    EXPECT_EQ(SignalLine(), "[WARN   ][20261120-08:30:00][fpga]s -7!\n");
    FakeClock::FailLocalTime(false);
}

TEST(ElogSignal, NumbersAndNullTexts) {
    const velatest::LogCapture capture;
    elog_write_line_in_signal(ELOG_LVL_WARN, nullptr, nullptr, nullptr, 1, nullptr,
                              std::numeric_limits<long>::min(), nullptr);
    LOG_WARN_IN_SIGNAL("", std::numeric_limits<long>::max(), "");
    LOG_WARN_IN_SIGNAL("", 0, "");
    EXPECT_EQ(capture.Lines(), (std::vector<std::string>{"WARN -9223372036854775808",
                                                         "WARN 9223372036854775807", "WARN 0"}));
}

TEST(ElogSignal, LongLineIsCutAt2048Bytes) {
    const velatest::LogCapture capture;
    FakeClock::Set(20261120, 83000);
    const std::string text(3000, 'x');
    const velatest::StdoutCapture out;
    LOG_WARN_IN_SIGNAL(text.c_str(), 1, "");
    EXPECT_EQ(out.Text(), "[WARN   ][20261120-08:30:00][fpga]" + std::string(2013, 'x') + "\n");
}

TEST(ElogSignal, GoesIntoTheFileOfItsDayAndOrdinaryLinesFollow) {
    FakeClock::Set(20261120, 235959);
    const velatest::LogCapture capture;
    LOG_INFO("before");
    FakeClock::AdvanceSeconds(1);
    ASSERT_EQ(CSignalProcess::InitSignal(), 0);
    raise(SIGINT);
    raise(SIGTERM);
    EXPECT_EQ(velatest::WholeFile(capture.Dir() + "/fpga_20261121.log"),
              "[WARN   ][20261121-00:00:00][fpga]Received signal 2 !!\n"
              "[WARN   ][20261121-00:00:00][fpga]Received signal 15 !!\n");
    LOG_INFO("after");
    FakeClock::Set(20261122, 10203);
    LOG_INFO("next day");
    EXPECT_EQ(
        velatest::NamesIn(capture.Dir()),
        (std::vector<std::string>{"fpga_20261120.log", "fpga_20261121.log", "fpga_20261122.log"}));
    EXPECT_EQ(velatest::WholeFile(capture.Dir() + "/fpga_20261121.log"),
              "[WARN   ][20261121-00:00:00][fpga]Received signal 2 !!\n"
              "[WARN   ][20261121-00:00:00][fpga]Received signal 15 !!\n"
              "[INFO   ][20261121-00:00:00][fpga]after\n");
    EXPECT_EQ(velatest::LastLine(velatest::WholeFile(capture.Dir() + "/fpga_20261120.log")),
              "[INFO   ][20261120-23:59:59][fpga]before\n");
}

TEST(ElogSignal, StaysInTheFileOfTheSameDayAndOfAClockSetBack) {
    FakeClock::Set(20261116, 235958);
    const velatest::LogCapture capture;
    LOG_INFO("before");
    FakeClock::SetTime(235959);
    LOG_WARN_IN_SIGNAL("same ", 1, "");
    FakeClock::Set(20261115, 120000);
    LOG_WARN_IN_SIGNAL("back ", 2, "");
    EXPECT_EQ(velatest::NamesIn(capture.Dir()), std::vector<std::string>{"fpga_20261116.log"});
    EXPECT_TRUE(velatest::WholeFile(capture.Dir() + "/fpga_20261116.log")
                    .ends_with("[INFO   ][20261116-23:59:58][fpga]before\n"
                               "[WARN   ][20261116-23:59:59][fpga]same 1\n"
                               "[WARN   ][20261115-12:00:00][fpga]back 2\n"));
}

TEST(ElogSignal, ChangeOfTheFileLeavesNoDescriptorBehind) {
    FakeClock::Set(20261120, 120000);
    const velatest::LogCapture capture;
    const std::size_t before = velatest::OpenDescriptors();
    for (unsigned int date = 20261121; date < 20261130; ++date) {
        FakeClock::Set(date, 120000);
        LOG_WARN_IN_SIGNAL("a", 1, "");
    }
    EXPECT_EQ(velatest::OpenDescriptors(), before);
    EXPECT_EQ(velatest::NamesIn(capture.Dir()).size(), 10U);
}

// Nothing is said by the handler; the next ordinary line tries again and says why it fails.
TEST(ElogSignal, FileThatCannotBeOpenedIsLeftToTheNextOrdinaryLine) {
    FakeClock::Set(20261120, 120000);
    const velatest::TempDir parent;
    const std::string dir = parent / "log";
    CRwLogger logger;
    ASSERT_EQ(logger.Init(0, dir.c_str(), "fpga"), 0);
    std::filesystem::remove_all(dir);
    FakeClock::Set(20261121, 120000);
    testing::internal::CaptureStderr();
    LOG_WARN_IN_SIGNAL("a", 1, "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    testing::internal::CaptureStderr();
    LOG_WARN("b");
    LOG_WARN_IN_SIGNAL("c", 1, "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Error! Create file " + dir +
                  "/fpga_20261121.log fail, errmsg:No such file or directory. \n");
    // With no open file a handler's line still finds the file of another day.
    std::filesystem::create_directory(dir);
    FakeClock::Set(20261122, 0);
    LOG_WARN_IN_SIGNAL("d", 1, "");
    LOG_WARN("e");
    EXPECT_EQ(velatest::NamesIn(dir), std::vector<std::string>{"fpga_20261122.log"});
    EXPECT_EQ(velatest::WholeFile(dir + "/fpga_20261122.log"),
              "[WARN   ][20261122-00:00:00][fpga]d1\n[WARN   ][20261122-00:00:00][fpga]e\n");
}

TEST(ElogSignal, AfterTheCloseNoFileIsOpened) {
    FakeClock::Set(20261120, 120000);
    const velatest::TempDir dir;
    {
        CRwLogger logger;
        ASSERT_EQ(logger.Init(0, dir.path().c_str(), "fpga"), 0);
    }
    FakeClock::Set(20261121, 120000);
    const velatest::StdoutCapture out;
    LOG_WARN_IN_SIGNAL("a", 1, "");
    EXPECT_EQ(out.Text(), "[WARN   ][20261121-12:00:00][fpga]a1\n");
    EXPECT_EQ(velatest::NamesIn(dir.path()), std::vector<std::string>{"fpga_20261120.log"});
}

TEST(ElogSignal, ObeysFilterAndEnabledFlag) {
    const velatest::LogCapture capture;
    elog_set_filter_level(ELOG_LVL_ERROR);
    LOG_WARN_IN_SIGNAL("a", 1, "");
    elog_set_filter_level(255);
    elog_write_line_in_signal(7, "fpga", "f", "F", 1, "b", 1, "");
    elog_set_enabled(false);
    LOG_WARN_IN_SIGNAL("c", 1, "");
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
