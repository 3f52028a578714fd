// What the INI reader refuses, cuts or loses; sections and keys that nothing reads.

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <utility>

#include "check/Check.h"
#include "check/Nearest.h"

namespace ZceCheck {

namespace {

constexpr std::string_view CHANNEL = "channel";

const std::vector<std::string>& ConfigKeys() {
    static const std::vector<std::string> keys = {
        "device",   "cpucore",  "czce_level1", "czce_level2", "l5_dstmac", "l5_srcmac",
        "l5_dstip", "l5_srcip", "l5_dstport",  "l5_srcport",  "l1_dstmac", "l1_srcmac",
        "l1_dstip", "l1_srcip", "l1_dstport",  "l1_srcport"};
    return keys;
}

const std::vector<std::string>& ChannelKeys() {
    static const std::vector<std::string> keys = {"insts", "options", "ips", "spd"};
    return keys;
}

std::vector<std::string> Sections() {
    std::vector<std::string> names = {"config"};
    for (unsigned channel = 0; channel < CHANNELS; ++channel) {
        names.push_back(ChannelSection(channel));
    }
    return names;
}

bool Contains(const std::vector<std::string>& list, const std::string& text) {
    return std::find(list.begin(), list.end(), text) != list.end();
}

void AddMark(const IniMark& mark, CheckResult& result) {
    const Place place{mark.line, "", "", ""};
    CFindings& findings = result.findings;
    switch (mark.kind) {
        case IniMark::Kind::commentContinues:
            findings.Add(Code::CommentContinues, place,
                         "the comment ends in a backslash: the line below belongs to it and is not "
                         "read",
                         "take the backslash away");
            return;
        case IniMark::Kind::unfinished:
            findings.Add(Code::UnfinishedLine, place,
                         "the last line ends in a backslash: it waits for another one and is not "
                         "read",
                         "take the backslash away");
            return;
        case IniMark::Kind::sectionNotBegun:
            findings.Add(Code::SectionNotBegun, place,
                         fmt::format("\"{}\" begins no section, because of what stands behind the "
                                     "bracket: the lines below belong to the section above",
                                     Shown(mark.text)),
                         "put the comment on a line of its own");
            return;
        case IniMark::Kind::byteOrderMark:
            findings.Add(Code::ByteOrderMark, place,
                         "the file begins with a UTF-8 byte order mark, which the reader takes for "
                         "a part of the first line",
                         "save the file without it (\"UTF-8 without BOM\")");
            return;
        case IniMark::Kind::zeroByte:
            findings.Add(Code::ZeroByte, place,
                         "there is a zero byte in the line: the reader does not see what stands "
                         "behind it",
                         "write the line anew");
            return;
    }
}

// A comment that the list of instruments runs into: "SR ; CF, TA".
bool LooksLikeItems(std::string_view text) {
    text = Trimmed(text);
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char letter) {
        return (letter >= 'A' && letter <= 'Z') || (letter >= '0' && letter <= '9') ||
               letter == ',' || letter == ';' || letter == ' ' || letter == '&' || letter == '-';
    });
}

void CheckQuoted(const IniKey& entry, const Place& place, CFindings& findings) {
    const auto end = entry.raw.find(entry.raw[0], 1);
    if (end == std::string::npos) {
        findings.Add(Code::QuoteNotClosed, place,
                     fmt::format("the quote is not closed: the value is \"{}\", comments included",
                                 Shown(place.value)),
                     "close the quote, or leave it out");
        return;
    }
    const std::string_view behind = Trimmed(std::string_view(entry.raw).substr(end + 1));
    if (!behind.empty() && behind[0] != ';' && behind[0] != '#') {
        findings.Add(
            Code::ValueCut, place,
            fmt::format("what stands behind the closing quote is dropped: \"{}\"", Shown(behind)),
            "write all of the value between the quotes");
    }
}

void CheckCut(const IniKey& entry, CheckResult& result) {
    const Place place = PlaceOf(result, entry.section, entry.key);
    if (entry.raw.starts_with('"') || entry.raw.starts_with('\'')) {
        CheckQuoted(entry, place, result.findings);
        return;
    }
    const auto comment = entry.raw.find_first_of(";#");
    if (comment == std::string::npos || comment == 0) {
        return;
    }
    const char before = entry.raw[comment - 1];
    const std::string_view text = std::string_view(entry.raw).substr(comment);
    if ((before != ' ' && before != '\t') ||
        (entry.key == "insts" && LooksLikeItems(text.substr(1)))) {
        result.findings.Add(
            Code::ValueCut, place,
            fmt::format("the value ends at the \"{}\", which begins a comment: read as \"{}\", "
                        "dropped: \"{}\"",
                        text[0], Shown(place.value), Shown(text)),
            entry.key == "insts" ? "put commas between the items; put a blank before a comment"
                                 : "put a blank before the comment");
    }
}

