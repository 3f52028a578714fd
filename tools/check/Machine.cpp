#include "check/Machine.h"

#include <fmt/format.h>

#include <algorithm>
#include <fstream>

#include "program/Printable.h"

namespace ZceMachine {

const char* Word(Level level) {
    switch (level) {
        case Level::Ok:
            return "ok";
        case Level::Warning:
            return "warning";
        case Level::Error:
            return "error";
    }
    return "";
}

int ExitStatus(const std::vector<Result>& results) {
    Level worst = Level::Ok;
    for (const Result& result : results) {
        worst = std::max(worst, result.level);
    }
    return static_cast<int>(worst);
}

std::string AsText(const std::vector<Result>& results) {
    std::string text;
    for (const Result& result : results) {
        text += fmt::format("{:<8} {}: {}\n", Word(result.level), result.check,
                            ZceProgram::Printable(result.found));
        if (!result.advice.empty()) {
            text += fmt::format("{:<8} -> {}\n", "", ZceProgram::Printable(result.advice));
        }
    }
    return text;
}

std::string FileText(const std::string& path, std::size_t limit) {
    std::ifstream file(path, std::ios::binary);
    std::string text;
    char piece[4096];
    while (text.size() < limit && file.read(piece, sizeof(piece)).gcount() > 0) {
        text.append(piece, static_cast<std::size_t>(file.gcount()));
    }
    text.resize(std::min(text.size(), limit));
    return text;
}

std::string FileLine(const std::string& path) {
    std::string text = FileText(path);
    text.erase(std::min(text.find('\n'), text.size()));
    text.erase(text.find_last_not_of(" \t\r") + 1);
    return text;
}

}  // namespace ZceMachine
