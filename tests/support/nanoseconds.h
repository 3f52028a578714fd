#pragma once

#include <cstdint>

// The times of the board and of the captures are nanoseconds.
namespace boardtest {

constexpr int64_t MS = 1'000'000;
constexpr int64_t SECOND = 1000 * MS;

}  // namespace boardtest
