#include "check/IniLines.h"

#include <algorithm>
#include <cctype>

namespace ZceCheck {

namespace {

constexpr std::string_view BLANKS = " \t\r\n\v\f";
constexpr std::string_view BYTE_ORDER_MARK = "\xef\xbb\xbf";

// Logical lines, as the reader joins them: a backslash at the end of one takes the next one in.
class CScanner {
  public:
    explicit CScanner(std::string_view text) : m_rest(text) {}

    IniLines Scan() {
        if (m_rest.starts_with(BYTE_ORDER_MARK)) {
            Mark(IniMark::Kind::byteOrderMark, 1, "");
        }
        while (!m_rest.empty()) {
            Physical();
        }
        if (m_bContinued) {
            Mark(IniMark::Kind::unfinished, m_line, m_joined);
        }
        return std::move(m_result);
    }

  private:
    void Mark(IniMark::Kind kind, unsigned line, std::string_view text) {
        m_result.marks.push_back({kind, line, std::string(text)});
    }

    void Physical() {
        std::string_view line = m_rest.substr(0, m_rest.find('\n'));
        m_rest.remove_prefix(std::min(line.size() + 1, m_rest.size()));
        ++m_line;
        if (const auto zero = line.find('\0'); zero != std::string_view::npos) {
            Mark(IniMark::Kind::zeroByte, m_line, "");
            line = line.substr(0, zero);
        }
        if (!m_bContinued) {
            m_first = m_line;
            m_joined.clear();
        }
        m_joined += line;
        m_joined.erase(m_joined.find_last_not_of(BLANKS) + 1);
        m_bContinued = m_joined.ends_with('\\');
        if (m_bContinued) {
            m_joined.pop_back();
            const std::string_view text = Trimmed(m_joined);
            if (text.starts_with(';') || text.starts_with('#')) {
                Mark(IniMark::Kind::commentContinues, m_line, text);
            }
            return;
        }
        Logical(Trimmed(m_joined));
    }

    void Logical(std::string_view line) {
        if (line.empty() || line[0] == '#' || line[0] == ';') {
            return;
        }
        if (line[0] == '[' && line.back() == ']') {
            const std::string_view name = line.substr(1, line.find(']') - 1);
            m_section = name.empty() ? m_section : Lowered(Trimmed(name));
            m_result.sections.push_back({m_first, m_section});
            m_result.firstLine.emplace(m_section, m_first);
            return;
        }
        const auto equals = line.find('=');
        if (equals == 0 || equals == std::string_view::npos) {
            return;
        }
        if (line[0] == '[') {
            Mark(IniMark::Kind::sectionNotBegun, m_first, line);
            return;
        }
        const std::string_view key = Trimmed(line.substr(0, equals));
        m_result.lastKey[{m_section, Lowered(key)}] = m_result.keys.size();
        m_result.keys.push_back({m_first, m_section, Lowered(key), std::string(key),
                                 std::string(Trimmed(line.substr(equals + 1)))});
    }

    std::string_view m_rest;
    std::string m_joined;
    std::string m_section;
    unsigned m_line = 0;
    unsigned m_first = 0;
    bool m_bContinued = false;
    IniLines m_result;
};

}  // namespace

const IniKey* IniLines::Find(std::string_view section, std::string_view key) const {
    const auto found = lastKey.find({std::string(section), std::string(key)});
    return found == lastKey.end() ? nullptr : &keys[found->second];
}

unsigned IniLines::LineOf(std::string_view section) const {
    const auto found = firstLine.find(section);
    return found == firstLine.end() ? 0 : found->second;
}

IniLines ScanIni(std::string_view text) {
    return CScanner(text).Scan();
}

std::string_view Trimmed(std::string_view text) {
    const auto first = text.find_first_not_of(BLANKS);
    return first == std::string_view::npos
               ? std::string_view{}
               : text.substr(first, text.find_last_not_of(BLANKS) - first + 1);
}

std::string Lowered(std::string_view text) {
    std::string lowered(text);
    std::transform(lowered.begin(), lowered.end(), lowered.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
    return lowered;
}

}  // namespace ZceCheck
