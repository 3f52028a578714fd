#include "log/elog.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "Utils/calendar.h"
#include "Utils/threadMutex.h"
#include "log/elogOutput.h"
#include "log/elogText.h"
#include "log/elogTime.h"

namespace {

using elogoutput::CText;
using elogoutput::g_uiLineBytes;
using elogtime::Caller;

constexpr std::size_t g_uiRawBytes = 2'048'000;
constexpr unsigned int g_uiLineDigits = 4;  // deliberate: line 12345 shows as 1234

constexpr const char* g_arrLabels[ELOG_LVL_TOTAL] = {
    "[ASSERT ]", "[ERROR  ]", "[WARN   ]", "[EVENT  ]", "[INFO   ]", "[DEBUG  ]", "[VERBOSE]"};

std::atomic<bool> s_enabled{false};
std::atomic<std::uint8_t> s_filterLevel{0};
std::atomic<std::uint64_t> s_formats[ELOG_LVL_TOTAL];

// The buffer for large raw texts. Lines have theirs on the caller's stack: no thread waits for one
// that is building a line, which an application's signal handler may never let go on.
VORBA2::CThreadMutex s_rawLock;
char s_raw[g_uiRawBytes];  // guarded by s_rawLock

// Where in the caller's source a line comes from.
struct Origin_t {
    const char* tag;
    const char* file;
    const char* function;
    std::int64_t line;
};

const char* LastComponent(const char* path) {
    const char* slash = path == nullptr ? nullptr : std::strrchr(path, '/');
    return slash == nullptr ? path : slash + 1;
}

void PutTime(CText& header, Caller caller) {
    std::tm local{};
    if (!elogtime::ToLocal(elogtime::Stamp(), caller, local)) {
        return;
    }
    header.PutNumber(static_cast<long>(VORBA2::DateNumber(local)), 8);
    header.Put("-");
    header.PutNumber(local.tm_hour, 2);
    header.Put(":");
    header.PutNumber(local.tm_min, 2);
    header.Put(":");
    header.PutNumber(local.tm_sec, 2);
}

// "[20261115-09:30:05 pid:1234 tid:1240]", or the parts of it that the word asks for.
void PutTimeBlock(CText& header, std::uint64_t word, Caller caller) {
    if ((word & (ELOG_FMT_TIME | ELOG_FMT_P_INFO | ELOG_FMT_T_INFO)) == 0) {
        return;
    }
    header.Put("[");
    if ((word & ELOG_FMT_TIME) != 0) {
        PutTime(header, caller);
        header.Put((word & (ELOG_FMT_P_INFO | ELOG_FMT_T_INFO)) != 0 ? " " : "");
    }
    if ((word & ELOG_FMT_P_INFO) != 0) {
        header.Put("pid:");
        header.PutNumber(getpid(), 4);
        header.Put((word & ELOG_FMT_T_INFO) != 0 ? " " : "");
    }
    if ((word & ELOG_FMT_T_INFO) != 0) {
        header.Put("tid:");
        header.PutNumber(syscall(SYS_gettid), 4);
    }
    header.Put("]");
}

// "(file.cpp Function:1234)", or the parts of it that the word asks for.
void PutOriginBlock(CText& header, std::uint64_t word, const Origin_t& origin) {
    if ((word & (ELOG_FMT_DIR | ELOG_FMT_FUNC | ELOG_FMT_LINE)) == 0) {
        return;
    }
    header.Put("(");
    if ((word & ELOG_FMT_DIR) != 0) {
        header.Put(LastComponent(origin.file));
    }
    if ((word & ELOG_FMT_FUNC) != 0) {
        header.Put((word & ELOG_FMT_DIR) != 0 ? " " : "");
        header.Put(origin.function);
    }
    if ((word & ELOG_FMT_LINE) != 0) {
        header.Put((word & (ELOG_FMT_DIR | ELOG_FMT_FUNC)) != 0 ? ":" : "");
        header.PutNumber(origin.line, 0, g_uiLineDigits);
    }
    header.Put(")");
}

void PutHeader(CText& header, std::uint8_t level, const Origin_t& origin, Caller caller) {
    const std::uint64_t word = s_formats[level];
    if ((word & ELOG_FMT_LVL) != 0) {
        header.Put(g_arrLabels[level]);
    }
    PutTimeBlock(header, word, caller);
    if ((word & ELOG_FMT_TAG) != 0) {
        header.Put("[");
        header.Put(origin.tag);
        header.Put("]");
    }
    PutOriginBlock(header, word, origin);
}

void WriteLine(std::uint8_t level, const Origin_t& origin, const char* format, va_list arguments) {
    char line[g_uiLineBytes];
    CText header(line, sizeof(line));
    PutHeader(header, level, origin, Caller::ordinary);
    const std::size_t start = header.Length();
    const int length = std::vsnprintf(line + start, g_uiLineBytes - start,
                                      format == nullptr ? "(null)" : format, arguments);
    if (length < 0) {
        std::memset(line + start, ' ', g_uiLineBytes - start);
    }
    const std::size_t end = length < 0 ? g_uiLineBytes : start + static_cast<std::size_t>(length);
    elogoutput::Write(line, elogoutput::EndLine(line, end), Caller::ordinary);
}

// The level to write a line as. There is no format for a level above VERBOSE.
std::uint8_t KnownLevel(std::uint8_t level) {
    if (level < ELOG_LVL_TOTAL) {
        return level;
    }
    elog_write_line(ELOG_LVL_WARN, "log", "elog", __func__, __LINE__,
                    "There is no log level %u, its line follows as VERBOSE.",
                    static_cast<unsigned int>(level));
    return ELOG_LVL_VERBOSE;
}

void WriteRaw(char* buffer, std::size_t size, const char* format, va_list arguments) {
    const int length =
        std::vsnprintf(buffer, size, format == nullptr ? "(null)" : format, arguments);
    if (length > 0) {
        elogoutput::Write(buffer, std::min(static_cast<std::size_t>(length), size - 1),
                          Caller::ordinary);
    }
}

}  // namespace

