#include "memory/Values.h"

#include <algorithm>
#include <charconv>
#include <chrono>

namespace ZceBoard {

namespace {

constexpr uint64_t FIRST_DATE = 19700101;
constexpr uint64_t LAST_DATE = 21991231;

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

template <class Number>
bool ParseWhole(std::string_view text, Number& number) {
    const auto [end, err] = std::from_chars(text.data(), text.data() + text.size(), number);
    return err == std::errc() && end == text.data() + text.size();
}

}  // namespace

std::string_view Trimmed(std::string_view text) {
    constexpr std::string_view BLANKS = " \t";
    const size_t first = text.find_first_not_of(BLANKS);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(BLANKS) - first + 1);
}

bool ParseNumber(std::string_view text, uint64_t most, uint64_t& number) {
    uint64_t parsed = 0;
    if (!ParseWhole(text, parsed) || parsed > most) {
        return false;
    }
    number = parsed;
    return true;
}

bool ParseDecimal(std::string_view text, double least, double most, double& number) {
    double parsed = 0;
    if (!ParseWhole(text, parsed) || !(parsed >= least && parsed <= most)) {
        return false;
    }
    number = parsed;
    return true;
}

std::optional<uint32_t> ParseTimeOfDay(std::string_view text, bool asEnd) {
    text = Trimmed(text);
    constexpr std::string_view FORM = "00:00:00";
    if (text.size() != FORM.size()) {
        return std::nullopt;
    }
    uint32_t hhmmss = 0;
    for (size_t k = 0; k < FORM.size(); ++k) {
        if (FORM[k] == ':' ? text[k] != ':' : !IsDigit(text[k])) {
            return std::nullopt;
        }
        if (FORM[k] != ':') {
            hhmmss = hhmmss * 10 + static_cast<uint32_t>(text[k] - '0');
        }
    }
    const bool real = hhmmss / 10000 < 24 && hhmmss / 100 % 100 < 60 && hhmmss % 100 < 60;
    return real || (asEnd && hhmmss == 240000) ? std::optional(hhmmss) : std::nullopt;
}

std::optional<uint32_t> ParseDate(std::string_view text) {
    uint64_t date = 0;
    if (text.size() != 8 || !ParseNumber(text, LAST_DATE, date)) {
        return std::nullopt;
    }
    const std::chrono::year_month_day day{
        std::chrono::year(static_cast<int>(date / 10000)),
        std::chrono::month(static_cast<unsigned>(date / 100 % 100)),
        std::chrono::day(static_cast<unsigned>(date % 100))};
    return day.ok() && date >= FIRST_DATE ? std::optional(static_cast<uint32_t>(date))
                                          : std::nullopt;
}

std::vector<std::string_view> SplitList(std::string_view text) {
    std::vector<std::string_view> items;
    while (true) {
        const size_t comma = text.find(',');
        items.push_back(Trimmed(text.substr(0, comma)));
        if (comma == std::string_view::npos) {
            return items;
        }
        text.remove_prefix(comma + 1);
    }
}

}  // namespace ZceBoard
