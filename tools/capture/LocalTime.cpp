#include "capturetool/LocalTime.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "program/Moment.h"

namespace ZceCaptureTool {

namespace {

constexpr std::size_t SECOND_SIZE = 19;  // of "2026-11-20T08:55:04"
constexpr std::size_t DATE_SIZE = 10;
constexpr std::size_t FRACTION_DIGITS = 9;
constexpr std::size_t PLAIN_SIZE = SECOND_SIZE + 1 + FRACTION_DIGITS;
constexpr unsigned int SOME_DAY = 20000101;

// Downwards, for times before the epoch as well.
int64_t SecondOf(int64_t timeNs) {
    return timeNs / NS_PER_SECOND - (timeNs % NS_PER_SECOND < 0 ? 1 : 0);
}

}  // namespace

void CTimeWriter::WriteSecond(int64_t second) {
    const std::time_t time = second;
    std::tm local{};
    localtime_r(&time, &local);
    // Each with room for any number that an int can be; those of a time in ns have their widths.
    std::array<char, 96> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02d-%02dT%02d:%02d:%02d", local.tm_year + 1900,
                  local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
    std::memcpy(m_text.data(), text.data(), SECOND_SIZE);
    const long minutes = local.tm_gmtoff / 60;
    std::snprintf(text.data(), text.size(), "%c%02ld:%02ld", minutes < 0 ? '-' : '+',
                  (minutes < 0 ? -minutes : minutes) / 60, (minutes < 0 ? -minutes : minutes) % 60);
    std::memcpy(m_text.data() + PLAIN_SIZE, text.data(), SIZE - PLAIN_SIZE);
    m_text[SECOND_SIZE] = '.';
    m_date = static_cast<unsigned int>((local.tm_year + 1900) * 10000 + (local.tm_mon + 1) * 100 +
                                       local.tm_mday);
    m_second = second;
}

void CTimeWriter::Write(int64_t timeNs) {
    const int64_t second = SecondOf(timeNs);
    if (second != m_second) {
        WriteSecond(second);
    }
    // Unsigned arithmetic: the product of the earliest second is outside of what is signed.
    auto fraction = static_cast<uint32_t>(static_cast<uint64_t>(timeNs) -
                                          static_cast<uint64_t>(second) * NS_PER_SECOND);
    for (std::size_t digit = FRACTION_DIGITS; digit > 0; --digit) {
        m_text[SECOND_SIZE + digit] = static_cast<char>('0' + fraction % 10);
        fraction /= 10;
    }
}

std::string_view CTimeWriter::Iso(int64_t timeNs) {
    Write(timeNs);
    m_text[DATE_SIZE] = 'T';
    return {m_text.data(), SIZE};
}

std::string_view CTimeWriter::Plain(int64_t timeNs) {
    Write(timeNs);
    m_text[DATE_SIZE] = ' ';
    return {m_text.data(), PLAIN_SIZE};
}

unsigned int CTimeWriter::Date(int64_t timeNs) {
    Write(timeNs);
    return m_date;
}

std::optional<GivenTime> ReadTime(const std::string& text) {
    GivenTime given;
    const std::size_t point = text.find('.');
    const std::string whole = text.substr(0, point);
    if (point != std::string::npos) {
        std::string digits = text.substr(point + 1);
        const bool bSeconds = whole.size() > 5 && whole[whole.size() - 6] == ':';
        if (!bSeconds || digits.empty() || digits.size() > FRACTION_DIGITS ||
            digits.find_first_not_of("0123456789") != std::string::npos) {
            return std::nullopt;
        }
        digits.append(FRACTION_DIGITS - digits.size(), '0');
        for (const char digit : digits) {
            given.fractionNs = given.fractionNs * 10 + static_cast<uint32_t>(digit - '0');
        }
    }
    const std::optional<ZceProgram::Moment> moment = ZceProgram::ReadMoment(whole, SOME_DAY);
    if (!moment) {
        return std::nullopt;
    }
    const bool bDate = whole.size() > DATE_SIZE;
    given.date = bDate ? moment->date : 0;
    given.time = moment->time;
    return given;
}

int64_t NsOf(const GivenTime& given, unsigned int date) {
    const unsigned int day = given.date != 0 ? given.date : date;
    std::tm local{};
    local.tm_year = static_cast<int>(day / 10000) - 1900;
    local.tm_mon = static_cast<int>(day / 100 % 100) - 1;
    local.tm_mday = static_cast<int>(day % 100);
    local.tm_hour = static_cast<int>(given.time / 10000);
    local.tm_min = static_cast<int>(given.time / 100 % 100);
    local.tm_sec = static_cast<int>(given.time % 100);
    local.tm_isdst = -1;
    // A day long before or after all times in ns counts as their first or last second.
    constexpr int64_t lastSecond = std::numeric_limits<int64_t>::max() / NS_PER_SECOND - 1;
    const int64_t second = std::clamp<int64_t>(std::mktime(&local), -lastSecond, lastSecond);
    return second * NS_PER_SECOND + given.fractionNs;
}

}  // namespace ZceCaptureTool
