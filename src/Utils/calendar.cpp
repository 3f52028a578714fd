#include "Utils/calendar.h"

#include "Utils/clockSeam.h"

namespace VORBA2 {

namespace {

constexpr int g_iYearBase = 1900;  // of std::tm

// Three numbers written one after the other, two digits each from the second on.
unsigned int Decimal(int first, int second, int third) {
    return static_cast<unsigned int>(first * 10000 + second * 100 + third);
}

}  // namespace

unsigned int DateNumber(const std::tm& local) {
    return Decimal(local.tm_year + g_iYearBase, local.tm_mon + 1, local.tm_mday);
}

unsigned int TimeNumber(const std::tm& local) {
    return Decimal(local.tm_hour, local.tm_min, local.tm_sec);
}

std::optional<LocalMoment_t> LocalNow() {
    std::tm local{};
    if (!Clock::LocalTime(Clock::WallSeconds(), local)) {
        return std::nullopt;
    }
    return LocalMoment_t{DateNumber(local), TimeNumber(local)};
}

}  // namespace VORBA2
