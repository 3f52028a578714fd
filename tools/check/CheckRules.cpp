// The rules of the channels: what needs no list of instruments.

#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "DataType/ZceSubsInfo.h"
#include "DataType/ZceSubsMasks.h"
#include "check/Check.h"

namespace ZceCheck {

namespace {

using Vela2_U50::ZceSubsInfo_t;

constexpr const char* RECV = "recv";
// What separates items to the eye and not to the library: the full-width and the ideographic comma,
// the full-width semicolon, the ideographic and the no-break blank.
constexpr std::string_view WIDE_MARKS[] = {"\xef\xbc\x8c", "\xe3\x80\x81", "\xef\xbc\x9b",
                                           "\xe3\x80\x80", "\xc2\xa0"};

bool IsWide(char letter) {
    return (static_cast<unsigned char>(letter) & 0x80U) != 0;
}

bool HasSmall(std::string_view text) {
    return std::any_of(text.begin(), text.end(),
                       [](char letter) { return letter >= 'a' && letter <= 'z'; });
}

bool IsCombination(const std::string& item) {
    return Vela2_U50::KindOfInst(item) != Vela2_U50::InstKind_t::single || item == "SPD" ||
           item == "IPS";
}

// What one item of `insts` can never do, or hardly was meant to.
class CItemCheck {
  public:
    CItemCheck(CheckResult& result, Place place) : m_result(result), m_place(std::move(place)) {}

    void Id(const std::string& item) {
        All(item);
        if (Wide(item) || Combination(item)) {
            return;
        }
        std::string contract;
        if (Vela2_U50::OptionExtractSecondClass(item, contract) == 0) {
            Add(Code::OptionId,
                fmt::format("{} is an option, and an option's own id selects nothing", Shown(item)),
                fmt::format("write {} and options = recv for all options on it", Shown(contract)));
        } else {
            Small(item);
        }
    }

    void Class(const std::string& item) {
        const bool bAll = All(item);
        if (Wide(item) || Combination(item) || bAll) {
            return;
        }
        if (Vela2_U50::ClassIn(item) != item) {
            Add(Code::ClassNotLetters,
                fmt::format("\"{}\" can match nothing: a class is the letters that ids begin with, "
                            "and nothing else",
                            Shown(item)),
                "put commas between the items, and no tab");
            return;
        }
        Small(item);
    }

  private:
    void Add(Code code, std::string message, std::string hint) {
        m_result.findings.Add(code, m_place, std::move(message), std::move(hint));
    }

    // The letters count wherever they stand, in an id too.
    bool All(const std::string& item) {
        const bool bAll = Vela2_U50::FindAllTag(item);
        if (bAll && Lowered(item) != "all") {
            Add(Code::AllInWord,
                fmt::format("there is \"all\" in {}: the channel gets every future, and every "
                            "option with options = recv",
                            Shown(item)),
                "write all if that is meant, or take the item away");
        }
        return bAll;
    }

    bool Wide(const std::string& item) {
        if (std::none_of(item.begin(), item.end(), IsWide)) {
            return false;
        }
        const bool bMark = std::any_of(
            std::begin(WIDE_MARKS), std::end(WIDE_MARKS),
            [&](std::string_view mark) { return item.find(mark) != std::string::npos; });
        Add(Code::FullWidth,
            fmt::format("\"{}\" is one item, and can match nothing: there is a full-width {} in it",
                        Shown(item), bMark ? "comma or blank" : "letter"),
            bMark ? "put plain commas between the items" : "write plain letters and digits");
        return true;
    }

    bool Combination(const std::string& item) {
        if (!IsCombination(item)) {
            return false;
        }
        const bool bIps = item.starts_with("IPS");
        Add(Code::CombinationId,
            fmt::format("{} is a combination, and insts selects none of them", Shown(item)),
            fmt::format("write {} = recv for all of its kind", bIps ? "ips" : "spd"));
        return true;
    }

    void Small(const std::string& item) {
        if (m_result.listSource.empty() && HasSmall(item)) {
            Add(Code::LowerCase,
                fmt::format(
                    "{} has small letters in it, and the exchange's names have capitals: it "
                    "matches nothing",
                    Shown(item)),
                "write it in capitals");
        }
    }

