#pragma once

#include <string>
#include <string_view>

namespace ZceProgram {

// `text` for one line of a terminal or a log: its UTF-8 letters stay; a control character (\t for
// the tab) and what is no UTF-8 become \xNN, byte by byte. What a file or another process says of
// itself can then neither move the cursor nor look like a line of this program.
std::string Printable(std::string_view text);

// The same for a text of several lines: its line ends stay.
std::string PrintableLines(std::string_view text);

}  // namespace ZceProgram
