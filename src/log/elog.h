#pragma once

#include <cstdint>

// The log service: one for the process, to a daily file and to standard output.
//
// Any thread may log. A line is built in one shared buffer; building and printing it are serialised
// by one lock, the rotation check and the append to the file by another, so that lines never mix.
// The signals of the calling thread are held back meanwhile, so that a handler that logs never cuts
// into a line. Before elog_log_file_init and elog_start nothing is written anywhere. Nothing is
// allocated but when a day's file is opened. Failed writes are not reported.

constexpr std::uint8_t ELOG_LVL_ASSERT = 0;
constexpr std::uint8_t ELOG_LVL_ERROR = 1;
constexpr std::uint8_t ELOG_LVL_WARN = 2;
constexpr std::uint8_t ELOG_LVL_EVENT = 3;
constexpr std::uint8_t ELOG_LVL_INFO = 4;
constexpr std::uint8_t ELOG_LVL_DEBUG = 5;
constexpr std::uint8_t ELOG_LVL_VERBOSE = 6;
constexpr unsigned int ELOG_LVL_TOTAL = 7;

// Bits of a level's format word: the parts of the line's header.
constexpr std::uint64_t ELOG_FMT_LVL = 1;
constexpr std::uint64_t ELOG_FMT_TAG = 2;
constexpr std::uint64_t ELOG_FMT_TIME = 4;
constexpr std::uint64_t ELOG_FMT_P_INFO = 8;
constexpr std::uint64_t ELOG_FMT_T_INFO = 16;
constexpr std::uint64_t ELOG_FMT_DIR = 32;
constexpr std::uint64_t ELOG_FMT_FUNC = 64;
constexpr std::uint64_t ELOG_FMT_LINE = 128;

// Opens the day's file "<dir>/<name>_<yyyymmdd>.log", making the directory if it is missing.
// Returns 0 (also when the file part is up already: nothing changes) or -1, the reason on standard
// error.
int elog_log_file_init(const char* dir, const char* name);
// Closes the file and forgets that the file part was up.
void elog_log_file_close();

// Enables output and writes the first line.
void elog_start();

void elog_set_enabled(bool enabled);
bool elog_get_enabled();
// level 0 to 6; any other is ignored.
void elog_set_level_format(std::uint8_t level, std::uint64_t word);
// Lines of a level greater than this are dropped.
void elog_set_filter_level(std::uint8_t level);

// Writes one line: header as the level's format word says, text, newline; 2048 bytes at most, the
// newline included. A null tag, file or function counts as empty. A level above 6 that the filter
// lets through is written as VERBOSE, behind one WARN line that says so.
void elog_write_line(std::uint8_t level, const char* tag, const char* file, const char* function,
                     std::int64_t line, const char* format, ...)
    __attribute__((format(printf, 6, 7)));

// As elog_write_line, for signal handlers: whatever the handler interrupted, it does not wait for
// the C library's time zone lock (the local time comes from the UTC offset of the last ordinary
// line), and it leaves a change of the day's file to the next ordinary line.
void elog_write_line_in_signal(std::uint8_t level, const char* tag, const char* file,
                               const char* function, std::int64_t line, const char* format, ...)
    __attribute__((format(printf, 6, 7)));

// Writes `size` bytes of `buffer` as rows of `width` (1 to 255) bytes in hexadecimal, at DEBUG
// level. A width of 0 or a null buffer is rejected with one WARN line.
void elog_hex_dump(const char* name, std::uint8_t width, const void* buffer, std::uint16_t size);

// Text without header or newline, through a buffer of 2048 and of 2,048,000 bytes: cut to 2047 and
// to 2,047,999 characters.
void elog_write_raw(const char* format, ...) __attribute__((format(printf, 1, 2)));
void elog_write_raw_large(const char* format, ...) __attribute__((format(printf, 1, 2)));

// How the rest of the library logs.
#define ELOG_TAG "fpga"
#define FPGA_LOG(level, ...) \
    elog_write_line((level), ELOG_TAG, __FILE__, __func__, __LINE__, __VA_ARGS__)
#define LOG_ERROR(...) FPGA_LOG(ELOG_LVL_ERROR, __VA_ARGS__)
#define LOG_WARN(...) FPGA_LOG(ELOG_LVL_WARN, __VA_ARGS__)
#define LOG_INFO(...) FPGA_LOG(ELOG_LVL_INFO, __VA_ARGS__)
#define LOG_WARN_IN_SIGNAL(...) \
    elog_write_line_in_signal(ELOG_LVL_WARN, ELOG_TAG, __FILE__, __func__, __LINE__, __VA_ARGS__)
