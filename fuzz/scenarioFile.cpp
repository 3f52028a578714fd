// Any bytes as a scenario, and as a file of feeds. What is accepted plays its first 20 milliseconds
// of board time on a board.

#include <memory>

#include "device/Board.h"
#include "fuzzHost.h"
#include "fuzzInput.h"
#include "traffic/FeedFile.h"
#include "traffic/Scenario.h"
#include "traffic/ScenarioTraffic.h"

namespace {

using namespace velafuzz;
using namespace ZceBoard;

constexpr int64_t PLAYED_NS = 20 * NS_PER_MS;
// A slice may hold any number of messages: a pass plays a batch of them.
constexpr int PASSES = 40;
// A list of this many instruments takes a while to be made: those are only read.
constexpr size_t PLAYED_INSTRUMENTS = 64;

// Its name in /dev/shm goes with the process.
CBoardMemory& TheMemory() {
    static CBoardMemory memory;
    static const bool bMade = [] {
        int32_t pid = 0;
        return memory.Create(0, pid) == 0;
    }();
    FUZZ_CHECK(bMade);
    return memory;
}

void CheckScenario(const Scenario& scenario) {
    FUZZ_CHECK(!scenario.buses.empty());
    FUZZ_CHECK(scenario.start / 10000 < 24 && scenario.start / 100 % 100 < 60 &&
               scenario.start % 100 < 60);
    FUZZ_CHECK(scenario.lengthNs >= 0);
    FUZZ_CHECK(scenario.speedMilli > 0);
    for (const Span& skip : scenario.skips) {
        FUZZ_CHECK(skip.fromNs < skip.toNs);
    }
}

void Play(const Scenario& scenario) {
    CBoard board(TheMemory(), scenario.feeds);
    CScenarioTraffic traffic(scenario, 20261120);
    FUZZ_CHECK(!traffic.Describe().empty());
    traffic.Step(PLAYED_NS);
    for (int pass = 0; pass < PASSES && traffic.HasBacklog(); ++pass) {
        traffic.Play(board);
    }
    CFaults(TheMemory().Shm()).ClearAll();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    PrepareBoard();
    static const bool bListWritten = [] {
        WriteFile("list.txt", "SR209\nCF301\nSR209C5000\nSPD-SR209&SR301\n");
        return true;
    }();
    FUZZ_CHECK(bListWritten);
    WriteFile("day.ini", CFuzzInput(data, size).Rest());
    std::string error;
    Scenario scenario;
    if (ReadScenario("day.ini", scenario, error)) {
        CheckScenario(scenario);
        if (scenario.instruments.All().size() <= PLAYED_INSTRUMENTS) {
            Play(scenario);
        }
    } else {
        FUZZ_CHECK(!error.empty());
    }
    CFeeds feeds;
    error.clear();
    FUZZ_CHECK(ReadFeedFile("day.ini", feeds, error) == error.empty());
    return 0;
}
