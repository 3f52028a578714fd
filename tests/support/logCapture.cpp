#include "logCapture.h"
#include "wholeFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <sstream>

namespace velatest {

namespace {

// Skips one "[...]" at `at`, if one is there.
std::size_t SkipBracket(const std::string& line, std::size_t at) {
    const std::size_t end = line.find(']', at);
    return at < line.size() && line[at] == '[' && end != std::string::npos ? end + 1 : at;
}

// "LEVEL text", or nothing if the line does not start with a label.
std::optional<std::string> Strip(const std::string& line) {
    static const std::vector<std::string> labels = {
        "[ASSERT ]", "[ERROR  ]", "[WARN   ]", "[EVENT  ]", "[INFO   ]", "[DEBUG  ]", "[VERBOSE]"};
    static const std::vector<std::string> withOrigin = {"[ASSERT ]", "[DEBUG  ]", "[VERBOSE]"};
    const std::string label = line.substr(0, 9);
    if (std::find(labels.begin(), labels.end(), label) == labels.end()) {
        return std::nullopt;
    }
    std::size_t at = SkipBracket(line, SkipBracket(line, label.size()));
    if (std::find(withOrigin.begin(), withOrigin.end(), label) != withOrigin.end() &&
        at < line.size() && line[at] == '(') {
        const std::size_t end = line.find(')', at);
        at = end == std::string::npos ? at : end + 1;
    }
    const std::string level = label.substr(1, label.find_first_of(" ]") - 1);
    return level + " " + line.substr(at);
}

}  // namespace

LogCapture::LogCapture() : m_logger(std::make_unique<CRwLogger>()) {
    EXPECT_EQ(m_logger->Init(0, m_dir.path().c_str(), "fpga"), 0);
    Clear();
}

LogCapture::~LogCapture() = default;

std::vector<std::string> LogCapture::AllLines() const {
    std::vector<std::string> files;
    for (const auto& entry : std::filesystem::directory_iterator(m_dir.path())) {
        files.push_back(entry.path().string());
    }
    std::sort(files.begin(), files.end());  // by date
    std::vector<std::string> lines;
    for (const std::string& file : files) {
        std::istringstream text(WholeFile(file));
        for (std::string line; std::getline(text, line);) {
            if (const auto stripped = Strip(line)) {
                lines.push_back(*stripped);
            } else if (!lines.empty()) {
                lines.back() += "\n" + line;
            }
        }
    }
    return lines;
}

std::vector<std::string> LogCapture::Lines() const {
    const std::vector<std::string> all = AllLines();
    const auto first = static_cast<std::ptrdiff_t>(std::min(m_skipped, all.size()));
    return {all.begin() + first, all.end()};
}

std::vector<std::string> LogCapture::LinesOf(const std::string& level) const {
    std::vector<std::string> texts;
    for (const std::string& line : Lines()) {
        if (line.starts_with(level + " ")) {
            texts.push_back(line.substr(level.size() + 1));
        }
    }
    return texts;
}

bool LogCapture::Has(const std::string& line) const {
    const std::vector<std::string> lines = Lines();
    return std::find(lines.begin(), lines.end(), line) != lines.end();
}

void LogCapture::Clear() {
    m_skipped = AllLines().size();
}

StdoutCapture::StdoutCapture() {
    std::fflush(stdout);
    m_before = dup(STDOUT_FILENO);
    const int file = open((m_dir / "stdout").c_str(), O_CREAT | O_WRONLY | O_APPEND, 0600);
    EXPECT_NE(m_before, -1);
    EXPECT_NE(file, -1);
    dup2(file, STDOUT_FILENO);
    close(file);
}

StdoutCapture::~StdoutCapture() {
    Stop();
}

std::string StdoutCapture::Text() const {
    std::fflush(stdout);
    return WholeFile(m_dir / "stdout");
}

void StdoutCapture::Stop() {
    if (m_before == -1) {
        return;
    }
    std::fflush(stdout);
    dup2(m_before, STDOUT_FILENO);
    close(m_before);
    m_before = -1;
}

}  // namespace velatest
