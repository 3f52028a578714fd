#pragma once

#include <fmt/format.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "watch/WatchReader.h"

// The words for what a page tells by numbers, the same for people and for Prometheus.
namespace ZceWatch {

inline std::string BusText(uint64_t bus) {
    return bus == BUS_NOT_KNOWN ? "unknown" : fmt::to_string(bus);
}

// By Life and by BoardState.
constexpr std::array<const char*, 3> LIFE_TEXTS = {"running", "ended", "died"};
constexpr std::array<const char*, 4> BOARD_TEXTS = {"unknown", "running", "gone", "replaced"};

inline size_t IndexOf(Life life) {
    return static_cast<size_t>(life);
}
inline size_t IndexOf(BoardState state) {
    return static_cast<size_t>(state);
}

}  // namespace ZceWatch
