#include "relay/InstrumentLines.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <iterator>

namespace ZceRelay {

namespace {

constexpr uint16_t LAST_INDEX = 4095;
constexpr size_t LONGEST_NAME = 16;

bool IsName(std::string_view name) {
    return !name.empty() && name.size() <= LONGEST_NAME &&
           std::all_of(name.begin(), name.end(), [](char c) { return c > ' ' && c <= '~'; });
}

}  // namespace

std::vector<ListedInstrument> ReadInstrumentLines(std::string_view text) {
    std::vector<ListedInstrument> instruments;
    for (size_t end = 0; (end = text.find('\n')) != std::string_view::npos;) {
        const std::string_view line = text.substr(0, end);
        text.remove_prefix(end + 1);
        const size_t comma = line.find(',');
        if (comma == std::string_view::npos) {
            continue;
        }
        uint16_t index = 0;
        const auto [stop, error] = std::from_chars(line.data(), line.data() + comma, index);
        const std::string_view name = line.substr(comma + 1);
        if (error == std::errc() && stop == line.data() + comma && index <= LAST_INDEX &&
            IsName(name)) {
            instruments.push_back({index, std::string(name)});
        }
    }
    return instruments;
}

std::string InstrumentText(const std::vector<ListedInstrument>& instruments) {
    std::string text;
    for (const ListedInstrument& instrument : instruments) {
        fmt::format_to(std::back_inserter(text), "{},{}\n", instrument.index, instrument.name);
    }
    return text;
}

}  // namespace ZceRelay
