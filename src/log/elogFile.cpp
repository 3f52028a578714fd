#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "Utils/calendar.h"
#include "Utils/threadMutex.h"
#include "log/elog.h"
#include "log/elogOutput.h"
#include "log/elogText.h"
#include "log/elogTime.h"

namespace {

using elogtime::Caller;

constexpr std::size_t g_uiNameBytes =
    256;  // of the pattern and of a file's name, their zero included
constexpr std::size_t g_uiDirBytes = 512;
constexpr mode_t g_uiDirMode = 0755;
constexpr mode_t g_uiFileMode = 0666;
constexpr int g_iNoFile = -1;
// Where the date goes in the file-name pattern, and what stands there.
constexpr std::size_t g_uiMarkBytes = 2;
constexpr char g_szNameEnd[] = "%s.log";

VORBA2::CThreadMutex s_fileLock;
// Guarded by s_fileLock.
bool s_rotating = false;
int s_slot = g_iNoFile;  // the descriptor that is the log's own

// What signal handlers use as well, without the lock. The descriptor of the open file keeps its
// number from one day to the next: the new day's file is put into its place by dup3(), so that a
// line which is on its way goes into the one or the other and never into a descriptor that is no
// longer the log's. It is closed only when no handler is at the file.
std::atomic<bool> s_initialised{false};
std::atomic<int> s_file{g_iNoFile};  // s_slot while a file is open
std::atomic<unsigned int> s_day{0};  // yyyymmdd, 0 until the first write
std::atomic<unsigned int> s_handlers{0};
std::atomic_flag s_changing;  // one thread is putting a new day's file into its place
std::atomic<char> s_pattern[g_uiNameBytes];
std::atomic<std::size_t> s_markAt{0};
static_assert(std::atomic<bool>::is_always_lock_free && std::atomic<char>::is_always_lock_free &&
              std::atomic<std::size_t>::is_always_lock_free);

// Makes the pattern, cut to what it has room for. The date mark is known by its place, so that a
// '%' in the directory or the name is a character like any other.
void MakePattern(const char* dir, const char* name) {
    char pattern[g_uiNameBytes] = "";
    elogoutput::CText text(pattern, g_uiNameBytes - 1);
    text.Put(dir);
    text.Put("/");
    text.Put(name);
    text.Put("_");
    s_markAt = text.Length();
    text.Put(g_szNameEnd);
    std::copy(std::begin(pattern), std::end(pattern), std::begin(s_pattern));
}

// The name of the day's file, cut to what it has room for. A pattern that was cut before the end of
// its date mark is the name of every day's file.
void MakeFileName(unsigned int day, char (&fileName)[g_uiNameBytes]) {
    char pattern[g_uiNameBytes];
    std::copy(std::begin(s_pattern), std::end(s_pattern), std::begin(pattern));
    const std::size_t mark = s_markAt;
    elogoutput::CText text(fileName, g_uiNameBytes - 1);
    if (mark + g_uiMarkBytes < g_uiNameBytes && pattern[mark + g_uiMarkBytes - 1] != '\0') {
        const char* const end = pattern + mark + g_uiMarkBytes;
        pattern[mark] = '\0';
        text.Put(pattern);
        text.PutNumber(static_cast<long>(day), 8);
        text.Put(end);
    } else {
        text.Put(pattern);
    }
    fileName[text.Length()] = '\0';
}

// Opens the day's file, as fopen() does with mode "ab", if it is a regular file under its own name.
// g_iNoFile with errno if that fails: the directory is shared by all users of the host, and whoever
// may write there must not lead another's process to a file of their choice (a link: ELOOP) or make
// it wait (a FIFO, a device: ENXIO, as open() has it for a FIFO without a reader). O_NONBLOCK is
// for the open alone: it means nothing to a regular file.
int Open(const char* fileName) {
    constexpr int flags = O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    const int opened = open(fileName, flags, g_uiFileMode);
    if (opened == g_iNoFile) {
        return g_iNoFile;
    }
    struct stat status {};
    if (fstat(opened, &status) == 0) {
        if (S_ISREG(status.st_mode)) {
            return opened;
        }
        errno = ENXIO;
    }
    const int reason = errno;
    close(opened);
    errno = reason;
    return g_iNoFile;
}

// As Open, the reason for a failure on standard error.
int OpenOrSay(unsigned int day) {
    char fileName[g_uiNameBytes];
    MakeFileName(day, fileName);
    const int opened = Open(fileName);
    if (opened == g_iNoFile) {
        std::fprintf(stderr, "Error! Create file %s fail, errmsg:%s. \n", fileName,
                     std::strerror(errno));
    }
    return opened;
}

void Append(int file, const char* text, std::size_t size) {
    while (size != 0) {
        const ssize_t written = write(file, text, size);
        if (written > 0) {
            text += written;
            size -= static_cast<std::size_t>(written);
        } else if (written == 0 || errno != EINTR) {
            return;
        }
    }
}

// The day of the most recent stamped time, 0 if it cannot be told.
unsigned int StampedDay(Caller caller) {
    std::tm local{};
    return elogtime::ToLocal(elogtime::LastStamp(), caller, local) ? VORBA2::DateNumber(local) : 0;
}

// Whether a line of `day` is the first of a new day. A smaller day, the clock set back, keeps the
// file.
bool IsNewDay(unsigned int day) {
    unsigned int open = 0;
    return day != 0 && !s_day.compare_exchange_strong(open, day) && day > open;
}

// Puts the file that is open as `opened` into the place of the old day's, for all lines from now
// on. Whoever finds another at it (which may be the thread that this handler has interrupted)
// leaves it at that: the next line finds the day changed, or tries again.
void ChangeFile(int opened, unsigned int day) {
    if (s_changing.test_and_set()) {
        return;
    }
    const int file = s_file;
    if (file != g_iNoFile && s_day < day && dup3(opened, file, O_CLOEXEC) == file) {
        s_day = day;
    }
    s_changing.clear();
}

// Makes `opened` the log's descriptor where there is no open file. Under s_fileLock.
void AdoptFile(int opened) {
    if (s_slot == g_iNoFile) {
        s_slot = opened;
    } else {  // a handler kept it from being closed
        dup3(opened, s_slot, O_CLOEXEC);
        close(opened);
    }
    s_file = s_slot;
}

// Under s_fileLock. A handler that is still at the file keeps the descriptor open; AdoptFile or the
// next CloseFile finds it.
void CloseFile() {
    s_file = g_iNoFile;
    if (s_slot != g_iNoFile && s_handlers == 0) {
        close(s_slot);
        s_slot = g_iNoFile;
    }
}

// Appends the first line of a new day to its file. Under s_fileLock.
void AppendToNewFile(unsigned int day, const char* text, std::size_t size) {
    s_rotating = true;
    const int opened = OpenOrSay(day);
    s_rotating = false;
    if (opened == g_iNoFile) {
        CloseFile();
        s_day = day;
        return;
    }
    Append(opened, text, size);
    if (s_file == g_iNoFile) {
        AdoptFile(opened);
        s_day = day;
    } else {
        ChangeFile(opened, day);
        close(opened);
    }
}

bool Exists(const char* path) {
    return faccessat(AT_FDCWD, path, F_OK, AT_EACCESS) == 0;
}

bool IsWritable(const char* path) {
    return faccessat(AT_FDCWD, path, W_OK, AT_EACCESS) == 0;
}

bool IsDirectory(const char* path) {
    struct stat status {};
    return stat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

// Makes the directory with all that lead to it; whether it is there in the end.
bool MakeDirectories(const char* dir) {
    char prefix[g_uiDirBytes];
    const std::size_t length = std::min(std::strlen(dir), sizeof(prefix) - 1);
    for (std::size_t at = 0; at < length; ++at) {
        prefix[at] = '\0';
        if (dir[at] == '/' && at != 0 && !Exists(prefix)) {
            mkdir(prefix, g_uiDirMode);
        }
        prefix[at] = dir[at];
    }
    if (!Exists(dir)) {
        mkdir(dir, g_uiDirMode);
    }
    return IsDirectory(dir);
}

// A directory that can be written, made if it is missing. Returns 0, or -1 with the reason printed.
int PrepareDirectory(const char* dir) {
    if (IsWritable(dir)) {
        return 0;
    }
    if (Exists(dir)) {
        std::fprintf(stderr,
                     "Error! file or dir: [%s] already exist and havn't write authority. use root "
                     "try again ?\n",
                     dir);
        return -1;
    }
    if (!MakeDirectories(dir)) {
        std::fprintf(stderr,
                     "Error! make file or log dir:[%s] failed! Maybe no access authority.use root "
                     "try again ?\n",
                     dir);
        return -1;
    }
    return 0;
}

// Makes the pattern and opens the day's file. Returns 0, or -1 with the reason printed.
int OpenFirstFile(const char* dir, const char* name) {
    MakePattern(dir, name);
    const unsigned int day = StampedDay(Caller::ordinary);
    const int opened = day == 0 ? g_iNoFile : OpenOrSay(day);
    if (opened == g_iNoFile) {
        std::fprintf(stderr, "Error! log init fail.\n");
        return -1;
    }
    AdoptFile(opened);
    return 0;
}

}  // namespace

namespace elogoutput {

void AppendToFile(const char* text, std::size_t size) {
    const VORBA2::CThreadMutexGuard guard(s_fileLock);
    if (s_rotating) {
        constexpr char notice[] =
            "======================log file is rotating, exit log file!===================\n";
        Print(notice, sizeof(notice) - 1);
        return;
    }
    const unsigned int day = s_initialised ? StampedDay(Caller::ordinary) : 0;
    if (IsNewDay(day)) {
        AppendToNewFile(day, text, size);
    } else if (const int file = s_file; file != g_iNoFile) {
        Append(file, text, size);
    }
}

void AppendToFileInSignal(const char* line, std::size_t size) {
    ++s_handlers;
    if (s_initialised) {
        const unsigned int day = StampedDay(Caller::signalHandler);
        if (!IsNewDay(day)) {
            if (const int file = s_file; file != g_iNoFile) {
                Append(file, line, size);
            }
        } else {
            char fileName[g_uiNameBytes];
            MakeFileName(day, fileName);
            if (const int opened = Open(fileName); opened != g_iNoFile) {
                Append(opened, line, size);
                ChangeFile(opened, day);
                close(opened);
            }
        }
    }
    --s_handlers;
}

}  // namespace elogoutput

int elog_log_file_init(const char* dir, const char* name) {
    const VORBA2::CThreadMutexGuard guard(s_fileLock);
    if (s_initialised) {
        return 0;
    }
    if (dir == nullptr || name == nullptr) {
        std::fprintf(stderr, "Error! log init fail.\n");
        return -1;
    }
    if (PrepareDirectory(dir) != 0) {
        return -1;
    }
    elogtime::Stamp();
    if (OpenFirstFile(dir, name) != 0) {
        return -1;
    }
    s_initialised = true;
    return 0;
}

void elog_log_file_close() {
    const VORBA2::CThreadMutexGuard guard(s_fileLock);
    s_initialised = false;
    CloseFile();
}
