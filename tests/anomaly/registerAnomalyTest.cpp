// Register accesses fail: each of the first and of the last of a run, each to a control register,
// and a sample of those to the tables, of which a start has millions. A failed access is a line;
// the run goes on with what it has.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <random>
#include <set>
#include <string>

#include "run.h"

namespace {

using anomaly::CheckEnd;
using anomaly::Kind;
using anomaly::Lines_t;
using anomaly::Outcome;
using anomaly::Report;
using anomaly::Runner;
using anomaly::Scenario;
using testing::ElementsAreArray;

struct Sample {
    const Scenario* scenario;
    Kind kind;
    std::uint32_t edge;    // so many of the first, and of the last
    std::uint32_t inside;  // so many of those between, drawn
};

// The registers of both tables that are read back when they are written.
bool IsReadBack(std::uint32_t addr) {
    static const std::set<std::uint32_t> registers = {0x11000, 0x11001, 0x11002,
                                                      0x12000, 0x12001, 0x12002};
    return registers.contains(addr);
}

std::string DriverLine(Kind kind, const Report& report) {
    std::array<char, 160> text{};
    if (kind == Kind::Write) {
        std::snprintf(text.data(), text.size(),
                      "Write int32 failed, addr[0x%x] value[0x%x], errmsg:Input/output error.",
                      report.failedAddr, report.failedValue);
    } else {
        std::snprintf(text.data(), text.size(), "%s failed, addr[0x%x], errmsg:Input/output error.",
                      IsReadBack(report.failedAddr) ? "ReadReg int32" : "read int32",
                      report.failedAddr);
    }
    return text.data();
}

class RegisterAnomaly : public testing::TestWithParam<Sample> {
  protected:
    // The numbers of the accesses to fail.
    static std::set<std::uint32_t> Draw(const Outcome& whole) {
        const Sample& sample = GetParam();
        const bool reads = sample.kind == Kind::Read;
        const std::uint32_t count = whole.Count(sample.kind);
        std::set<std::uint32_t> numbers;
        for (std::uint32_t at = 1; at <= std::min(sample.edge, count); ++at) {
            numbers.insert({at, count + 1 - at});
        }
        const auto& control = reads ? whole.report.controlReads : whole.report.controlWrites;
        const std::uint32_t controls =
            reads ? whole.report.controlReadNum : whole.report.controlWriteNum;
        EXPECT_LT(controls, control.size());
        for (std::uint32_t at = 0; at < controls; ++at) {
            numbers.insert(control.at(at).number);
        }
        std::mt19937 random(20261120);
        std::uniform_int_distribution<std::uint32_t> any(1, count);
        for (std::uint32_t at = 0; at < sample.inside; ++at) {
            numbers.insert(any(random));
        }
        std::printf("%s: %zu of %u %ss\n", sample.scenario->name, numbers.size(), count,
                    NameOf(sample.kind));
        return numbers;
    }

    // What is logged at ERROR level when one access fails.
    static Lines_t Expected(const Report& report) {
        const Sample& sample = GetParam();
        Lines_t lines = {DriverLine(sample.kind, report)};
        if (sample.kind != Kind::Read) {
            return lines;
        }
        const bool inside = !sample.scenario->learns;
        if (report.failedAddr == 0x103) {
            lines.emplace_back(
                "The fiber 0 is not connected, status is incorrect! Please modify or contact "
                "technical support!");
        } else if (report.failedAddr == 0x104 && inside) {
            lines.emplace_back("[channel:0] 1 Unable to read time stamp !");
        } else if (report.failedAddr == 0x105 && inside) {
            lines.emplace_back("[channel:0] 2 Unable to read time stamp !");
        }
        return lines;
    }
};

TEST_P(RegisterAnomaly, AFailedAccessIsALineAndTheRunGoesOn) {
    const Sample& sample = GetParam();
    Runner runner(*sample.scenario);
    const Outcome whole = runner.Run({});
    ASSERT_EQ(whole.report.callbacks, 4U);
    for (const std::uint32_t number : Draw(whole)) {
        const Outcome outcome = runner.Run({sample.kind, number, false});
        SCOPED_TRACE(std::string(NameOf(sample.kind)) + " " + std::to_string(number));
        ASSERT_EQ(outcome.report.failures, 1U);
        CheckEnd(outcome);
        EXPECT_TRUE(outcome.report.destroyed);
        EXPECT_EQ(outcome.report.callbacks, 4U);
        EXPECT_EQ(outcome.report.decode, outcome.report.failedAddr == 0x11 &&
                                                 sample.kind == Kind::Write &&
                                                 sample.scenario->learns
                                             ? 0U
                                             : 3U);
        EXPECT_THAT(outcome.Of("ERROR"), ElementsAreArray(Expected(outcome.report)));
        anomaly::CountPoint(sample.kind);
    }
}

// From one access on all fail: one line for each (and those that follow from some reads), and the
// run comes to its end all the same.
TEST_P(RegisterAnomaly, WhenAllFailFromOneOnTheRunStillEnds) {
    const Sample& sample = GetParam();
    Runner runner(*sample.scenario);
    const std::uint32_t count = runner.Run({}).Count(sample.kind);
    for (const std::uint32_t behind : {0U, 1U, 10U, 500U}) {
        if (behind >= count) {
            continue;
        }
        const Outcome outcome = runner.Run({sample.kind, count - behind, true});
        SCOPED_TRACE(std::string("the last ") + std::to_string(behind + 1));
        CheckEnd(outcome);
        EXPECT_TRUE(outcome.report.destroyed);
        EXPECT_EQ(outcome.report.callbacks, 4U);
        EXPECT_GT(outcome.report.failures, 0U);
        const Lines_t errors = outcome.Of("ERROR");
        EXPECT_EQ(std::count_if(errors.begin(), errors.end(),
                                [](const std::string& line) {
                                    return line.ends_with("errmsg:Input/output error.");
                                }),
                  outcome.report.failures);
        anomaly::CountPoint(sample.kind);
    }
}

INSTANTIATE_TEST_SUITE_P(Scenarios, RegisterAnomaly,
                         testing::Values(Sample{&anomaly::outside, Kind::Write, 200, 300},
                                         Sample{&anomaly::outside, Kind::Read, 200, 0},
                                         Sample{&anomaly::newDay, Kind::Write, 20, 40},
                                         Sample{&anomaly::fromCache, Kind::Write, 200, 200},
                                         Sample{&anomaly::fromCache, Kind::Read, 200, 0},
                                         Sample{&anomaly::fromTables, Kind::Write, 60, 40},
                                         Sample{&anomaly::fromTables, Kind::Read, 120, 120}),
                         [](const auto& param) {
                             std::string name =
                                 std::string(param.param.scenario->name) + NameOf(param.param.kind);
                             std::erase_if(name, [](char letter) {
                                 return !std::isalnum(static_cast<unsigned char>(letter));
                             });
                             return name;
                         });

}  // namespace
