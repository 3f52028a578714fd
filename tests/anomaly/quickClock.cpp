#include "quickClock.h"

#include "Utils/clockSeam.h"
#include "points.h"

namespace anomaly {

namespace {

constexpr std::time_t midnight = 1'795'132'800;  // 2026-11-20 00:00:00 UTC
std::time_t s_now = midnight;

}  // namespace

void SetClock(unsigned int hhmmss) {
    const long hours = hhmmss / 10000;
    const long minutes = hhmmss / 100 % 100;
    s_now = midnight + hours * 3600 + minutes * 60 + hhmmss % 100;
}

unsigned int ClockTime() {
    const auto seconds = static_cast<unsigned int>(s_now - midnight);
    return seconds / 3600 * 10000 + seconds / 60 % 60 * 100 + seconds % 60;
}

}  // namespace anomaly

namespace VORBA2::Clock {

std::time_t WallSeconds() {
    return anomaly::s_now;
}

bool LocalTime(std::time_t at, std::tm& result) {
    return !anomaly::Fails(anomaly::Kind::LocalTime) && gmtime_r(&at, &result) != nullptr;
}

std::uint64_t RealtimeNs() {
    return static_cast<std::uint64_t>(anomaly::s_now) * 1'000'000'000;
}

std::uint64_t MonotonicNs() {
    return RealtimeNs();
}

void SleepSeconds(unsigned int seconds) {
    anomaly::s_now += seconds;
}

}  // namespace VORBA2::Clock
