#include "memory/Phase.h"

#include <cstddef>
#include <iterator>

namespace ZceBoard {

namespace {

constexpr const char* NAMES[] = {"closed", "auction", "trading", "break"};

}  // namespace

const char* PhaseName(Phase phase) {
    return NAMES[static_cast<uint8_t>(phase)];
}

std::optional<Phase> PhaseOf(std::string_view name) {
    for (size_t k = 0; k < std::size(NAMES); ++k) {
        if (name == NAMES[k]) {
            return static_cast<Phase>(k);
        }
    }
    return std::nullopt;
}

}  // namespace ZceBoard