// Keys and sections that stand there more than once.
void CheckRepeated(CheckResult& result) {
    std::map<std::pair<std::string, std::string>, std::vector<unsigned>> keys;
    for (const IniKey& entry : result.lines.keys) {
        keys[{entry.section, entry.key}].push_back(entry.line);
    }
    for (const auto& [key, lines] : keys) {
        if (lines.size() > 1) {
            result.findings.Add(
                Code::DuplicateKey, PlaceOf(result, key.first, key.second),
                fmt::format("the key is there {} times, the first time on line {}: only this last "
                            "one counts",
                            lines.size(), lines.front()),
                "keep one of them");
        }
    }
    std::map<std::string, unsigned> sections;
    for (const IniSection& section : result.lines.sections) {
        if (const auto [first, bNew] = sections.emplace(section.name, section.line); !bNew) {
            result.findings.Add(
                Code::DuplicateSection, {section.line, section.name, "", ""},
                fmt::format("the section began on line {} already: the keys of both add up",
                            first->second),
                "join the two, or give this one the name that was meant");
        }
    }
}

void CheckSection(const IniSection& section, CheckResult& result) {
    const Place place{section.line, section.name, "", ""};
    const std::string said = fmt::format("nothing reads a section [{}]", Shown(section.name));
    if (section.name.starts_with(CHANNEL) &&
        section.name.find_first_not_of("0123456789", CHANNEL.size()) == std::string::npos) {
        // Leading zeros leave one channel alone that can be meant.
        const auto digits = section.name.find_first_not_of('0', CHANNEL.size());
        const std::string meant =
            digits == std::string::npos ? "" : std::string(CHANNEL) + section.name.substr(digits);
        result.findings.Add(Code::MisspeltSection, place, said,
                            Contains(Sections(), meant)
                                ? fmt::format("did you mean [{}]?", meant)
                                : "the channels are [channel0] to [channel15]");
        return;
    }
    if (const std::vector<std::string> near = Nearest(section.name, Sections()); !near.empty()) {
        result.findings.Add(Code::MisspeltSection, place, said,
                            fmt::format("did you mean [{}]?", near[0]));
        return;
    }
    result.findings.Add(Code::UnknownSection, place, said,
                        "the sections are [config] and [channel0] to [channel15]");
}

void CheckKey(const IniKey& entry, CheckResult& result) {
    const Place place = PlaceOf(result, entry.section, entry.key);
    const bool bConfigKey = Contains(ConfigKeys(), entry.key);
    const bool bChannelKey = Contains(ChannelKeys(), entry.key);
    const bool bConfig = entry.section == "config";
    if (bConfig ? bConfigKey : (!entry.section.empty() && bChannelKey)) {
        return;
    }
    const std::string where =
        entry.section.empty() ? "before the first section" : fmt::format("in [{}]", entry.section);
    const std::string said = fmt::format("nothing reads {} {}", Shown(entry.key), where);
    if (bConfigKey || bChannelKey) {
        result.findings.Add(Code::MisplacedKey, place, said,
                            bConfigKey ? "it belongs in [config]"
                                       : "it belongs in a section [channel0] to [channel15]");
        return;
    }
    std::vector<std::string> known = bConfig ? ConfigKeys() : ChannelKeys();
    if (entry.section.empty()) {
        known.insert(known.end(), ConfigKeys().begin(), ConfigKeys().end());
    }
    const std::vector<std::string> near = Nearest(entry.key, known);
    if (near.empty()) {
        result.findings.Add(Code::UnknownKey, place, said,
                            "take it away, or see docs/configuration.md for the keys there are");
    } else {
        result.findings.Add(Code::MisspeltKey, place, said,
                            fmt::format("did you mean {}?", near[0]));
    }
}

}  // namespace

void CheckLines(CheckResult& result) {
    for (const RefusedLine& refused : result.library.refused) {
        const Place place{refused.line, "", "", ""};
        if (refused.bTooLong) {
            result.findings.Add(
                Code::LineTooLong, place,
                "the line has more than 1022 characters (or a zero byte in it): the "
                "whole file is refused, and the start fails",
                "name classes or all instead of single instruments; cut comments");
        } else {
            result.findings.Add(Code::BadLine, place,
                                "the line is no section, no comment and has no \"=\": the whole "
                                "file is refused, and the start fails",
                                "correct the line, or begin it with ; to make it a comment");
        }
    }
    for (const IniMark& mark : result.lines.marks) {
        AddMark(mark, result);
    }
    if (result.library.bLoaded) {
        for (const IniKey& entry : result.lines.keys) {
            if (&entry == result.lines.Find(entry.section, entry.key)) {
                CheckCut(entry, result);
            }
        }
        CheckRepeated(result);
    }
}

void CheckNames(CheckResult& result) {
    const std::vector<std::string> sections = Sections();
    for (const IniSection& section : result.lines.sections) {
        if (!Contains(sections, section.name)) {
            CheckSection(section, result);
        }
    }
    for (const IniKey& entry : result.lines.keys) {
        const bool bKnown = entry.section.empty() || Contains(sections, entry.section);
        if (bKnown && &entry == result.lines.Find(entry.section, entry.key)) {
            CheckKey(entry, result);
        }
    }
}

}  // namespace ZceCheck
