#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ZceCheck {

// Where in an INI file its sections and keys stand. This is for saying where alone: what a file
// means is asked of the library's own reader.

struct IniSection {
    unsigned line;
    std::string name;  // in small letters
};

struct IniKey {
    unsigned line;
    std::string section;  // empty: before the first section
    std::string key;      // in small letters
    std::string written;  // the key as it stands in the file
    std::string raw;      // what stands behind the "=", blanks around it cut
};

// Something about a line that no key and no section tells.
struct IniMark {
    enum class Kind { commentContinues, unfinished, sectionNotBegun, byteOrderMark, zeroByte };
    Kind kind;
    unsigned line;
    std::string text;
};

struct IniLines {
    std::vector<IniSection> sections;
    std::vector<IniKey> keys;
    std::vector<IniMark> marks;
    // By section and key: the last place in `keys`. By section: the first line.
    std::map<std::pair<std::string, std::string>, std::size_t> lastKey;
    std::map<std::string, unsigned, std::less<>> firstLine;

    // The last place of a key, which is the one that counts; null if it is not there.
    const IniKey* Find(std::string_view section, std::string_view key) const;
    // Line of the first header of a section, 0 if there is none.
    unsigned LineOf(std::string_view section) const;
};

IniLines ScanIni(std::string_view text);

// `text` without the blanks around it.
std::string_view Trimmed(std::string_view text);
std::string Lowered(std::string_view text);

}  // namespace ZceCheck
