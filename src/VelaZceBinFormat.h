#pragma once

#include <ctime>
#include <string_view>

#include "Utils/clockSeam.h"

// What the writing and the reading of the instrument cache file share.

constexpr const char* ZCE_BIN_NAME = "bin";  // in the working directory
constexpr std::string_view ZCE_BIN_TIME_PREFIX = "contract's_corresponding_time=";
constexpr std::string_view ZCE_BIN_END_TAG = "bin_file_over_tag";

// yyyymmddhhmmss = a date's number and a time's.
constexpr unsigned long ZCE_BIN_DATE_UNIT = 1'000'000;

// Local time now; all zero if it cannot be told.
inline std::tm ZceLocalNow() {
    std::tm local{};
    VORBA2::Clock::LocalTime(VORBA2::Clock::WallSeconds(), local);
    return local;
}

// yyyymmdd and hhmmss of a local time.
inline unsigned long ZceDateNumber(const std::tm& local) {
    return (static_cast<unsigned long>(local.tm_year) + 1900) * 10000 +
           (static_cast<unsigned long>(local.tm_mon) + 1) * 100 +
           static_cast<unsigned long>(local.tm_mday);
}
inline unsigned long ZceTimeNumber(const std::tm& local) {
    return static_cast<unsigned long>(local.tm_hour) * 10000 +
           static_cast<unsigned long>(local.tm_min) * 100 +
           static_cast<unsigned long>(local.tm_sec);
}
