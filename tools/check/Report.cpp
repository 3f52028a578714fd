#include "check/Report.h"

#include <fmt/format.h>

#include <algorithm>

#include "program/Printable.h"

namespace ZceCheck {

namespace {

constexpr std::size_t ITEMS_SHOWN = 8;

std::string FindingText(const std::string& file, const Finding& finding) {
    const Place& place = finding.place;
    std::string text = file;
    if (place.line != 0) {
        text += fmt::format(":{}", place.line);
    }
    const CodeInfo& info = InfoOf(finding.code);
    text += fmt::format(": {}: ", Word(info.severity));
    if (!place.section.empty()) {
        text += fmt::format("[{}] ", Shown(place.section));
    }
    if (!place.key.empty()) {
        // A list is long, and the message names the item.
        const bool bValue = !place.value.empty() && Lowered(place.key) != "insts";
        text += Shown(place.key) + (bValue ? fmt::format(" = {}: ", Shown(place.value)) : ": ");
    }
    return text + fmt::format("{} ({})\n    -> {}\n", ZceProgram::Printable(finding.message),
                              info.name, ZceProgram::Printable(finding.hint));
}

std::string ProcessText(const CheckResult& result) {
    const Understood& library = result.library;
    if (!library.bStarts) {
        return {};
    }
    const std::string cpu =
        !library.cpu ? "no CPU binding"
                     : fmt::format("CPU {}{}", *library.cpu, library.bBound ? "" : " (not bound)");
    std::string text =
        fmt::format("board {}, DMA channel {}, {}\n", library.bus, library.channel, cpu);
    if (library.channel != Vela2_U50::ZCE_MASTER_CHANNEL) {
        text +=
            "this process reads its device and its cpucore alone: rules, feeds and addresses are "
            "those of the process on channel 0\n";
    }
    return text;
}

// A process that is not the master: rules and addresses may be in its file, and have no effect.
bool IsOther(const CheckResult& result) {
    return result.library.bStarts && result.library.channel != Vela2_U50::ZCE_MASTER_CHANNEL;
}

bool HasRules(const CheckResult& result, unsigned channel) {
    return result.library.HasSection(ChannelSection(channel));
}

std::string ChannelsText(const CheckResult& result) {
    const bool bCounts = !result.listSource.empty();
    std::string text =
        bCounts ? "channel  futures  options  combinations  rules\n" : "channel  rules\n";
    bool bAny = false;
    for (unsigned channel = 0; channel < CHANNELS; ++channel) {
        if (!HasRules(result, channel)) {
            continue;
        }
        bAny = true;
        const std::string rules = RulesInWords(result.library.rules[channel]);
        if (const auto& counts = result.counts[channel]; counts) {
            text += fmt::format("{:>7}  {:>7}  {:>7}  {:>12}  {}\n", channel, counts->futures,
                                counts->options, counts->combinations, rules);
        } else {
            text += fmt::format("{:>7}  {}\n", channel, rules);
        }
    }
    if (!bAny) {
        return IsOther(result) ? "" : "no channel has rules: none receives anything\n";
    }
    return bCounts ? text + fmt::format(
                                "of the instruments of {}; the other channels receive "
                                "nothing\n",
                                result.listSource)
                   : text + "the other channels receive nothing\n";
}

std::string EndText(const FeedEnd& end) {
    return fmt::format("{} {}:{}", end.mac.value_or("-"), end.ip.value_or("-"),
                       end.port ? std::to_string(*end.port) : "-");
}

std::string FeedText(const Feed& feed) {
    const char* const power = feed.bOn ? "on" : "off";
    if (feed.items == 0) {
        return fmt::format("{} {}, no addresses: switch 0x{:x} stays as it is\n", feed.name, power,
                           feed.switchReg);
    }
    return fmt::format("{} {}, {} of 6 addresses: switch 0x{:x} {}\n   to   {}\n   from {}\n",
                       feed.name, power, feed.items, feed.switchReg,
                       feed.bOpens ? "opens" : "stays closed", EndText(feed.destination),
                       EndText(feed.source));
}

std::string FeedsText(const CheckResult& result) {
    std::string text;
    for (const Feed& feed : result.feeds) {
        if (feed.items != 0 || !IsOther(result)) {
            text += FeedText(feed);
        }
    }
    return text;
}

std::string Number(std::size_t count, const char* what) {
    return fmt::format("{} {}{}", count, what, count == 1 ? "" : "s");
}

}  // namespace

std::string RulesInWords(const Vela2_U50::ZceSubsInfo_t& rules) {
    std::vector<std::string> parts;
    std::vector<std::string> items;
    if (rules.bSubAll != 0) {
        items.emplace_back("every future");
    } else {
        items = rules.vecSubClasses;
        items.insert(items.end(), rules.vecSubIds.begin(), rules.vecSubIds.end());
        std::transform(items.begin(), items.end(), items.begin(), Shown);
        if (items.size() > ITEMS_SHOWN) {
            const std::size_t more = items.size() - ITEMS_SHOWN;
            items.resize(ITEMS_SHOWN);
            items.push_back(fmt::format("{} more", more));
        }
    }
    if (!items.empty()) {
        parts.push_back(Listed(items, ", ") +
                        (rules.bOptionsRecv != 0 ? ", with options" : ", no options"));
    }
    if (rules.bIpsRecv != 0) {
        parts.emplace_back("inter-product spreads");
    }
    if (rules.bSpdRecv != 0) {
        parts.emplace_back("calendar spreads");
    }
    return parts.empty() ? "nothing" : Listed(parts, "; ");
}

std::string Summary(const CheckResult& result) {
    const std::size_t errors = result.findings.Count(Severity::error);
    const std::size_t warnings = result.findings.Count(Severity::warning);
    if (errors == 0 && warnings == 0) {
        return "fine";
    }
    if (errors == 0 || warnings == 0) {
        return errors == 0 ? Number(warnings, "warning") : Number(errors, "error");
    }
    return Number(errors, "error") + ", " + Number(warnings, "warning");
}

std::string TextReport(const CheckResult& result) {
    std::string findings;
    for (const Finding& finding : result.findings.All()) {
        findings += FindingText(result.file, finding);
    }
    std::vector<std::string> blocks = {findings};
    if (result.library.bLoaded) {
        blocks.insert(blocks.end(), {ProcessText(result), ChannelsText(result), FeedsText(result)});
    } else {
        blocks.emplace_back("the file is refused as a whole: nothing more can be said of it\n");
    }
    std::string text;
    for (const std::string& block : blocks) {
        text += block.empty() ? block : block + "\n";
    }
    return text + fmt::format("zce-check: {}\n", Summary(result));
}

}  // namespace ZceCheck
