#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "device/Feeds.h"
#include "exchange/Broadcast.h"
#include "exchange/Instruments.h"
#include "exchange/SessionTable.h"
#include "memory/Faults.h"
#include "traffic/Traffic.h"

namespace ZceBoard {

// The market data of one level, in messages of board time.
struct LevelPlan {
    uint64_t rate = 10000;      // a second
    uint64_t burst = 0;         // so many more at once ...
    uint64_t burstEveryMs = 0;  // ... each time that this has passed since the start
    std::array<bool, 4> phases{false, false, true, false};  // by Phase: in which they come
};

// A fault from a moment of board time until another.
struct FaultPlan {
    FaultSetting setting;
    int64_t atNs;                    // since the start
    std::optional<int64_t> untilNs;  // none: for good
};

// A span of board time since the start.
struct Span {
    int64_t fromNs;
    int64_t toNs;
};

// What a board plays, as a file tells it. Docs: the board's page, "Scenarios".
struct Scenario {
    std::vector<uint32_t> buses{0};
    CInstrumentList instruments;
    uint64_t seed = 1;
    uint32_t date = 0;     // yyyymmdd, 0: the host's
    uint32_t start = 0;    // hhmmss
    int64_t lengthNs = 0;  // of board time from the start to the end; 0: without end
    int64_t speedMilli = 1000;
    std::vector<Span> skips;  // spans that the clock jumps over
    std::string clockFile;    // for libfaketime; empty: none
    std::string clockFileAt;  // where the scenario says so, for messages
    CSessionTable day;
    BroadcastPace pace{4'000'000'000, 60'000'000'000};
    std::array<LevelPlan, 2> levels;  // level 1, level 2
    CFeeds feeds;
    std::vector<FaultPlan> faults;
};

// False: `error` names the file, the line, section, key and value, and the reason. Names of files
// that it reads are relative to its own place; the clock file, which is written, to the working
// directory.
// What `clock` has takes the place of the file's.
bool ReadScenario(const std::string& path, Scenario& scenario, std::string& error,
                  const ClockStart& clock = {});

}  // namespace ZceBoard
