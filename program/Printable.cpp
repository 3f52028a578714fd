#include "program/Printable.h"

#include <array>
#include <cstddef>
#include <cstdio>

namespace ZceProgram {

namespace {

unsigned int Byte(std::string_view text, std::size_t at) {
    return static_cast<unsigned char>(text[at]);
}

// The bytes of the letter that `text` begins with; 0 if it begins with none that can be shown.
std::size_t LetterLength(std::string_view text) {
    const unsigned int first = Byte(text, 0);
    if (first < 0x80) {
        return first >= ' ' && first != 0x7F ? 1 : 0;
    }
    const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || text.size() < length) {
        return 0;
    }
    for (std::size_t at = 1; at < length; ++at) {
        if ((Byte(text, at) & 0xC0U) != 0x80) {
            return 0;
        }
    }
    // U+0080 to U+009F are control characters, and what is longer than it need be may hide one.
    const unsigned int second = Byte(text, 1);
    const bool bHidden = (first == 0xC2 && second < 0xA0) || (first == 0xE0 && second < 0xA0) ||
                         (first == 0xF0 && second < 0x90);
    return bHidden ? 0 : length;
}

std::string Shown(std::string_view text, bool bLineEnds) {
    std::string shown;
    while (!text.empty()) {
        const std::size_t length = bLineEnds && text[0] == '\n' ? 1 : LetterLength(text);
        if (length != 0) {
            shown += text.substr(0, length);
        } else if (text[0] == '\t') {
            shown += "\\t";
        } else {
            std::array<char, 8> escaped{};
            snprintf(escaped.data(), escaped.size(), "\\x%02x", Byte(text, 0));
            shown += escaped.data();
        }
        text.remove_prefix(length != 0 ? length : 1);
    }
    return shown;
}

}  // namespace

std::string Printable(std::string_view text) {
    return Shown(text, false);
}

std::string PrintableLines(std::string_view text) {
    return Shown(text, true);
}

}  // namespace ZceProgram
