#include "selectionModel.h"

#include <algorithm>
#include <cctype>
#include <regex>
#include <set>

namespace velatest {

namespace {

// What the rules say of one name.
struct NameFacts {
    bool spd = false;
    bool ips = false;
    bool option = false;
    std::string cls;
    std::string underlying;  // of an option
};

// An option's letter stands between two digits; the first such letter counts.
NameFacts FactsOf(const std::string& name) {
    static const std::regex optionLetter("[0-9][CP][0-9]");
    static const std::regex letters("^[A-Za-z]*");
    NameFacts facts;
    facts.spd = name.substr(0, 4) == "SPD-";
    facts.ips = name.substr(0, 4) == "IPS-";
    std::smatch match;
    if (std::regex_search(name, match, optionLetter)) {
        facts.option = true;
        facts.underlying =
            match.prefix().str() + name.at(static_cast<std::size_t>(match.position()));
    }
    std::regex_search(name, match, letters);
    facts.cls = match.str();
    return facts;
}

// A channel's rules as the parts of the selection ask for them.
struct Wants {
    std::set<std::string> ids;
    std::set<std::string> classes;
    bool all = false;
    bool options = false;
    bool ips = false;
    bool spd = false;

    bool Take(const std::string& name, const NameFacts& facts) const {
        if (facts.spd || facts.ips) {
            return facts.spd ? spd : ips;
        }
        const bool byClass = classes.contains(facts.cls);
        if (facts.option) {
            return options && (byClass || ids.contains(facts.underlying) || all);
        }
        return byClass || ids.contains(name) || all;
    }
};

bool HasAll(std::string item) {
    for (char& letter : item) {
        letter = static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
    }
    return item.find("all") != std::string::npos;
}

// A section with instruments and no options key ends the reading of the rules: its own instruments
// count, the rest of it and the channels after it do not.
std::array<Wants, 16> ReadRules(const Rules_t& rules) {
    std::array<Wants, 16> wants;
    for (std::size_t channel = 0; channel < rules.size(); ++channel) {
        const ChannelRules& rule = rules.at(channel);
        Wants& want = wants.at(channel);
        if (rule.hasInsts) {
            for (const std::string& item : rule.items) {
                const bool isId = item.find_first_of("0123456789") != std::string::npos;
                (isId ? want.ids : want.classes).insert(item);
                want.all = want.all || HasAll(item);
            }
            if (!rule.options) {
                break;
            }
            want.options = rule.options == "recv";
        }
        want.ips = rule.ips == "recv";
        want.spd = rule.spd == "recv";
    }
    return wants;
}

}  // namespace

Masks_t SelectMasks(const Rules_t& rules, const std::map<std::string, unsigned short>& insts) {
    const std::array<Wants, 16> wants = ReadRules(rules);
    Masks_t masks;
    for (const auto& [name, index] : insts) {
        const NameFacts facts = FactsOf(name);
        unsigned int& mask = (facts.spd || facts.ips ? masks.cmb : masks.sgl).at(index);
        for (std::size_t channel = 0; channel < wants.size(); ++channel) {
            mask |= wants.at(channel).Take(name, facts) ? 1U << channel : 0U;
        }
    }
    return masks;
}

}  // namespace velatest
