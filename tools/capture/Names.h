#pragma once

#include <cstdint>
#include <string>

namespace ZceCaptureTool {

// "0"; "?" for a bus that is not known.
std::string BusText(uint16_t bus);

// "instrument map", "L1 single-leg" and so on; empty for a type that has no name.
const char* TypeName(uint32_t type);

// "12.345678901".
std::string SecondsText(uint64_t ns);

}  // namespace ZceCaptureTool
