#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "memory/BoardMemory.h"

namespace ZceBoard {

// The faults that are on.
std::string FaultsText(BoardShm& shm);
nlohmann::ordered_json FaultsJson(BoardShm& shm);

// What kinds of faults there are.
std::string FaultKindsText();
nlohmann::ordered_json FaultKindsJson();

// Switches a fault on (settings: "key=value") or off ("all": every one), and waits until the board
// has seen it: what was done, in a line. Throws CCtlError.
std::string SwitchFaultOn(CBoardMemory& memory, const std::string& kind,
                          const std::vector<std::string>& settings);
std::string SwitchFaultOff(CBoardMemory& memory, const std::string& kind);

}  // namespace ZceBoard
