#include "check/Check.h"

#include <algorithm>

namespace ZceCheck {

int CheckResult::Status() const {
    if (findings.Count(Severity::error) != 0) {
        return 2;
    }
    return findings.Count(Severity::warning) != 0 ? 1 : 0;
}

std::string ChannelSection(unsigned channel) {
    return "channel" + std::to_string(channel);
}

Place PlaceOf(const CheckResult& result, const std::string& section, const std::string& key) {
    const IniKey* const entry = result.lines.Find(section, key);
    const std::string* const value = result.library.Value(section, key);
    return {entry == nullptr ? result.lines.LineOf(section) : entry->line, section,
            entry == nullptr ? key : entry->written, value == nullptr ? "" : *value};
}

std::string Listed(const std::vector<std::string>& texts, std::string_view last) {
    std::string list;
    for (std::size_t at = 0; at < texts.size(); ++at) {
        if (at != 0) {
            list += at + 1 == texts.size() ? last : ", ";
        }
        list += texts[at];
    }
    return list;
}

CheckResult CheckFile(const std::string& path, std::string_view text, const InstrumentNames* names,
                      bool bLog) {
    CheckResult result;
    result.file = path;
    result.listSource = names == nullptr ? "" : names->source;
    result.lines = ScanIni(text);
    result.library = AskLibrary(path, names, bLog);
    CheckLines(result);
    if (result.library.bLoaded) {
        CheckNames(result);
        CheckDevice(result);
        CheckFeeds(result);
        CheckRules(result);
        if (names != nullptr) {
            CheckAgainst(*names, result);
        }
    }
    result.findings.Sort();
    return result;
}

}  // namespace ZceCheck
