#pragma once

#include <cstdint>

// The log service: one for the process, to a daily file and to standard output.
//
// Any thread may log. A line is built on the caller's stack and goes out by one write() to standard
// output and by one to the file, so that lines mix as wholes only; two lines of two threads may
// stand in another order in the one than in the other. A standard output that stalls makes those
// wait that log, until a signal has come that ends the process (elog_write_line_in_signal). No
// signal is blocked meanwhile. Before elog_log_file_init and elog_start nothing is written
// anywhere. Nothing is allocated. Failed writes are not reported.
//
// Standard output is written to by its descriptor: what an application prints itself stands between
// the lines in its place as long as the stream is unbuffered, as CRwLogger::Init leaves it.

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

// A line for signal handlers, with the text `before`, the decimal `number`, and `behind`: it goes
// to the same places as any other, the file of the day that it is written on included. Whatever the
// handler has interrupted, it takes no lock, allocates nothing, waits for nothing and never asks
// the C library for the local time (which is the UTC offset of the last ordinary line). A standard
// output that stalls goes without it, and from then on no thread's line waits for standard output
// for more than a tenth of a second. Changes errno.
void elog_write_line_in_signal(std::uint8_t level, const char* tag, const char* file,
                               const char* function, std::int64_t line, const char* before,
                               long number, const char* behind);

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
#define LOG_WARN_IN_SIGNAL(before, number, behind)                                             \
    elog_write_line_in_signal(ELOG_LVL_WARN, ELOG_TAG, __FILE__, __func__, __LINE__, (before), \
                              (number), (behind))
