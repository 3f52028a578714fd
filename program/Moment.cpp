#include "program/Moment.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <string_view>

namespace ZceProgram {

namespace {

constexpr std::string_view DATE_SHAPE = "dddd-dd-dd";
constexpr std::string_view MINUTE_SHAPE = "dd:dd";
constexpr std::string_view SECOND_SHAPE = "dd:dd:dd";

// Whether the text has a digit for each 'd' of the shape, and the shape's own character elsewhere.
bool HasShape(std::string_view text, std::string_view shape) {
    if (text.size() != shape.size()) {
        return false;
    }
    for (std::size_t at = 0; at < text.size(); ++at) {
        const bool bDigit = text[at] >= '0' && text[at] <= '9';
        if (shape[at] == 'd' ? !bDigit : text[at] != shape[at]) {
            return false;
        }
    }
    return true;
}

// All digits of the text as one number.
unsigned int Digits(std::string_view text) {
    unsigned int number = 0;
    for (const char digit : text) {
        number = digit >= '0' && digit <= '9' ? number * 10 + static_cast<unsigned int>(digit - '0')
                                              : number;
    }
    return number;
}

bool IsTime(unsigned int time) {
    return time / 10000 < 24 && time / 100 % 100 < 60 && time % 100 < 60;
}

bool IsDate(unsigned int date) {
    const std::chrono::year_month_day day{std::chrono::year(static_cast<int>(date / 10000)),
                                          std::chrono::month(date / 100 % 100),
                                          std::chrono::day(date % 100)};
    return day.ok();
}

}  // namespace

const char* const NO_MOMENT = "no time: HH:MM, HH:MM:SS or YYYY-MM-DDTHH:MM:SS";

std::optional<Moment> ReadMoment(const std::string& text, unsigned int today) {
    std::string_view time = text;
    Moment moment{today, 0};
    if (text.size() > DATE_SHAPE.size()) {
        const std::string_view date = time.substr(0, DATE_SHAPE.size());
        const char between = time[DATE_SHAPE.size()];
        if (!HasShape(date, DATE_SHAPE) || (between != 'T' && between != ' ')) {
            return std::nullopt;
        }
        moment.date = Digits(date);
        time.remove_prefix(DATE_SHAPE.size() + 1);
    }
    if (HasShape(time, MINUTE_SHAPE)) {
        moment.time = Digits(time) * 100;
    } else if (HasShape(time, SECOND_SHAPE)) {
        moment.time = Digits(time);
    } else {
        return std::nullopt;
    }
    if (!IsDate(moment.date) || !IsTime(moment.time)) {
        return std::nullopt;
    }
    return moment;
}

std::optional<Moment> MomentToAsk(const char* name, const std::optional<std::string>& text,
                                  const std::optional<Moment>& now) {
    if (!now) {
        fprintf(stderr, "%s: the host's local time cannot be determined\n", name);
        return std::nullopt;
    }
    if (!text) {
        return now;
    }
    const std::optional<Moment> at = ReadMoment(*text, now->date);
    if (!at) {
        fprintf(stderr, "%s: --at: %s is %s\n", name, text->c_str(), NO_MOMENT);
    }
    return at;
}

std::string TimeText(unsigned int time) {
    std::array<char, 32> text{};
    snprintf(text.data(), text.size(), "%02u:%02u:%02u", time / 10000, time / 100 % 100,
             time % 100);
    return text.data();
}

std::string MomentText(const Moment& moment) {
    std::array<char, 64> text{};
    snprintf(text.data(), text.size(), "%04u-%02u-%02u ", moment.date / 10000,
             moment.date / 100 % 100, moment.date % 100);
    return text.data() + TimeText(moment.time);
}

}  // namespace ZceProgram
