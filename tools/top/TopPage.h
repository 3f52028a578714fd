#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace ZceBoard {

// What is to stand out: drops, faults and silence; the same in a milder degree; a closed channel;
// what the user has chosen.
enum class TopMark { Alarm, Warning, Closed, Chosen };

struct TopSpan {
    size_t begin = 0;
    size_t length = 0;
    TopMark mark = TopMark::Alarm;

    bool operator==(const TopSpan&) const = default;
};

// A line of plain ASCII, without blanks at its end, and what stands out in it.
struct TopLine {
    std::string text;
    std::vector<TopSpan> spans;

    TopLine() = default;
    TopLine(std::string line) : text(std::move(line)) {}  // NOLINT(google-explicit-constructor)
    TopLine(const char* line) : text(line) {}             // NOLINT(google-explicit-constructor)

    // Adds text that stands out.
    void Append(const std::string& more, TopMark mark) {
        spans.push_back({text.size(), more.size(), mark});
        text += more;
    }

    bool operator==(const TopLine&) const = default;
};

struct TopPage {
    std::vector<TopLine> lines;
    std::string hint;  // at the right end of a screen's first line
};

// A key that the user has pressed. Back: q, which ends what is shown; Leave: Escape, which does so
// but for the last page; Channel: 0 to 9, a to f.
struct TopKey {
    enum class Kind { None, Up, Down, PageUp, PageDown, Home, Enter, Back, Leave, Channel };
    Kind kind = Kind::None;
    size_t channel = 0;
};

}  // namespace ZceBoard
