#pragma once

#include <string>
#include <vector>

// What zce-check host and zce-check vendor find, and how they say it.
namespace ZceMachine {

enum class Level { Ok, Warning, Error };

struct Result {
    Level level = Level::Ok;
    std::string check;   // a word or two, the same in every run
    std::string found;   // what there is
    std::string advice;  // what to do; empty with Ok
};

// "ok", "warning", "error".
const char* Word(Level level);
// 0, 1 or 2: that of the worst.
int ExitStatus(const std::vector<Result>& results);
// A line for each result, and one below it with the advice.
std::string AsText(const std::vector<Result>& results);
// {"status": ..., "results": [{"check", "level", "found", "advice"}]}.
std::string AsJson(const std::vector<Result>& results);

// The whole file, at most `limit` bytes of it; empty if it cannot be read.
std::string FileText(const std::string& path, std::size_t limit = 1 << 20);
// The same without the line end and blanks behind it.
std::string FileLine(const std::string& path);

}  // namespace ZceMachine