    CheckResult& m_result;
    Place m_place;
};

// Items that blanks were taken out of: "SR CF" has become SRCF.
void CheckBlanks(const Place& place, CheckResult& result) {
    std::string_view rest = place.value;
    while (!rest.empty()) {
        const std::string_view item = Trimmed(rest.substr(0, rest.find(',')));
        rest.remove_prefix(
            std::min(rest.find(',') == std::string_view::npos ? rest.size() : rest.find(',') + 1,
                     rest.size()));
        if (item.find(' ') != std::string_view::npos) {
            const std::string read = Vela2_U50::RemoveSpace(std::string(item));
            result.findings.Add(Code::BlankInItem, place,
                                fmt::format("\"{}\" is one item, {}: blanks separate nothing",
                                            Shown(item), Shown(read)),
                                "put commas between the items");
        }
    }
}

void CheckTwice(const ZceSubsInfo_t& rules, const Place& place, CheckResult& result) {
    std::set<std::string> seen;
    std::set<std::string> twice;
    for (const auto* list : {&rules.vecSubIds, &rules.vecSubClasses}) {
        for (const std::string& item : *list) {
            if (!seen.insert(item).second) {
                twice.insert(item);
            }
        }
    }
    for (const std::string& item : twice) {
        result.findings.Add(Code::DuplicateItem, place,
                            fmt::format("{} is there more than once", Shown(item)),
                            "keep one of them");
    }
}

void CheckInsts(const std::string& section, const ZceSubsInfo_t& rules, CheckResult& result) {
    const Place place = PlaceOf(result, section, "insts");
    if (rules.vecSubIds.empty() && rules.vecSubClasses.empty()) {
        result.findings.Add(Code::InstsEmpty, place, "the list is empty: it selects nothing",
                            "name ids, classes or all, or take the key away");
    }
    CItemCheck check(result, place);
    for (const std::string& id : rules.vecSubIds) {
        check.Id(id);
    }
    for (const std::string& cls : rules.vecSubClasses) {
        check.Class(cls);
    }
    CheckBlanks(place, result);
    CheckTwice(rules, place, result);
}

void CheckSwitch(const std::string& section, const char* key, CheckResult& result) {
    const std::string* const value = result.library.Value(section, key);
    if (value == nullptr || *value == RECV || *value == "norecv") {
        return;
    }
    const std::string lowered = Lowered(Vela2_U50::RemoveSpace(*value));
    const bool bMeant = (lowered.starts_with("rec") && lowered != "recvno") || lowered == "yes" ||
                        lowered == "1" || lowered == "on" || lowered == "true" ||
                        lowered == "all" || lowered == "enabled";
    result.findings.Add(bMeant ? Code::NotRecv : Code::OddSwitch, PlaceOf(result, section, key),
                        "it counts as norecv: only the exact word recv asks for them",
                        bMeant ? "write recv" : "write recv or norecv");
}

bool CanSelect(const ZceSubsInfo_t& rules) {
    const auto single = [](const std::string& item) {
        return !IsCombination(item) && !Vela2_U50::IsOption(item);
    };
    return rules.bSubAll != 0 || rules.bIpsRecv != 0 || rules.bSpdRecv != 0 ||
           std::any_of(rules.vecSubIds.begin(), rules.vecSubIds.end(), single) ||
           std::any_of(rules.vecSubClasses.begin(), rules.vecSubClasses.end(), single);
}

// The channel at which the reading of the rules ends; CHANNELS if it does not.
unsigned LastRead(const Understood& library) {
    unsigned channel = library.bAllRulesRead ? CHANNELS : 0;
    for (; channel < CHANNELS; ++channel) {
        const std::string section = ChannelSection(channel);
        if (library.Value(section, "insts") != nullptr &&
            library.Value(section, "options") == nullptr) {
            return channel;
        }
    }
    return channel;
}

void CheckMissing(unsigned channel, CheckResult& result) {
    const std::string section = ChannelSection(channel);
    const std::string later =
        channel + 1 == CHANNELS
            ? ""
            : fmt::format(", and channels {} to {} get nothing", channel + 1, CHANNELS - 1);
    result.findings.Add(Code::OptionsMissing, PlaceOf(result, section, "insts"),
                        "there is no options beside it: the reading of the rules ends here" + later,
                        fmt::format("add options = recv or options = norecv to [{}]", section));
    for (const char* const key : {"ips", "spd"}) {
        if (const std::string* value = result.library.Value(section, key);
            value != nullptr && *value == RECV) {
            result.findings.Add(Code::ChannelNotRead, PlaceOf(result, section, key),
                                "not read: the reading of the rules ended before it",
                                fmt::format("add options to [{}]", section));
        }
    }
}

void CheckChannel(unsigned channel, unsigned lastRead, CheckResult& result) {
    const std::string section = ChannelSection(channel);
    if (!result.library.HasSection(section)) {
        return;
    }
    const Place place{result.lines.LineOf(section), section, "", ""};
    if (channel > lastRead) {
        result.findings.Add(Code::ChannelNotRead, place,
                            fmt::format("not read: the reading of the rules ended in [{}]",
                                        ChannelSection(lastRead)),
                            fmt::format("add options to [{}]", ChannelSection(lastRead)));
        return;
    }
    const ZceSubsInfo_t& rules = result.library.rules[channel];
    const bool bInsts = result.library.Value(section, "insts") != nullptr;
    if (bInsts) {
        CheckInsts(section, rules, result);
    } else if (const std::string* options = result.library.Value(section, "options");
               options != nullptr && *options != "norecv") {
        result.findings.Add(Code::OptionsWithoutInsts, PlaceOf(result, section, "options"),
                            "options without insts is not read: no option is selected",
                            "add insts, with all for every instrument");
    }
    for (const char* const key : {"options", "ips", "spd"}) {
        if (bInsts || std::string_view(key) != "options") {
            CheckSwitch(section, key, result);
        }
    }
    if (channel == lastRead) {
        CheckMissing(channel, result);
    }
    if (!CanSelect(rules) && !(bInsts && result.findings.Has(Code::InstsEmpty)) &&
        !result.findings.HasErrorIn(section)) {
        result.findings.Add(Code::ChannelSelectsNothing, place,
                            "the section selects nothing: the channel gets no data",
                            "add insts with options, ips or spd, or take the section away");
    }
}

}  // namespace

void CheckRules(CheckResult& result) {
    const unsigned lastRead = LastRead(result.library);
    for (unsigned channel = 0; channel < CHANNELS; ++channel) {
        CheckChannel(channel, lastRead, result);
    }
}

}  // namespace ZceCheck
