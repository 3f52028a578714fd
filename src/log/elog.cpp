#include "log/elog.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "Utils/threadMutex.h"
#include "log/elogOutput.h"
#include "log/elogTime.h"

namespace {

using elogoutput::BufferScope;
using elogoutput::LINE_BYTES;
using elogtime::Caller;

constexpr std::size_t RAW_BYTES = 2'048'000;
constexpr std::size_t TIME_TEXT_BYTES = 72;  // 18 of any real time; six numbers of any size fit
constexpr std::size_t ID_TEXT_BYTES = 16;    // "pid:" and "tid:" with their number
constexpr std::size_t LINE_TEXT_BYTES =
    5;  // deliberately four characters: line 12345 shows as 1234

constexpr const char* labels[ELOG_LVL_TOTAL] = {"[ASSERT ]", "[ERROR  ]", "[WARN   ]", "[EVENT  ]",
                                                "[INFO   ]", "[DEBUG  ]", "[VERBOSE]"};

std::atomic<bool> s_enabled{false};
std::atomic<std::uint8_t> s_filterLevel{0};
std::atomic<std::uint64_t> s_formats[ELOG_LVL_TOTAL];

// Guarded by s_bufferLock.
VORBA2::CThreadMutex s_bufferLock;
unsigned int s_depth = 0;  // writes of the holding thread that are under way
char s_line[2][LINE_BYTES];
char s_raw[RAW_BYTES];

// A header under construction. Whatever does not fit is cut silently.
class CHeader {
  public:
    explicit CHeader(char* line) : m_line(line) {}

    void Put(const char* text) {
        for (; text != nullptr && *text != '\0' && m_length < LINE_BYTES; ++text) {
            m_line[m_length++] = *text;
        }
    }
    std::size_t Length() const { return m_length; }

  private:
    char* m_line;
    std::size_t m_length = 0;
};

// Where in the caller's source a line comes from.
struct Origin {
    const char* tag;
    const char* file;
    const char* function;
    std::int64_t line;
};

const char* LastComponent(const char* path) {
    const char* slash = path == nullptr ? nullptr : std::strrchr(path, '/');
    return slash == nullptr ? path : slash + 1;
}

void PutTime(CHeader& header, Caller caller) {
    std::tm local{};
    char text[TIME_TEXT_BYTES] = "";
    if (elogtime::ToLocal(elogtime::Stamp(), caller, local)) {
        std::snprintf(text, sizeof(text), "%04d%02d%02d-%02d:%02d:%02d", local.tm_year + 1900,
                      local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
    }
    header.Put(text);
}

void PutId(CHeader& header, const char* format, int id) {
    char text[ID_TEXT_BYTES];
    std::snprintf(text, sizeof(text), format, id);
    header.Put(text);
}

// "[20261115-09:30:05 pid:1234 tid:1240]", or the parts of it that the word asks for.
void PutTimeBlock(CHeader& header, std::uint64_t word, Caller caller) {
    if ((word & (ELOG_FMT_TIME | ELOG_FMT_P_INFO | ELOG_FMT_T_INFO)) == 0) {
        return;
    }
    header.Put("[");
    if ((word & ELOG_FMT_TIME) != 0) {
        PutTime(header, caller);
        header.Put((word & (ELOG_FMT_P_INFO | ELOG_FMT_T_INFO)) != 0 ? " " : "");
    }
    if ((word & ELOG_FMT_P_INFO) != 0) {
        PutId(header, "pid:%04d", static_cast<int>(getpid()));
        header.Put((word & ELOG_FMT_T_INFO) != 0 ? " " : "");
    }
    if ((word & ELOG_FMT_T_INFO) != 0) {
        PutId(header, "tid:%04d", static_cast<int>(syscall(SYS_gettid)));
    }
    header.Put("]");
}

// "(file.cpp Function:1234)", or the parts of it that the word asks for.
void PutOriginBlock(CHeader& header, std::uint64_t word, const Origin& origin) {
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
        char number[LINE_TEXT_BYTES];
        std::snprintf(number, sizeof(number), "%ld", static_cast<long>(origin.line));
        header.Put((word & (ELOG_FMT_DIR | ELOG_FMT_FUNC)) != 0 ? ":" : "");
        header.Put(number);
    }
    header.Put(")");
}

void WriteLine(std::uint8_t level, const Origin& origin, Caller caller, const char* format,
               va_list arguments) {
    const std::uint64_t word = s_formats[level];
    BufferScope scope;
    char* line = scope.Line();
    CHeader header(line);
    if ((word & ELOG_FMT_LVL) != 0) {
        header.Put(labels[level]);
    }
    PutTimeBlock(header, word, caller);
    if ((word & ELOG_FMT_TAG) != 0) {
        header.Put("[");
        header.Put(origin.tag);
        header.Put("]");
    }
    PutOriginBlock(header, word, origin);

    const std::size_t start = header.Length();
    const int length = std::vsnprintf(line + start, LINE_BYTES - start,
                                      format == nullptr ? "(null)" : format, arguments);
    if (length < 0) {
        std::memset(line + start, ' ', LINE_BYTES - start);  // nothing of an earlier line
    }
    const std::size_t end = length < 0 ? LINE_BYTES : start + static_cast<std::size_t>(length);
    elogoutput::Write(line, elogoutput::EndLine(line, end), caller);
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

SignalHold::SignalHold() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &m_before);
}

SignalHold::~SignalHold() {
    pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
}

BufferScope::BufferScope() {
    s_bufferLock.Acquire();
    ++s_depth;
}

BufferScope::~BufferScope() {
    --s_depth;
    s_bufferLock.Release();
}

char* BufferScope::Line() {
    return s_line[s_depth == 1 ? 0 : 1];
}

bool IsEnabled() {
    return s_enabled;
}

bool IsWanted(unsigned int level) {
    return s_enabled && level <= s_filterLevel;
}

std::size_t EndLine(char* line, std::size_t length) {
    const std::size_t newline = std::min(length, LINE_BYTES - 1);
    line[newline] = '\n';
    return newline + 1;
}

void Write(const char* text, std::size_t size, Caller caller) {
    std::printf("%.*s", static_cast<int>(size), text);
    AppendToFile(text, size, caller);
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
    WriteLine(KnownLevel(level), {tag, file, function, line}, Caller::ordinary, format, arguments);
    va_end(arguments);
}

void elog_write_line_in_signal(std::uint8_t level, const char* tag, const char* file,
                               const char* function, std::int64_t line, const char* format, ...) {
    if (!elogoutput::IsWanted(level) || level >= ELOG_LVL_TOTAL) {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    WriteLine(level, {tag, file, function, line}, Caller::signalHandler, format, arguments);
    va_end(arguments);
}

void elog_write_raw(const char* format, ...) {
    if (!elogoutput::IsEnabled()) {
        return;
    }
    BufferScope scope;
    va_list arguments;
    va_start(arguments, format);
    WriteRaw(scope.Line(), LINE_BYTES, format, arguments);
    va_end(arguments);
}

void elog_write_raw_large(const char* format, ...) {
    if (!elogoutput::IsEnabled()) {
        return;
    }
    const BufferScope scope;
    va_list arguments;
    va_start(arguments, format);
    WriteRaw(s_raw, sizeof(s_raw), format, arguments);
    va_end(arguments);
}
