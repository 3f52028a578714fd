// The rules against a list of instruments.

#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "DataType/ZceSubsInfo.h"
#include "DataType/ZceSubsMasks.h"
#include "check/Check.h"
#include "check/Nearest.h"

namespace ZceCheck {

namespace {

// What the names of a list are, for comparison and for suggestions.
struct Known {
    std::vector<std::string> futures;
    std::vector<std::string> classes;
    bool bSpd = false;
    bool bIps = false;
};

Known Sort(const InstrumentNames& names) {
    Known known;
    std::set<std::string> classes;
    for (const auto& [name, index] : names.byName) {
        switch (Vela2_U50::KindOfInst(name)) {
            case Vela2_U50::InstKind_t::spd:
                known.bSpd = true;
                continue;
            case Vela2_U50::InstKind_t::ips:
                known.bIps = true;
                continue;
            case Vela2_U50::InstKind_t::single:
                break;
        }
        classes.emplace(Vela2_U50::ClassIn(name));
        if (!Vela2_U50::IsOption(name)) {
            known.futures.push_back(name);
        }
    }
    known.classes.assign(classes.begin(), classes.end());
    return known;
}

std::string HintOf(const std::string& item, const std::vector<std::string>& candidates) {
    const std::vector<std::string> near = Nearest(item, candidates);
    return near.empty() ? "take it away, or take a newer list"
                        : fmt::format("did you mean {}?", Listed(near, " or "));
}

Counts CountOf(const Selection& selected) {
    Counts counts;
    counts.options = static_cast<std::size_t>(
        std::count_if(selected.single.begin(), selected.single.end(),
                      [](const std::string& name) { return Vela2_U50::IsOption(name); }));
    counts.futures = selected.single.size() - counts.options;
    counts.combinations = selected.combined.size();
    return counts;
}

// Items that can never select anything are told without a list.
bool IsLetters(const std::string& item) {
    return Vela2_U50::ClassIn(item) == item && item != "SPD" && item != "IPS";
}

void CheckItems(unsigned channel, const Known& known, CheckResult& result) {
    const std::string section = ChannelSection(channel);
    const Place place = PlaceOf(result, section, "insts");
    std::set<std::string> told;
    for (const std::string& id : result.library.selected[channel].lacking) {
        const bool bSingle = Vela2_U50::KindOfInst(id) == Vela2_U50::InstKind_t::single;
        const bool bPlain = std::all_of(id.begin(), id.end(), [](char letter) {
            return static_cast<unsigned char>(letter) < 0x80U;
        });
        if (bSingle && bPlain && !Vela2_U50::IsOption(id) && told.insert(id).second) {
            result.findings.Add(Code::IdNotInList, place,
                                fmt::format("{} is not in {}", Shown(id), result.listSource),
                                HintOf(id, known.futures));
        }
    }
    for (const std::string& cls : result.library.rules[channel].vecSubClasses) {
        if (IsLetters(cls) && !Vela2_U50::FindAllTag(cls) &&
            !std::binary_search(known.classes.begin(), known.classes.end(), cls) &&
            told.insert(cls).second) {
            result.findings.Add(
                Code::ClassNotInList, place,
                fmt::format("no instrument of {} has the class {}", result.listSource, cls),
                HintOf(cls, known.classes));
        }
    }
}

void CheckKind(unsigned channel, const char* key, bool bWanted, bool bThere, CheckResult& result) {
    if (bWanted && !bThere) {
        result.findings.Add(Code::NoneOfKind, PlaceOf(result, ChannelSection(channel), key),
                            fmt::format("{} holds no such spread", result.listSource),
                            "take a newer list if there should be some");
    }
}

}  // namespace

void CheckAgainst(const InstrumentNames& names, CheckResult& result) {
    const Known known = Sort(names);
    if (names.bIncomplete) {
        result.findings.Add(
            Code::ListIncomplete, {},
            fmt::format("{} has no end tag: its list was not written whole, and the "
                        "library refuses it",
                        names.source),
            "take a list that is complete");
    }
    for (unsigned channel = 0; channel < CHANNELS; ++channel) {
        const auto& rules = result.library.rules[channel];
        const Counts counts = CountOf(result.library.selected[channel]);
        result.counts[channel] = counts;
        CheckItems(channel, known, result);
        CheckKind(channel, "ips", rules.bIpsRecv != 0, known.bIps, result);
        CheckKind(channel, "spd", rules.bSpdRecv != 0, known.bSpd, result);
        const std::string section = ChannelSection(channel);
        const bool bSomething = counts.futures + counts.options + counts.combinations != 0;
        if (!bSomething && result.library.HasSection(section) &&
            !result.findings.HasAnyIn(section)) {
            result.findings.Add(Code::ChannelGetsNothing,
                                {result.lines.LineOf(section), section, "", ""},
                                fmt::format("of {} the channel gets nothing", result.listSource),
                                "compare the rules with the list");
        }
    }
}

}  // namespace ZceCheck
