#pragma once

#include <cstdint>
#include <string>

#include "memory/BoardMemory.h"
#include "memory/RegisterMap.h"

namespace ZceBoard {

constexpr uint32_t LAST_BUS = MAX_BUSES - 1;

// Maps the living board of a bus, one that has gone through a pass at least. 0 or an errno (ENODEV:
// there is none) with its words in `reason`.
int TryAttach(CBoardMemory& memory, uint32_t bus, std::string& reason);
// The same. Throws CCtlError.
void AttachBoard(CBoardMemory& memory, uint32_t bus);

// "bus 0: the board (process 123) does not answer", for ETIMEDOUT and ENODEV of a board that was
// asked or waited for.
std::string AnswerErrorText(const CBoardMemory& memory, int err);

}  // namespace ZceBoard
