#include "log/elogTime.h"

#include <atomic>
#include <chrono>

#include "Utils/clockSeam.h"

namespace elogtime {

namespace {

std::atomic<std::time_t> s_lastStamp{0};
std::atomic<long> s_utcOffset{0};  // seconds east of UTC

// Broken-down time by plain arithmetic; not even gmtime_r() does without the time zone lock.
void BreakDown(std::time_t local, std::tm& result) {
    using std::chrono::days;
    using std::chrono::seconds;
    const std::chrono::sys_seconds at{seconds{local}};
    const auto midnight = std::chrono::floor<days>(at);
    const std::chrono::year_month_day date{midnight};
    const std::chrono::hh_mm_ss<seconds> time{at - midnight};
    std::tm parts{};
    parts.tm_year = static_cast<int>(date.year()) - 1900;
    parts.tm_mon = static_cast<int>(static_cast<unsigned int>(date.month())) - 1;
    parts.tm_mday = static_cast<int>(static_cast<unsigned int>(date.day()));
    parts.tm_hour = static_cast<int>(time.hours().count());
    parts.tm_min = static_cast<int>(time.minutes().count());
    parts.tm_sec = static_cast<int>(time.seconds().count());
    result = parts;
}

}  // namespace

std::time_t Stamp() {
    const std::time_t now = VORBA2::Clock::WallSeconds();
    s_lastStamp = now;
    return now;
}

std::time_t LastStamp() {
    return s_lastStamp;
}

bool ToLocal(std::time_t at, Caller caller, std::tm& result) {
    if (caller == Caller::signalHandler) {
        BreakDown(at + s_utcOffset, result);
        return true;
    }
    std::tm local{};
    if (!VORBA2::Clock::LocalTime(at, local)) {
        return false;
    }
    s_utcOffset = local.tm_gmtoff;
    result = local;
    return true;
}

}  // namespace elogtime