namespace elogoutput {

bool IsEnabled() {
    return s_enabled;
}

bool IsWanted(unsigned int level) {
    return s_enabled && level <= s_filterLevel;
}

std::size_t EndLine(char* line, std::size_t length) {
    const std::size_t newline = std::min(length, g_uiLineBytes - 1);
    line[newline] = '\n';
    return newline + 1;
}

void Write(const char* text, std::size_t size, Caller caller) {
    if (caller == Caller::signalHandler) {
        PrintInSignal(text, size);
        AppendToFileInSignal(text, size);
        return;
    }
    Print(text, size);
    AppendToFile(text, size);
}

}  // namespace elogoutput

void elog_start() {
    elog_set_enabled(true);
    elog_write_line(ELOG_LVL_INFO, "log", "elog", "elog_start", __LINE__,
                    "log is initialized successfully.");
}

void elog_set_enabled(bool enabled) {
    s_enabled = enabled;
}

bool elog_get_enabled() {
    return s_enabled;
}

void elog_set_level_format(std::uint8_t level, std::uint64_t word) {
    if (level < ELOG_LVL_TOTAL) {
        s_formats[level] = word;
    }
}

void elog_set_filter_level(std::uint8_t level) {
    s_filterLevel = level;
}

void elog_write_line(std::uint8_t level, const char* tag, const char* file, const char* function,
                     std::int64_t line, const char* format, ...) {
    if (!elogoutput::IsWanted(level)) {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    WriteLine(KnownLevel(level), {tag, file, function, line}, format, arguments);
    va_end(arguments);
}

void elog_write_line_in_signal(std::uint8_t level, const char* tag, const char* file,
                               const char* function, std::int64_t line, const char* before,
                               long number, const char* behind) {
    elogoutput::StopWaiting();
    if (!elogoutput::IsWanted(level) || level >= ELOG_LVL_TOTAL) {
        return;
    }
    char buffer[g_uiLineBytes];
    CText text(buffer, sizeof(buffer));
    PutHeader(text, level, {tag, file, function, line}, Caller::signalHandler);
    text.Put(before);
    text.PutNumber(number);
    text.Put(behind);
    elogoutput::Write(buffer, elogoutput::EndLine(buffer, text.Length()), Caller::signalHandler);
}

void elog_write_raw(const char* format, ...) {
    if (!elogoutput::IsEnabled()) {
        return;
    }
    char buffer[g_uiLineBytes];
    va_list arguments;
    va_start(arguments, format);
    WriteRaw(buffer, sizeof(buffer), format, arguments);
    va_end(arguments);
}

void elog_write_raw_large(const char* format, ...) {
    if (!elogoutput::IsEnabled()) {
        return;
    }
    const VORBA2::CThreadMutexGuard guard(s_rawLock);
    va_list arguments;
    va_start(arguments, format);
    WriteRaw(s_raw, sizeof(s_raw), format, arguments);
    va_end(arguments);
}
