#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "Utils/threadMutex.h"
#include "log/elog.h"
#include "log/elogOutput.h"
#include "log/elogTime.h"

namespace {

using elogtime::Caller;

constexpr std::size_t NAME_BYTES = 256;
constexpr std::size_t DIR_BYTES = 512;
constexpr std::size_t DATE_BYTES = 36;  // 9 for yyyymmdd; three numbers of any size fit
constexpr std::size_t STREAM_BYTES = 4096;
constexpr mode_t DIR_MODE = 0755;
constexpr int NO_FILE = -1;
// Where the date goes in the file-name pattern, and what stands there.
constexpr char DATE_MARK[] = "%s";
constexpr char NAME_END[] = "%s.log";

VORBA2::CThreadMutex s_fileLock;
// Guarded by s_fileLock.
bool s_initialised = false;
bool s_rotating = false;
int s_day = 0;  // yyyymmdd, 0 until the first write
std::FILE* s_file = nullptr;
int s_fileDescriptor = NO_FILE;
char s_pattern[NAME_BYTES];
char s_streamBuffer[STREAM_BYTES];  // so that the stream allocates none

void CloseFile() {
    if (s_file != nullptr) {
        std::fclose(s_file);
        s_file = nullptr;
    }
    s_fileDescriptor = NO_FILE;
}

int DayOf(const std::tm& local) {
    return (local.tm_year + 1900) * 10000 + (local.tm_mon + 1) * 100 + local.tm_mday;
}

// Puts `date` in the place of the pattern's date mark. The mark is known by its place at the end,
// so that a '%' in the directory or the name is a character like any other. False if that does not
// fit.
bool MakeFileName(const char* date, char (&fileName)[NAME_BYTES]) {
    const std::size_t stem = std::strlen(s_pattern) - std::strlen(NAME_END);
    const int length = std::snprintf(fileName, sizeof(fileName), "%.*s%s%s", static_cast<int>(stem),
                                     s_pattern, date, s_pattern + stem + std::strlen(DATE_MARK));
    return length >= 0 && static_cast<std::size_t>(length) < sizeof(fileName);
}

// Opens the file of the day of the most recent stamped time, the open one closed before.
int OpenFile() {
    CloseFile();
    std::tm local{};
    if (!elogtime::ToLocal(elogtime::LastStamp(), Caller::ordinary, local)) {
        return -1;
    }
    char date[DATE_BYTES];
    char fileName[NAME_BYTES];
    std::snprintf(date, sizeof(date), "%04d%02d%02d", local.tm_year + 1900, local.tm_mon + 1,
                  local.tm_mday);
    errno = ENAMETOOLONG;
    s_file = MakeFileName(date, fileName) ? std::fopen(fileName, "ab") : nullptr;
    if (s_file == nullptr) {
        std::fprintf(stderr, "Error! Create file %s fail, errmsg:%s. \n", fileName,
                     std::strerror(errno));
        return -1;
    }
    std::setvbuf(s_file, s_streamBuffer, _IOFBF, sizeof(s_streamBuffer));
    s_fileDescriptor = fileno(s_file);
    return 0;
}

void RotateIfDayIsOver() {
    std::tm local{};
    if (!s_initialised || !elogtime::ToLocal(elogtime::LastStamp(), Caller::ordinary, local)) {
        return;
    }
    const int day = DayOf(local);
    if (s_day == 0) {
        s_day = day;
    } else if (day > s_day) {  // a smaller day, the clock set back, keeps the file
        s_rotating = true;
        OpenFile();
        s_day = day;
        s_rotating = false;
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
    char prefix[DIR_BYTES];
    const std::size_t length = std::min(std::strlen(dir), sizeof(prefix) - 1);
    for (std::size_t at = 0; at < length; ++at) {
        prefix[at] = '\0';
        if (dir[at] == '/' && at != 0 && !Exists(prefix)) {
            mkdir(prefix, DIR_MODE);
        }
        prefix[at] = dir[at];
    }
    if (!Exists(dir)) {
        mkdir(dir, DIR_MODE);
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
    const int length = std::snprintf(s_pattern, sizeof(s_pattern), "%s/%s_%%s.log", dir, name);
    const bool fits = length >= 0 && static_cast<std::size_t>(length) < sizeof(s_pattern);
    if (!fits) {
        std::fprintf(stderr, "Error! Create file %s fail, errmsg:%s. \n", s_pattern,
                     std::strerror(ENAMETOOLONG));
    }
    if (!fits || OpenFile() != 0) {
        std::fprintf(stderr, "Error! log init fail.\n");
        return -1;
    }
    return 0;
}

}  // namespace

namespace elogoutput {

void AppendToFile(const char* text, std::size_t size, Caller caller) {
    const VORBA2::CThreadMutexGuard guard(s_fileLock);
    if (s_rotating) {
        std::printf(
            "======================log file is rotating, exit log file!===================\n");
        return;
    }
    if (caller == Caller::ordinary) {
        RotateIfDayIsOver();
    }
    if (s_fileDescriptor == NO_FILE) {
        return;
    }
    std::fwrite(text, 1, size, s_file);
    std::fflush(s_file);
}

}  // namespace elogoutput

int elog_log_file_init(const char* dir, const char* name) {
    const elogoutput::SignalHold hold;
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
    const elogoutput::SignalHold hold;
    const VORBA2::CThreadMutexGuard guard(s_fileLock);
    CloseFile();
    s_initialised = false;
}
