#include "exchange/BoardClock.h"

#include <ctime>

namespace ZceBoard {

BoardTime BoardTimeAt(int64_t wallNs) {
    const time_t seconds = wallNs / NS_PER_SECOND;
    tm local{};
    localtime_r(&seconds, &local);
    const auto hour = static_cast<uint32_t>(local.tm_hour);
    const auto minute = static_cast<uint32_t>(local.tm_min);
    const auto second = static_cast<uint32_t>(local.tm_sec);
    BoardTime time{};
    time.date = static_cast<uint32_t>((local.tm_year + 1900) * 10000 + (local.tm_mon + 1) * 100 +
                                      local.tm_mday);
    time.hhmmss = hour * 10000 + minute * 100 + second;
    time.dayNs = (hour * 3600ULL + minute * 60ULL + second) * NS_PER_SECOND +
                 static_cast<uint64_t>(wallNs % NS_PER_SECOND);
    time.wallNs = wallNs;
    return time;
}

int64_t MomentAt(uint32_t date, uint32_t hhmmss) {
    tm local{};
    local.tm_year = static_cast<int>(date / 10000) - 1900;
    local.tm_mon = static_cast<int>(date / 100 % 100) - 1;
    local.tm_mday = static_cast<int>(date % 100);
    local.tm_hour = static_cast<int>(hhmmss / 10000);
    local.tm_min = static_cast<int>(hhmmss / 100 % 100);
    local.tm_sec = static_cast<int>(hhmmss % 100);
    local.tm_isdst = -1;
    return mktime(&local) * NS_PER_SECOND;
}

uint32_t HhmmssOf(int64_t dayNs) {
    const auto seconds = static_cast<uint32_t>(dayNs / NS_PER_SECOND);
    return seconds / 3600 * 10000 + seconds / 60 % 60 * 100 + seconds % 60;
}

int64_t DayNsOf(uint32_t hhmmss) {
    const int64_t seconds =
        int64_t{hhmmss / 10000} * 3600 + int64_t{hhmmss / 100 % 100} * 60 + hhmmss % 100;
    return seconds * NS_PER_SECOND;
}

}  // namespace ZceBoard
