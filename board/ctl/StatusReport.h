#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

#include "ctl/Snapshot.h"

// How the board stands, and what it has counted: for people, and for programs. The keys of the
// latter are described in docs/software-board.md and stay.
namespace ZceBoard {

std::string StatusText(const BoardSnapshot& snapshot);
// `faults`: the list of FaultsJson().
nlohmann::ordered_json StatusJson(const BoardSnapshot& snapshot,
                                  const nlohmann::ordered_json& faults);

std::string CountersText(const BoardSnapshot& snapshot);
nlohmann::ordered_json CountersJson(const BoardSnapshot& snapshot);

// Where the clock stands, after a command that has to do with it: "bus 0: 2026-11-20 09:00:00.100,
// trading, paused, speed 1".
std::string ClockText(const BoardSnapshot& snapshot);
nlohmann::ordered_json ClockJson(const BoardSnapshot& snapshot);

}  // namespace ZceBoard
