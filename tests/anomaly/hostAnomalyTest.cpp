// What the host gives fails: files, locks, memory, the local time. Where nothing else is known of a
// failure, it must end in one of the ways that a run can end, with the lines of that way.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <string>
#include <vector>

#include "VelaZceUtils.h"
#include "run.h"
#include "sanitizers.h"
#include "wholeFile.h"

namespace {

using anomaly::CheckEnd;
using anomaly::CountPoint;
using anomaly::Kind;
using anomaly::Lines_t;
using anomaly::Outcome;
using anomaly::Report;
using anomaly::Runner;
using anomaly::Scenario;
using anomaly::step;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* noReleaseLock =
    "Unable to lock the register driver's users, errmsg:Invalid argument. Released without.";

bool Has(const Lines_t& lines, const std::string& line) {
    return std::find(lines.begin(), lines.end(), line) != lines.end();
}

std::string NameOfParam(const Scenario& scenario) {
    std::string name = scenario.name;
    std::erase_if(name,
                  [](char letter) { return !std::isalnum(static_cast<unsigned char>(letter)); });
    return name;
}

// The ways in which a run may end when memory or a lock failed somewhere.
class HostAnomaly : public testing::TestWithParam<const Scenario*> {
  protected:
    static void CheckStartThatEnded(const Outcome& outcome) {
        Lines_t errors = outcome.Of("ERROR");
        // Where all locks fail, that of the worker's end does too.
        std::erase(errors, noReleaseLock);
        ASSERT_FALSE(errors.empty());
        EXPECT_TRUE(errors.back() == "Vela inner init fail." ||
                    errors.back() == "Create Tern service failed!")
            << errors.back();
        // Why, before that.
        EXPECT_TRUE(std::any_of(errors.begin(), errors.end(),
                                [](const std::string& line) {
                                    return line == "Failed to load file test.ini" ||
                                           line.starts_with("The start cannot go on, errmsg:");
                                }) ||
                    Has(outcome.lines, "INFO Config file init fail"))
            << errors.front();
    }

    void CheckRun(const Outcome& outcome, bool forGood) const {
        const Report& report = outcome.report;
        CheckEnd(outcome);
        if (!report.created) {
            return;  // the log service was not up yet
        }
        if (!report.destroyed) {
            CheckStartThatEnded(outcome);
            return;
        }
        if (!report.started) {
            EXPECT_EQ(report.startResult, -1);
            EXPECT_TRUE(Has(outcome.lines, "OUT ###Init log service failed! ret: -1###"));
            EXPECT_TRUE(Has(outcome.lines, "OUT Log init failed"));
            return;
        }
        EXPECT_EQ(report.callbacks, 4U);
        if (!forGood) {
            // What a dropped packet lacked came with the next.
            EXPECT_EQ(report.masks, GetParam()->masks);
            EXPECT_EQ(report.decode, 3U);
            const Lines_t infos = outcome.Of("INFO");
            EXPECT_EQ(std::count(infos.begin(), infos.end(), "All channel subs over."),
                      GetParam()->learns ? 1 : 0);
            const Lines_t errors = outcome.Of("ERROR");
            EXPECT_LE(errors.size(), 1U);
        }
    }

