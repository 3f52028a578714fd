// Every call of the vendor's library that has a result fails, once and for good from there on.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <string>
#include <string_view>
#include <vector>

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

// What is being looked for or opened when the call fails: it decides how the failure goes on.
enum class Step {
    Driver,       // the core of the register driver: the start ends
    DriverBoard,  // the same, before the core's root is known
    Stream,       // the streams: the start ends
    StreamBoard,  // the same, before the accelerator is known
    Nothing,      // no effect
    Counter,      // a counter of the stream's end: a line
};

struct Row {
    std::string_view call;
    int occurrence;  // of this name in the run, from 1 on; 0: any
    Step step;
    Lines_t lines;  // of ERROR level, the first ones; at Step::Counter of INFO level
    int a2cOpen = 0;
    int c2aOpen = 0;
};

constexpr const char* why = "Input/output error";

// The accelerator, looked for by the driver on channel 0 and by the stream on any other.
std::vector<Row> BoardRows(Step step) {
    return {
        {"filter_create", 1, step, {"Could not create filter for DMA. errno:5"}},
        {"filter_set_index",
         1,
         step,
         {std::string("Could not set filter id. errno:5, errMsg:") + why + "."}},
        {"enumerate_accelerators",
         1,
         step,
         {std::string("Could not find accelerator. ernno:5, msg:") + why + ", get acc num:-1."}},
        {"accelerator_get", 1, step, {"Could not get accelerator. errno:5"}},
    };
}

std::vector<Row> CoreRows() {
    const std::string reason = std::string(", errmsg:") + why + ".";
    return {
        {"filter_create", 2, Step::DriverBoard, {"Could not create mmio filter" + reason}},
        {"filter_set_index", 2, Step::DriverBoard, {"Could not set mmio filter index" + reason}},
        {"accelerator_enumerate_mmios", 1, Step::DriverBoard, {"Could not find mmio" + reason}},
        {"mmio_create", 1, Step::DriverBoard, {"Could not create mmio" + reason}},
        {"enumerate_cores", 1, Step::DriverBoard, {"Could not find tree" + reason}},
        {"core_tree_get_root", 1, Step::DriverBoard, {"Could not find root" + reason}},
        {"core_reset", 1, Step::Nothing, {}},
        {"core_enumerate",
         1,
         Step::Driver,
         {std::string("Could not enumerate cores, busId:0, coreId:474. errmsg:") + why + "."}},
    };
}

std::vector<Row> StreamRows(const std::string& name, int filter) {
    const std::string reason = std::string("err:") + why;
    const std::string of = "dmaName:" + name + ", " + reason;
    return {
        {"filter_create", filter, Step::Stream, {"Could not create dma filter. " + reason}},
        {"filter_set_name",
         1,
         Step::Stream,
         {"Could not set dma filter name: " + name + ". " + reason}},
        {"accelerator_enumerate_a2c_streams",
         1,
         Step::Stream,
         {"Could not find a2c stream. " + of}},
        {"a2c_stream_create",
         1,
         Step::Stream,
         {"Could not create a2c stream.dmaName:" + name + ",  " + reason,
          "Note !! A software program can only have one instance running at a time!"}},
        {"accelerator_enumerate_c2a_streams",
         1,
         Step::Stream,
         {"Could not find c2a stream. " + of},
         1},
        {"c2a_stream_create", 1, Step::Stream, {"Could not create c2a stream. " + of}, 1},
        {"a2c_stream_get_mtu", 1, Step::Stream, {"Could not get mtu." + of}, 1, 1},
        {"c2a_stream_get_mtu", 1, Step::Stream, {"Could not get mtu." + of}, 1, 1},
        {"a2c_stream_poll_once", 0, Step::Nothing, {}},
        {"a2c_stream_stats_get_backpressure",
         1,
         Step::Counter,
         {"get a2c stream backpress num fail."}},
        {"a2c_stream_stats_get_packet_count",
         1,
         Step::Counter,
         {"get a2c stream packet count fail."}},
        {"a2c_stream_stats_get_fifo_errors", 1, Step::Counter, {"get a2c stream fifo count fail."}},
        {"a2c_stream_stats_get_errors", 1, Step::Counter, {"get a2c stream fifo count fail."}},
    };
}

std::vector<Row> RowsOf(const Scenario& scenario) {
    const bool master = scenario.channel == 0;
    std::vector<Row> rows = BoardRows(master ? Step::DriverBoard : Step::StreamBoard);
    const auto add = [&rows](const std::vector<Row>& more) {
        rows.insert(rows.end(), more.begin(), more.end());
    };
    if (master) {
        add(CoreRows());
    }
    add(StreamRows(scenario.stream, master ? 3 : 2));
    return rows;
}

