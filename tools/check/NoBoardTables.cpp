// A build for the vendor's library has no software board to look at.

#include <fmt/format.h>

#include "check/InstrumentNames.h"

namespace ZceCheck {

bool ReadBoardTables(std::uint32_t bus, InstrumentNames& /*names*/, std::string& error) {
    error = fmt::format(
        "bus {}: the tables of a card cannot be read without disturbing it, take --bin or "
        "--instruments",
        bus);
    return false;
}

}  // namespace ZceCheck
