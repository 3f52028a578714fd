#include <algorithm>
#include <iterator>
#include <optional>

#include "Utils/calendar.h"
#include "Utils/clockSeam.h"
#include "VelaZceUtils.h"

namespace {

// Times of day as the number hhmmss; both ends belong to the session.
struct Session_t {
    unsigned int first;
    unsigned int last;
};
constexpr Session_t g_arrSessions[] = {{90001, 149999}, {210001, 232999}};

}  // namespace

bool VORBA2::IsTradeTime(unsigned int time) {
    return std::any_of(
        std::begin(g_arrSessions), std::end(g_arrSessions),
        [time](const Session_t& session) { return session.first <= time && time <= session.last; });
}

std::optional<bool> VORBA2::IsInTradeTimeNow() {
    const std::optional<VORBA2::LocalMoment_t> now = VORBA2::LocalNow();
    return now ? std::optional<bool>(VORBA2::IsTradeTime(now->time)) : std::nullopt;
}

bool ZceIsInTradeTime() {
    return VORBA2::IsInTradeTimeNow().value_or(false);
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
    const std::optional<VORBA2::LocalMoment_t> now = VORBA2::LocalNow();
    if (day == nullptr || !now || *day >= now->date) {
        return 0;
    }
    const bool isFirst = *day == 0;
    *day = now->date;
    return isFirst ? 0 : 1;
}
