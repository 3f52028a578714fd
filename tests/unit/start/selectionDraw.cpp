#include <algorithm>
#include <cctype>
#include <iterator>
#include <numeric>
#include <set>

#include "selectionModel.h"

namespace velatest {

namespace {

constexpr const char* products[] = {"AP", "CF", "CJ", "CY", "FG", "JR", "LR", "MA", "OI",
                                    "PF", "PK", "PM", "PX", "RI", "RM", "RS", "SA", "SF",
                                    "SH", "SM", "SR", "TA", "UR", "WH", "ZC"};
constexpr const char* months[] = {"209", "210", "211", "212", "301", "302",
                                  "303", "305", "307", "309", "311", "401"};

// Every way to be mistaken for something else.
constexpr const char* oddNames[] = {
    "CF209C14000",
    "CJ309P9000",
    "CY301C21000",
    "PF210P7000",
    "PK211C9000",
    "PM305P2800",
    "PX309C8000",
    "PX309P8000",
    "CF209MSC14000",
    "SR211MSP5000",
    "SR209c5000",
    "SR209p5000",
    "sr209",
    "Sr209C5000",
    "SR209C",
    "SR209P",
    "SR209CP5000",
    "SR209C5000C1",
    "CJ301C12000P1",
    "A1BC2C3",
    "X9P9C9",
    "C209",
    "P209",
    "C209C100",
    "P209P1",
    "CP209",
    "209C500",
    "209",
    "CF",
    "PF",
    "C",
    "P",
    "9C9",
    "SPD",
    "SPD-",
    "IPS",
    "IPS-",
    "SPDSR209",
    "IPSSR209C5000",
    "spd-SR209&SR301",
    "ips-SF209&SM209",
    "SPD-SR209C5000&SR209P5000",
    "IPS-C209C1&P209P1",
    "SPD-CF209",
    "ALL209",
    "ALLC",
    "XALLX209",
    "XALLX209C100",
    "SR2O9",
    "SR-209",
    "_SR209",
    "SR 209",
    "SR209 ",
    "",
    "SR209C5000-MS",
    "STRADDLE209",
    "STGSR209C5000",
    "SR209C5000SR209C5000SR209C5000SR209C5000SR209C5000SR209C5000SR2"};
static_assert(std::char_traits<char>::length(std::end(oddNames)[-1]) == 63);

std::size_t Below(Random_t& random, std::size_t end) {
    return std::uniform_int_distribution<std::size_t>(0, end - 1)(random);
}

template <typename List>
std::string OneOf(Random_t& random, const List& list) {
    return *(std::begin(list) + static_cast<std::ptrdiff_t>(Below(random, std::size(list))));
}

std::string Future(Random_t& random) {
    return OneOf(random, products) + OneOf(random, months);
}

std::string DrawName(Random_t& random) {
    const std::size_t kind = Below(random, 100);
    if (kind < 20) {
        return Future(random);
    }
    if (kind < 75) {
        return Future(random) + (Chance(random, 50) ? "C" : "P") +
               std::to_string((Below(random, 400) + 1) * 50);
    }
    if (kind < 85) {
        const std::string product = OneOf(random, products);
        return "SPD-" + product + OneOf(random, months) + "&" + product + OneOf(random, months);
    }
    if (kind < 93) {
        return "IPS-" + Future(random) + "&" + Future(random);
    }
    return OneOf(random, oddNames);
}

bool IsCombination(const std::string& name) {
    return name.starts_with("SPD-") || name.starts_with("IPS-");
}

std::vector<unsigned short> ShuffledIndexes(Random_t& random) {
    std::vector<unsigned short> indexes(4096);
    std::iota(indexes.begin(), indexes.end(), static_cast<unsigned short>(0));
    std::shuffle(indexes.begin(), indexes.end(), random);
    return indexes;
}

std::string DrawItem(Random_t& random, const Insts_t& list) {
    constexpr const char* oddItems[] = {"all",   "ALL",    "aLl",      "xallx",  "All209", "xx999",
                                        "XX999", "sr",     "Cf",       "sr209",  "C",      "P",
                                        "S",     "SR209C", "SR209C50", "SPD-",   "IPS",    "recv",
                                        "SR2",   "209",    "al",       "CFalls", "*",      "SR-"};
    const std::size_t kind = Below(random, 100);
    if (kind < 35) {
        return OneOf(random, products);
    }
    if (kind < 65) {
        return Future(random);
    }
    if (kind < 93) {
        std::string name = list[Below(random, list.size())].second;
        std::erase(name, ' ');  // as a file would have it
        return name.empty() ? "SR" : name;
    }
    return OneOf(random, oddItems);
}

// Mostly "recv"; null: the key is left out.
std::optional<std::string> DrawSwitch(Random_t& random, unsigned int absentPercent) {
    constexpr const char* others[] = {"norecv", "RECV", "Recv", "recv1", "no", "", "1", "re cv"};
    if (Chance(random, absentPercent)) {
        return std::nullopt;
    }
    return Chance(random, 60) ? "recv" : OneOf(random, others);
}

std::string OddCase(Random_t& random, std::string text) {
    for (char& letter : text) {
        if (Chance(random, 10)) {
            letter = static_cast<char>(std::toupper(static_cast<unsigned char>(letter)));
        }
    }
    return text;
}

void PutKey(Random_t& random, std::string& ini, const char* key,
            const std::optional<std::string>& value) {
    if (value) {
        ini += OddCase(random, key) + (Chance(random, 50) ? "=" : "  =  ") + *value + "\n";
    }
}

// The items with commas and blanks wherever they do no harm.
std::string DrawInsts(Random_t& random, const std::vector<std::string>& items) {
    std::string text = Chance(random, 10) ? "," : "";
    for (const std::string& item : items) {
        for (const char letter : item) {
            text += Chance(random, 3) ? " " : "";
            text += letter;
        }
        text += Chance(random, 10) ? " ,, " : Chance(random, 50) ? "," : ", ";
    }
    if (Chance(random, 50) && !items.empty()) {
        text.erase(text.find_last_of(','));
    }
    return text;
}

}  // namespace

bool Chance(Random_t& random, unsigned int percent) {
    return Below(random, 100) < percent;
}

Insts_t DrawList(Random_t& random, std::size_t size) {
    std::vector<unsigned short> sgl = ShuffledIndexes(random);
    std::vector<unsigned short> cmb = ShuffledIndexes(random);
    std::set<std::string> names(std::begin(oddNames), std::end(oddNames));
    // The combinations of a large list are the rarer ones; what the tables cannot hold stays out.
    for (std::size_t tries = 0; tries < 20 * size && names.size() < size; ++tries) {
        names.insert(DrawName(random));
    }
    Insts_t list;
    for (const std::string& name : names) {
        std::vector<unsigned short>& free = IsCombination(name) ? cmb : sgl;
        if (free.empty()) {
            continue;
        }
        list.emplace_back(free.back(), name);
        if (!Chance(random, 2)) {  // else the next one gets the same index
            free.pop_back();
        }
    }
    std::shuffle(list.begin(), list.end(), random);
    return list;
}

Rules_t DrawRules(Random_t& random, const Insts_t& list) {
    Rules_t rules;
    const bool someLackOptions = Chance(random, 15);
    for (ChannelRules& rule : rules) {
        if (Chance(random, 12)) {
            continue;
        }
        rule.hasInsts = Chance(random, 85);
        const std::size_t number = Chance(random, 10) ? 0 : 1 + Below(random, 12);
        for (std::size_t item = 0; rule.hasInsts && item < number; ++item) {
            rule.items.push_back(DrawItem(random, list));
            if (Chance(random, 10)) {
                rule.items.push_back(rule.items.front());
            }
        }
        rule.options = DrawSwitch(random, someLackOptions ? 15 : rule.hasInsts ? 0 : 50);
        rule.ips = DrawSwitch(random, 30);
        rule.spd = DrawSwitch(random, 30);
    }
    return rules;
}

std::string DrawIni(Random_t& random, const Rules_t& rules) {
    std::string ini = "[config]\ndevice=xilinx0:0\n";
    for (std::size_t channel = 0; channel < rules.size(); ++channel) {
        const ChannelRules& rule = rules.at(channel);
        if (!rule.hasInsts && !rule.options && !rule.ips && !rule.spd) {
            continue;
        }
        ini += "[" + OddCase(random, "channel" + std::to_string(channel)) + "]\n";
        if (rule.hasInsts) {
            PutKey(random, ini, "insts", DrawInsts(random, rule.items));
        }
        PutKey(random, ini, "options", rule.options);
        PutKey(random, ini, "ips", rule.ips);
        PutKey(random, ini, "spd", rule.spd);
    }
    return ini;
}

}  // namespace velatest