// What follows the first lines.
Lines_t Following(Step step, const Scenario& scenario) {
    const std::string name = scenario.stream;
    Lines_t lines;
    if (step == Step::DriverBoard) {
        lines = {"Get core error. busId:0, coreId:474"};
    }
    if (step == Step::DriverBoard || step == Step::Driver) {
        lines.insert(lines.end(), {std::string("enumerate core error!, get core num -1, msg:") +
                                       why + ", busid:0, coreId:474.",
                                   "Init New drive failed! ret:-1", "Vela inner init fail."});
    }
    if (step == Step::StreamBoard) {
        lines = {"Init Accelerator error!"};
    }
    if (step == Step::StreamBoard || step == Step::Stream) {
        lines.insert(lines.end(),
                     {"Init DMA error!", "Dma init busid:0, chanName:" + name + " fail!",
                      "[channel:" + std::to_string(scenario.channel) +
                          "] Init dma fail! dma name " + name + ".",
                      "Create Tern service failed!"});
    }
    return lines;
}

class VendorAnomaly : public testing::TestWithParam<const Scenario*> {
  protected:
    // The row of the call of this number in an undisturbed run.
    static const Row* RowOf(const std::vector<Row>& rows, const Report& report,
                            std::uint32_t number) {
        const std::string_view call = report.vendorCalls.at(number - 1).data();
        const auto occurrence = static_cast<int>(
            std::count_if(report.vendorCalls.begin(), report.vendorCalls.begin() + number,
                          [call](const auto& name) { return call == name.data(); }));
        const auto row = std::find_if(rows.begin(), rows.end(), [&](const Row& candidate) {
            return candidate.call == call &&
                   (candidate.occurrence == 0 || candidate.occurrence == occurrence);
        });
        EXPECT_NE(row, rows.end()) << call << " " << occurrence;
        return row == rows.end() ? nullptr : &*row;
    }

    void Check(const Outcome& outcome, const Row& row, bool forGood) const {
        CheckEnd(outcome, row.a2cOpen, row.c2aOpen);
        const bool goesOn = row.step == Step::Nothing || row.step == Step::Counter;
        EXPECT_EQ(outcome.report.started, goesOn);
        EXPECT_EQ(outcome.report.destroyed, goesOn);
        if (!goesOn) {
            Lines_t expected = row.lines;
            const Lines_t following = Following(row.step, *GetParam());
            expected.insert(expected.end(), following.begin(), following.end());
            EXPECT_THAT(outcome.Of("ERROR"), ElementsAreArray(expected));
            return;
        }
        // The only failure that is met with a line while the run goes on.
        const Lines_t infos = outcome.Of("INFO");
        if (row.step == Step::Counter) {
            EXPECT_THAT(infos, testing::Contains(row.lines[0]));
        }
        if (!forGood) {
            EXPECT_THAT(outcome.Of("ERROR"), testing::IsEmpty());
            EXPECT_EQ(outcome.report.callbacks, 4U);
            EXPECT_EQ(outcome.report.masks, GetParam()->masks);
            EXPECT_EQ(std::count_if(infos.begin(), infos.end(),
                                    [](const std::string& line) {
                                        return line.starts_with("get a2c stream");
                                    }),
                      row.step == Step::Counter ? 1 : 0);
        }
    }
};

TEST_P(VendorAnomaly, EveryCallOfTheVendorFails) {
    Runner runner(*GetParam());
    const Outcome whole = runner.Run({});
    CheckEnd(whole);
    ASSERT_EQ(whole.report.callbacks, 4U);
    ASSERT_EQ(whole.report.masks, GetParam()->masks);
    ASSERT_THAT(whole.Of("ERROR"), testing::IsEmpty());
    ASSERT_TRUE(whole.report.destroyed);
    const std::vector<Row> rows = RowsOf(*GetParam());
    const std::uint32_t calls = whole.Count(Kind::Vendor);
    ASSERT_GE(calls, rows.size());
    ASSERT_LT(calls, Report::vendorMax);
    // A start that resets the board or reads its tables is a long one.
    const bool isLong = GetParam() == &anomaly::newDay || GetParam() == &anomaly::fromTables;
    const std::uint32_t stride = isLong ? anomaly::step : 1;
    for (std::uint32_t number = 1; number <= calls; number += stride) {
        for (const bool forGood : {false, true}) {
            // A reset that fails is not looked at: the first failure that counts is the next.
            const bool skips = forGood && std::string_view("core_reset") ==
                                              whole.report.vendorCalls.at(number - 1).data();
            const Row* const row = RowOf(rows, whole.report, skips ? number + 1 : number);
            ASSERT_NE(row, nullptr);
            SCOPED_TRACE(std::string(row->call) + ", call " + std::to_string(number) +
                         (forGood ? " and all later ones" : ""));
            const Outcome outcome = runner.Run({Kind::Vendor, number, forGood});
            EXPECT_GE(outcome.report.failures, 1U);
            Check(outcome, *row, forGood);
            anomaly::CountPoint(Kind::Vendor);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Scenarios, VendorAnomaly,
                         testing::Values(&anomaly::outside, &anomaly::newDay, &anomaly::fromCache,
                                         &anomaly::fromTables, &anomaly::channel3),
                         [](const auto& param) {
                             std::string name = param.param->name;
                             std::erase_if(name, [](char letter) {
                                 return !std::isalnum(static_cast<unsigned char>(letter));
                             });
                             return name;
                         });

}  // namespace
