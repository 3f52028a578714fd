#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

// How a person writes values, for files and commands. Nothing may follow a value.
namespace ZceBoard {

// A whole decimal number up to `most`.
bool ParseNumber(std::string_view text, uint64_t most, uint64_t& number);
// A decimal number, bounds included.
bool ParseDecimal(std::string_view text, double least, double most, double& number);
// hhmmss of "08:55:00"; with `asEnd` also "24:00:00".
std::optional<uint32_t> ParseTimeOfDay(std::string_view text, bool asEnd = false);
// yyyymmdd of "20261120", a day that exists, from 1970 to 2199.
std::optional<uint32_t> ParseDate(std::string_view text);
// Without blanks around it.
std::string_view Trimmed(std::string_view text);
// The items of a list with commas, without blanks around them; empty ones are kept.
std::vector<std::string_view> SplitList(std::string_view text);

}  // namespace ZceBoard
