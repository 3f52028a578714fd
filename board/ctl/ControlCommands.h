#pragma once

#include <string>
#include <vector>

#include "memory/BoardMemory.h"

// What a board's clock and traffic can be asked for. When a function returns it is done, and the
// board has told how it stands now. Each throws CCtlError if the board refuses, does not answer or
// is gone.
namespace ZceBoard {

// False: it was paused, or running, already.
bool PauseBoard(CBoardMemory& memory);
bool ResumeBoard(CBoardMemory& memory);
// `ms`: how many ms, 1 to 86400000; they pass a second at a time.
void StepBoard(CBoardMemory& memory, const std::string& ms);
// `words`: HH:MM:SS, or "to" and HH:MM:SS.
void AdvanceTo(CBoardMemory& memory, const std::vector<std::string>& words);

}  // namespace ZceBoard
