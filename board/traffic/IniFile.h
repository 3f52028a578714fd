#pragma once

#include <iniparser.h>

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace ZceBoard {

// An INI file, and in which line what stands. Names of sections and keys are in lower case.
class CIniFile {
  public:
    // "-" is standard input. False: `error` names the file, the line where there is one, and the
    // reason. A key that is there twice is refused. One file at a time in a process: the parser's
    // complaints go through a place that all share.
    bool Load(const std::string& path, std::string& error);

    // As messages name it.
    const std::string& Path() const { return m_path; }
    // In the file's order; an empty name first if keys stand in front of any section.
    const std::vector<std::string>& Sections() const { return m_sections; }
    std::vector<std::string> Keys(const std::string& section) const;
    bool HasSection(const std::string& section) const { return m_lines.count(section) != 0; }
    // Null if it is not there.
    const char* Get(const std::string& section, const std::string& key) const;
    // For messages: "day.ini:12: [clock] start", the line being the section's if it has no such
    // key.
    std::string Where(const std::string& section, const std::string& key = {}) const;
    // The first line with a key in front of any section, for messages: "day.ini:1: bus = 1".
    const std::string& StrayLine() const { return m_strayLine; }
    // What the parser takes for a comment behind a value: its mark, a blank, and its text. Empty:
    // there is none.
    std::string Comment(const std::string& section, const std::string& key) const;

  private:
    bool LoadStandardInput(std::string& error);
    bool Read(const std::string& file, std::string& error);
    bool FindLines(const std::string& file, std::string& error);

    std::string m_path;
    std::string m_strayLine;
    std::unique_ptr<dictionary, decltype(&iniparser_freedict)> m_ini{nullptr, iniparser_freedict};
    std::vector<std::string> m_sections;
    std::map<std::string, int> m_lines;             // "section" and "section:key"
    std::map<std::string, std::string> m_comments;  // "section:key"
};

}  // namespace ZceBoard
