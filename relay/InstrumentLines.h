#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace ZceRelay {

// One instrument of the list, at the index that it has in its table.
struct ListedInstrument {
    uint16_t index = 0;
    std::string name;
    bool operator==(const ListedInstrument&) const = default;
};

// The lines "index,name" of a text, as the library's cache file has them and as the list is
// published. What is no such line (the file's last two are none; a line whose end is not there yet;
// an index beyond 4095; a name that is empty, longer than 16 characters or not printable) is passed
// over.
std::vector<ListedInstrument> ReadInstrumentLines(std::string_view text);

// The lines again.
std::string InstrumentText(const std::vector<ListedInstrument>& instruments);

}  // namespace ZceRelay
