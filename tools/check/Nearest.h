#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace ZceCheck {

// How many letters have to be put in, left out, exchanged or swapped with their neighbour to make
// one text the other; capital and small letters are alike.
std::size_t Distance(std::string_view left, std::string_view right);

// The candidates that `text` may have been meant for, at most three, the nearest first; those of
// the same distance in their own order.
std::vector<std::string> Nearest(std::string_view text, const std::vector<std::string>& candidates);

}  // namespace ZceCheck
