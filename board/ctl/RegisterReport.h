#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "memory/ShmLayout.h"

namespace ZceBoard {

// What the register map calls a register; empty for one that it does not name.
std::string RegisterName(uint32_t index);

// The registers of the given words, FIRST or FIRST-LAST each, in their order; without any word, all
// registers with a name. Throws CCtlError for a word that is no register or range.
std::vector<uint32_t> RegistersOf(const std::vector<std::string>& words);

// The registers as the board keeps them: looking is no access, and no fault falsifies it. The
// tables' read data (0x11003, 0x12003) are the word at the read address, as a host would read it.
std::string RegistersText(BoardShm& shm, const std::vector<uint32_t>& indices);
nlohmann::ordered_json RegistersJson(BoardShm& shm, const std::vector<uint32_t>& indices);

}  // namespace ZceBoard
