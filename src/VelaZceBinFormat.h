#pragma once

#include <string_view>

// What the writing and the reading of the instrument cache file share.

constexpr const char* ZCE_BIN_NAME = "bin";  // in the working directory
constexpr std::string_view ZCE_BIN_TIME_PREFIX = "contract's_corresponding_time=";
constexpr std::string_view ZCE_BIN_END_TAG = "bin_file_over_tag";

// yyyymmddhhmmss = a date's number and a time's.
constexpr unsigned long ZCE_BIN_DATE_UNIT = 1'000'000;
