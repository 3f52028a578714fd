#pragma once

#include <array>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

namespace ZceCaptureTool {

constexpr int64_t NS_PER_SECOND = 1'000'000'000;

// Writes times, ns since the epoch, in local time. A second is worked out once, as long as the
// times stay in it.
class CTimeWriter {
  public:
    static constexpr std::size_t SIZE = 35;

    // "2026-11-20T08:55:04.123456789+08:00", valid until the next call.
    std::string_view Iso(int64_t timeNs);
    // "2026-11-20 08:55:04.123456789", the same.
    std::string_view Plain(int64_t timeNs);
    // The date, yyyymmdd.
    unsigned int Date(int64_t timeNs);

  private:
    void Write(int64_t timeNs);
    void WriteSecond(int64_t second);

    std::array<char, SIZE> m_text{};
    int64_t m_second = std::numeric_limits<int64_t>::min();
    unsigned int m_date = 0;
};

// A moment as an option gives it: HH:MM, HH:MM:SS or YYYY-MM-DDTHH:MM:SS, the latter two with a
// fraction of up to nine digits if need be.
struct GivenTime {
    unsigned int date = 0;  // yyyymmdd; 0: the day that the one who reads it means
    unsigned int time = 0;  // hhmmss
    uint32_t fractionNs = 0;
};

// Nothing for a text that is none.
std::optional<GivenTime> ReadTime(const std::string& text);

// The moment in ns since the epoch; one without a date is of the day `date`.
int64_t NsOf(const GivenTime& given, unsigned int date);

}  // namespace ZceCaptureTool
