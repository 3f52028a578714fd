#include "traffic/IniFile.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fstream>

#include "memory/Values.h"

namespace ZceBoard {

namespace {

std::string* g_complaints = nullptr;

// What the parser says of a bad line: "iniparser: syntax error in <file> (<line>):\n-> <text>\n".
int KeepComplaint(const char* format, ...) {  // NOLINT(cert-dcl50-cpp): the parser's type
    char text[2048];
    va_list arguments;
    va_start(arguments, format);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): it is, by va_start
    const int length = vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    g_complaints->append(text);
    return length;
}

std::string Lower(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return lower;
}

int ReadError(const std::string& path) {
    struct stat file {};
    if (stat(path.c_str(), &file) != 0 || access(path.c_str(), R_OK) != 0) {
        return errno;
    }
    return S_ISDIR(file.st_mode) ? EISDIR : 0;
}

// It is read twice: a pipe would be empty then.
bool IsRegular(const std::string& path) {
    struct stat file {};
    return stat(path.c_str(), &file) == 0 && S_ISREG(file.st_mode);
}

// "file:3: syntax error: <text>" of the parser's first complaint.
std::string FirstComplaint(const std::string& path, const std::string& complaints) {
    const size_t open = complaints.find(" (");
    const size_t arrow = complaints.find("-> ");
    if (open == std::string::npos) {
        return path + ": not an INI file";
    }
    std::string text = arrow == std::string::npos ? "" : complaints.substr(arrow + 3);
    text = std::string(Trimmed(text.substr(0, text.find('\n'))));
    const std::string line = complaints.substr(open + 2, complaints.find(')', open) - open - 2);
    const bool tooLong = complaints.find("too long") < open;
    return fmt::format("{}:{}: {}{}{}", path, line,
                       tooLong ? "the line is too long" : "syntax error", text.empty() ? "" : ": ",
                       text);
}

}  // namespace

bool CIniFile::Load(const std::string& path, std::string& error) {
    m_path = path;
    if (const int err = ReadError(path); err != 0) {
        error = fmt::format("{}: {}", path, strerror(err));
        return false;
    }
    if (!IsRegular(path)) {
        error = path + ": not a regular file";
        return false;
    }
    std::string complaints;
    g_complaints = &complaints;
    iniparser_set_error_callback(KeepComplaint);
    m_ini.reset(iniparser_load(path.c_str()));
    iniparser_set_error_callback(nullptr);
    g_complaints = nullptr;
    if (m_ini == nullptr) {
        error = FirstComplaint(path, complaints);
        return false;
    }
    return FindLines(error);
}

bool CIniFile::FindLines(std::string& error) {
    m_lines.clear();
    m_sections.clear();
    std::ifstream file(m_path);
    std::string raw;
    std::string section;
    bool continued = false;
    for (int number = 1; std::getline(file, raw); ++number) {
        const std::string_view line = Trimmed(raw);
        const bool goesOn = continued;
        continued = !line.empty() && line.back() == '\\';
        if (goesOn || line.empty() || line[0] == '#' || line[0] == ';') {
            continue;
        }
        if (line[0] == '[') {
            section = Lower(Trimmed(line.substr(1, line.find(']') - 1)));
            if (m_lines.emplace(section, number).second) {
                m_sections.push_back(section);
            }
            continue;
        }
        if (section.empty() && m_sections.empty()) {
            m_lines.emplace("", number);
            m_sections.emplace_back();
        }
        const std::string key = section + ":" + Lower(Trimmed(line.substr(0, line.find('='))));
        const auto [place, fresh] = m_lines.emplace(key, number);
        if (!fresh) {
            error = fmt::format("{}:{}: [{}] {} is there twice, first in line {}", m_path, number,
                                section, key.substr(section.size() + 1), place->second);
            return false;
        }
    }
    return true;
}

std::vector<std::string> CIniFile::Keys(const std::string& section) const {
    const int count = iniparser_getsecnkeys(m_ini.get(), section.c_str());
    std::vector<const char*> keys(static_cast<size_t>(std::max(count, 0)));
    std::vector<std::string> names;
    if (keys.empty() ||
        iniparser_getseckeys(m_ini.get(), section.c_str(), keys.data()) == nullptr) {
        return names;
    }
    names.reserve(keys.size());
    for (const char* key : keys) {
        names.emplace_back(key + section.size() + 1);
    }
    return names;
}

const char* CIniFile::Get(const std::string& section, const std::string& key) const {
    return iniparser_getstring(m_ini.get(), (section + ":" + key).c_str(), nullptr);
}

std::string CIniFile::Where(const std::string& section, const std::string& key) const {
    auto place = m_lines.find(section + ":" + key);
    if (place == m_lines.end()) {
        place = m_lines.find(section);
    }
    std::string where = m_path;
    if (place != m_lines.end()) {
        where += fmt::format(":{}", place->second);
    }
    where += fmt::format(": [{}]", section);
    return key.empty() ? where : where + " " + key;
}

}  // namespace ZceBoard
