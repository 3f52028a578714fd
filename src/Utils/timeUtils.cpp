#include <ctime>

#include "Utils/clockSeam.h"
#include "VelaZceUtils.h"

namespace {

// Times of day as the number hhmmss; both ends belong to the session.
struct Session {
    unsigned int first;
    unsigned int last;
};
constexpr Session SESSIONS[] = {{90001, 149999}, {210001, 232999}};

}  // namespace

bool ZceIsInTradeTime() {
    std::tm local{};
    if (!VORBA2::Clock::LocalTime(VORBA2::Clock::WallSeconds(), local)) {
        return false;
    }
    const auto now =
        static_cast<unsigned int>(local.tm_hour * 10000 + local.tm_min * 100 + local.tm_sec);
    for (const Session& session : SESSIONS) {
        if (now >= session.first && now <= session.last) {
            return true;
        }
    }
    return false;
}

std::uint64_t get_time() {
    return VORBA2::Clock::RealtimeNs();
}

std::uint64_t TernGetTimeTamp() {
    return VORBA2::Clock::RealtimeNs();
}

std::uint64_t TernDiffTimeTamp(std::uint64_t start) {
    return VORBA2::Clock::RealtimeNs() - start;
}

std::uint64_t get_time_since_powerof() {
    return VORBA2::Clock::MonotonicNs();
}

std::uint64_t NS_Sleep(std::uint64_t start, std::uint64_t ns) {
    const std::uint64_t end = start + ns;
    std::uint64_t now = get_time();
    while (now < end) {
        now = get_time();
    }
    return now;
}

int CheckIsRotateDay(unsigned long* day) {
    std::tm local{};
    if (day == nullptr || !VORBA2::Clock::LocalTime(VORBA2::Clock::WallSeconds(), local)) {
        return 0;
    }
    const int date = (local.tm_year + 1900) * 10000 + (local.tm_mon + 1) * 100 + local.tm_mday;
    const auto today = static_cast<unsigned long>(date);
    if (*day >= today) {
        return 0;
    }
    const bool isFirst = *day == 0;
    *day = today;
    return isFirst ? 0 : 1;
}
