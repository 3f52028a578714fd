#include "traffic/IniFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <utility>

#include "memory/Values.h"

namespace ZceBoard {

namespace {

constexpr size_t MOST_INPUT = size_t{16} << 20;

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

// Whose byte order mark a file begins with; null: it has none.
const char* ByteOrderMark(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::array<char, 3> first{};
    file.read(first.data(), first.size());
    const std::string_view bytes(first.data(), static_cast<size_t>(file.gcount()));
    if (bytes == "\xEF\xBB\xBF") {
        return "UTF-8";
    }
    const std::string_view two = bytes.substr(0, 2);
    return two == "\xFF\xFE" || two == "\xFE\xFF" ? "UTF-16" : nullptr;
}

// The comment behind the value of a line, without blanks around its text.
std::string CommentIn(std::string_view line) {
    const size_t equals = line.find('=');
    if (equals == std::string_view::npos) {
        return "";
    }
    const std::string_view value = Trimmed(line.substr(equals + 1));
    const size_t mark = value.find_first_of(";#");
    if (mark == std::string_view::npos || value[0] == '"' || value[0] == '\'') {
        return "";
    }
    return fmt::format("{} {}", value[mark], Trimmed(value.substr(mark + 1)));
}

}  // namespace

bool CIniFile::Load(const std::string& path, std::string& error) {
    if (path == "-") {
        return LoadStandardInput(error);
    }
    m_path = path;
    return Read(path, error);
}

// By way of a file in memory.
bool CIniFile::LoadStandardInput(std::string& error) {
    m_path = "standard input";
    const bool bOpen = fcntl(STDIN_FILENO, F_GETFD) >= 0;
    const int copy = bOpen ? memfd_create("standard-input", MFD_CLOEXEC) : -1;
    std::array<char, 65536> bytes{};
    ssize_t got = 1;
    size_t size = 0;
    while (copy >= 0 && got > 0 && size <= MOST_INPUT) {
        got = read(STDIN_FILENO, bytes.data(), bytes.size());
        if (got > 0 && write(copy, bytes.data(), static_cast<size_t>(got)) != got) {
            got = -1;
        }
        size += got > 0 ? static_cast<size_t>(got) : 0;
    }
    bool good = copy >= 0 && got >= 0 && size <= MOST_INPUT;
    if (!good) {
        error =
            fmt::format("{}: {}", m_path,
                        size > MOST_INPUT ? "more than 16 MiB are no INI file" : strerror(errno));
    }
    good = good && Read(fmt::format("/proc/self/fd/{}", copy), error);
    if (copy >= 0) {
        close(copy);
    }
    return good;
}

bool CIniFile::Read(const std::string& file, std::string& error) {
    if (const int err = ReadError(file); err != 0) {
        error = fmt::format("{}: {}", m_path, strerror(err));
        return false;
    }
    if (!IsRegular(file)) {
        error = m_path + ": not a regular file";
        return false;
    }
    if (const char* mark = ByteOrderMark(file); mark != nullptr) {
        error = fmt::format(
            "{}:1: the file begins with the byte order mark of {}: save it as UTF-8 without one",
            m_path, mark);
        return false;
    }
    std::string complaints;
    g_complaints = &complaints;
    iniparser_set_error_callback(KeepComplaint);
    m_ini.reset(iniparser_load(file.c_str()));
    iniparser_set_error_callback(nullptr);
    g_complaints = nullptr;
    if (m_ini == nullptr) {
        error = FirstComplaint(m_path, complaints);
        return false;
    }
    return FindLines(file, error);
}

bool CIniFile::FindLines(const std::string& path, std::string& error) {
    m_lines.clear();
    m_sections.clear();
    m_comments.clear();
    std::ifstream file(path);
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
            m_strayLine = fmt::format("{}:{}: {}", m_path, number, line);
        }
        const std::string key = section + ":" + Lower(Trimmed(line.substr(0, line.find('='))));
        const auto [place, fresh] = m_lines.emplace(key, number);
        if (std::string comment = CommentIn(line); !comment.empty()) {
            m_comments.emplace(key, std::move(comment));
        }
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

std::string CIniFile::Comment(const std::string& section, const std::string& key) const {
    const auto place = m_comments.find(section + ":" + key);
    return place != m_comments.end() ? place->second : "";
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
