#pragma once

#include <array>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "startBench.h"

// The selection made once more, as plainly as it can be said, from the rules as they were meant
// and not as a file holds them. Nothing of the library is used.
namespace velatest {

// One channel's section. An item with a digit is an instrument's id, any other a class.
struct ChannelRules {
    bool hasInsts = false;
    std::vector<std::string> items;
    std::optional<std::string> options;
    std::optional<std::string> ips;
    std::optional<std::string> spd;
};
using Rules_t = std::array<ChannelRules, 16>;

// Word 0 of every entry of the two tables.
struct Masks_t {
    std::vector<unsigned int> sgl = std::vector<unsigned int>(4096, 0);
    std::vector<unsigned int> cmb = std::vector<unsigned int>(4096, 0);
    bool operator==(const Masks_t&) const = default;
};
Masks_t SelectMasks(const Rules_t& rules, const std::map<std::string, unsigned short>& insts);

using Random_t = std::mt19937;
// Whether something comes true that does so `percent` times in a hundred.
bool Chance(Random_t& random, unsigned int percent);

// The exchange's list: futures, options and combinations of its products, and names that look like
// something else than they are, each with an index of its table (now and then one that another has
// too). `size`: about how many.
Insts_t DrawList(Random_t& random, std::size_t size);
// Rules that hit much of the list.
Rules_t DrawRules(Random_t& random, const Insts_t& list);
// The INI file that means these rules: odd case, blanks and superfluous commas thrown in.
std::string DrawIni(Random_t& random, const Rules_t& rules);

}  // namespace velatest
