#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "top/TopPage.h"

namespace ZceBoard {

// How far a key scrolls; 0: it does not.
inline std::ptrdiff_t ScrollStep(TopKey::Kind kind) {
    constexpr std::ptrdiff_t page = 10;
    switch (kind) {
        case TopKey::Kind::Up:
            return -1;
        case TopKey::Kind::Down:
            return 1;
        case TopKey::Kind::PageUp:
            return -page;
        case TopKey::Kind::PageDown:
            return page;
        case TopKey::Kind::Home:
            return PTRDIFF_MIN / 2;
        default:
            return 0;
    }
}

// `place` moved within 0 to `last`.
inline size_t Moved(size_t place, std::ptrdiff_t step, size_t last) {
    const auto moved = static_cast<std::ptrdiff_t>(place) + step;
    return static_cast<size_t>(
        std::clamp(moved, std::ptrdiff_t{0}, static_cast<std::ptrdiff_t>(last)));
}

}  // namespace ZceBoard
