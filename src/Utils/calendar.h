#pragma once

#include <ctime>
#include <optional>

// Dates and times of day as the decimal numbers that registers, files and comparisons hold.
namespace VORBA2 {

// The date yyyymmdd and the time of day hhmmss of a broken-down time.
unsigned int DateNumber(const std::tm& local);
unsigned int TimeNumber(const std::tm& local);

// One reading of the host's clock, in local time.
struct LocalMoment_t {
    unsigned int date = 0;  // yyyymmdd
    unsigned int time = 0;  // hhmmss
};

// The host's local date and time of day; nothing if the host cannot tell. What that means is the
// caller's to decide: it is no date, and not midnight. Any thread may ask.
std::optional<LocalMoment_t> LocalNow();

// Whether the exchange trades at this time of day (hhmmss), as ZceIsInTradeTime has it.
bool IsTradeTime(unsigned int time);

// ZceIsInTradeTime, but nothing if the host cannot tell its local time. Any thread.
std::optional<bool> IsInTradeTimeNow();

}  // namespace VORBA2