    void FailEach(Kind kind) {
        Runner runner(*GetParam());
        const Outcome whole = runner.Run({});
        ASSERT_EQ(whole.report.callbacks, 4U);
        const std::uint32_t calls = whole.Count(kind);
        ASSERT_GT(calls, 0U);
        // Reading the tables takes its time, and what fails there fails in the other runs too.
        const std::uint32_t stride = GetParam() == &anomaly::fromTables ? 4 * step : step;
        for (std::uint32_t number = 1; number <= calls; number += stride) {
            for (const bool forGood : {false, true}) {
                SCOPED_TRACE(std::string(anomaly::NameOf(kind)) + " " + std::to_string(number) +
                             (forGood ? " and all later ones" : ""));
                const Outcome outcome = runner.Run({kind, number, forGood});
                ASSERT_GE(outcome.report.failures, 1U);
                CheckRun(outcome, forGood);
                CountPoint(kind);
            }
        }
    }
};

TEST_P(HostAnomaly, EveryAllocationFails) {
    FailEach(Kind::Memory);
}

TEST_P(HostAnomaly, EveryLockFails) {
    FailEach(Kind::MutexLock);
}

INSTANTIATE_TEST_SUITE_P(Scenarios, HostAnomaly,
                         testing::Values(&anomaly::outside, &anomaly::fromCache,
                                         &anomaly::fromTables, &anomaly::channel3),
                         [](const auto& param) { return NameOfParam(*param.param); });

// ---- what a failed lock or allocation says, where it can be told which one it was ---------------

// The first allocation of the life of an API object is the object itself.
TEST(HostAnomalyLine, AnApiObjectThatCannotBeMadeIsNull) {
    if (velatest::newIsTheSanitizers) {
        GTEST_SKIP() << "a failing operator new is passed by";
    }
    Runner runner(anomaly::channel3);
    const Outcome outcome = runner.Run({Kind::Memory, 1, false});
    CheckEnd(outcome);
    EXPECT_FALSE(outcome.report.created);
}

// The last lock of a run is that of the API object's end, but for the two of the line that follows.
TEST(HostAnomalyLine, AFailedLockInADestructorIsALine) {
    for (const Scenario* scenario : {&anomaly::channel3, &anomaly::fromCache}) {
        Runner runner(*scenario);
        const std::uint32_t locks = runner.Run({}).Count(Kind::MutexLock);
        const Outcome outcome = runner.Run({Kind::MutexLock, locks, false});
        CheckEnd(outcome);
        EXPECT_TRUE(outcome.report.destroyed);
        EXPECT_THAT(outcome.Of("ERROR"), ElementsAre(noReleaseLock));
        const Outcome forGood = runner.Run({Kind::MutexLock, locks - 1, true});
        CheckEnd(forGood);
        EXPECT_TRUE(forGood.report.destroyed);
        EXPECT_THAT(forGood.Of("ERROR"), Contains(noReleaseLock));
    }
}

// A map packet whose instruments do not fit into memory is dropped with a line; the exchange sends
// it again.
TEST(HostAnomalyLine, AMapPacketWithoutMemoryIsDropped) {
    if (velatest::newIsTheSanitizers) {
        GTEST_SKIP() << "a failing operator new is passed by";
    }
    Runner runner(anomaly::outside);
    const std::uint32_t allocations = runner.Run({}).Count(Kind::Memory);
    std::uint32_t dropped = 0;
    for (std::uint32_t number = 1; number <= allocations; number += step) {
        const Outcome outcome = runner.Run({Kind::Memory, number, false});
        if (!outcome.report.started) {
            continue;
        }
        EXPECT_THAT(outcome.Of("ERROR"),
                    ElementsAre("Instrument map packet of 73 bytes is dropped, "
                                "errmsg:std::bad_alloc."));
        ++dropped;
    }
    EXPECT_GT(dropped, 10U / step);
}

// ---- files --------------------------------------------------------------------------------------

class FileAnomaly : public testing::Test {
  protected:
    // Each call of the kind, once and for good, handed to `check` with its number.
    template <typename Check>
    static void FailEach(const Scenario& scenario, Kind kind, std::uint32_t expected, Check check) {
        Runner runner(scenario);
        ASSERT_EQ(runner.Run({}).Count(kind), expected);
        for (std::uint32_t number = 1; number <= expected; ++number) {
            for (const bool forGood : {false, true}) {
                SCOPED_TRACE(std::string(anomaly::NameOf(kind)) + " " + std::to_string(number));
                const Outcome outcome = runner.Run({kind, number, forGood});
                CheckEnd(outcome);
                check(outcome, number);
                CountPoint(kind);
            }
        }
    }
    static void ExpectWhole(const Outcome& outcome, const Scenario& scenario) {
        EXPECT_EQ(outcome.report.callbacks, 4U);
        EXPECT_EQ(outcome.report.masks, scenario.masks);
        EXPECT_THAT(outcome.Of("ERROR"), IsEmpty());
    }
    static void ExpectNoConfiguration(const Outcome& outcome) {
        EXPECT_THAT(outcome.Of("OUT"), Contains("iniparser: cannot open test.ini"));
        EXPECT_THAT(outcome.Of("ERROR"),
                    ElementsAre("Failed to load file test.ini", "Config file init fail.",
                                "Vela inner init fail."));
    }
    static std::string CacheText() { return velatest::WholeFile("bin"); }
};

TEST_F(FileAnomaly, NoFileCanBeOpenedWhileLearning) {
    FailEach(anomaly::outside, Kind::Fopen, 2, [](const Outcome& outcome, std::uint32_t number) {
        if (number == 1) {
            ExpectNoConfiguration(outcome);
            return;
        }
        EXPECT_THAT(outcome.Of("WARN"),
                    Contains("Fail! Unable to open file bin,msg:Input/output error"));
        ExpectWhole(outcome, anomaly::outside);
    });
}

TEST_F(FileAnomaly, NoFileCanBeOpenedInTradingTime) {
    FailEach(anomaly::fromCache, Kind::Fopen, 2, [](const Outcome& outcome, std::uint32_t number) {
        if (number == 1) {
            ExpectNoConfiguration(outcome);
            return;
        }
        EXPECT_THAT(outcome.Of("WARN"),
                    Contains("Cannot open file:bin, errmsg:Input/output error"));
        EXPECT_THAT(outcome.Of("INFO"), Contains("New round, fetch from fpga, inst count:4."));
        ExpectWhole(outcome, anomaly::fromCache);
    });
}

// Four instruments, the time and the end tag; a hole in the file means no end tag.
TEST_F(FileAnomaly, NoLineOfTheCacheFileCanBeWritten) {
    FailEach(anomaly::outside, Kind::Fwrite, 6, [](const Outcome& outcome, std::uint32_t) {
        const Lines_t warnings = outcome.Of("WARN");
        EXPECT_EQ(std::count(warnings.begin(), warnings.end(),
                             "Fail! Unable to write file bin,msg:Input/output error. No more is "
                             "written to it."),
                  1);
        EXPECT_EQ(CacheText().find("bin_file_over_tag"), std::string::npos);
        EXPECT_EQ(outcome.report.cacheFiles, 0);
        ExpectWhole(outcome, anomaly::outside);
    });
}

TEST_F(FileAnomaly, NoLineOfTheCacheFileCanBeFlushed) {
    FailEach(anomaly::outside, Kind::Fflush, 5, [](const Outcome& outcome, std::uint32_t number) {
        const Lines_t warnings = outcome.Of("WARN");
        EXPECT_EQ(std::count(warnings.begin(), warnings.end(),
                             "Fail! Unable to write file bin,msg:Input/output error. No more is "
                             "written to it."),
                  1);
        if (number < 5) {
            EXPECT_EQ(CacheText().find("bin_file_over_tag"), std::string::npos);
        }
        EXPECT_EQ(outcome.report.cacheFiles, 0);
        ExpectWhole(outcome, anomaly::outside);
    });
}

TEST_F(FileAnomaly, AWorkingDirectoryThatCannotBeUsedEndsTheStart) {
    FailEach(anomaly::outside, Kind::Access, 1, [](const Outcome& outcome, std::uint32_t) {
        EXPECT_THAT(outcome.Of("INFO"),
                    Contains("Error! Current user does not have read/write access to the current "
                             "directory."));
        EXPECT_THAT(outcome.Of("ERROR"), ElementsAre("Create Tern service failed!"));
    });
}

// ---- the local time -----------------------------------------------------------------------------

class TimeAnomaly : public testing::TestWithParam<const Scenario*> {};

// A time that cannot be had decides nothing: it neither resets a board that works nor begins a new
// cache file where the old one is needed.
TEST_P(TimeAnomaly, EveryReadingOfTheLocalTimeFails) {
    Runner runner(*GetParam());
    const Outcome whole = runner.Run({});
    const std::uint32_t calls = whole.Count(Kind::LocalTime);
    ASSERT_GT(calls, 20U);
    for (std::uint32_t number = 1; number <= calls; number += step) {
        for (const bool forGood : {false, true}) {
            SCOPED_TRACE("local time " + std::to_string(number) +
                         (forGood ? " and all later ones" : ""));
            const Outcome outcome = runner.Run({Kind::LocalTime, number, forGood});
            CheckEnd(outcome);
            CountPoint(Kind::LocalTime);
            EXPECT_TRUE(std::none_of(
                outcome.lines.begin(), outcome.lines.end(), [](const std::string& line) {
                    return line.find("Reset and Clear fpga table over.") != std::string::npos;
                }));
            const bool undecided =
                Has(outcome.lines,
                    "ERROR Unable to determine the local time, the instrument list cannot be had.");
            // A line without its time is a line all the same.
            if (outcome.report.started) {
                EXPECT_EQ(outcome.report.callbacks, 4U);
                EXPECT_EQ(outcome.report.masks,
                          forGood && GetParam()->learns ? outcome.report.masks : GetParam()->masks);
            } else {
                EXPECT_TRUE(undecided || forGood);
            }
            if (GetParam()->cacheFile != nullptr) {
                EXPECT_EQ(velatest::WholeFile("bin"), GetParam()->cacheFile);
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Scenarios, TimeAnomaly,
                         testing::Values(&anomaly::outside, &anomaly::fromCache,
                                         &anomaly::fromTables),
                         [](const auto& param) { return NameOfParam(*param.param); });

// ---- the environment checks ---------------------------------------------------------------------

TEST(PopenAnomaly, EveryCommandOfTheEnvironmentChecksFails) {
    Runner runner(anomaly::channel3);
    const auto checks = [] {
        anomaly::Report& report = anomaly::TheReport();
        report.startResult = CheckBeforeRun();
        IsXiDriverInstalled();
        IsEDriverInstalled();
        report.started = IsProdProgRunning();
        report.destroyed = true;
    };
    const std::uint32_t calls = runner.RunOther({}, checks).Count(Kind::Popen);
    ASSERT_GE(calls, 5U);
    for (std::uint32_t number = 1; number <= calls; ++number) {
        for (const bool forGood : {false, true}) {
            SCOPED_TRACE("popen " + std::to_string(number));
            const Outcome outcome = runner.RunOther({Kind::Popen, number, forGood}, checks);
            CheckEnd(outcome);
            EXPECT_TRUE(outcome.report.destroyed);
            if (forGood && number == 1) {
                // Nothing can be looked at: no board is seen.
                EXPECT_EQ(outcome.report.startResult, -1);
                EXPECT_THAT(outcome.Of("OUT"),
                            Contains("Unable to recongnize fpga board! if there indeed exist fpga "
                                     "board, firmware maybe error."));
            }
            EXPECT_FALSE(outcome.report.started);
            CountPoint(Kind::Popen);
        }
    }
}

}  // namespace
