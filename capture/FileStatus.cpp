#include "capture/FileStatus.h"

#include <fcntl.h>
#include <sys/stat.h>

namespace ZceCapture {

namespace {

std::optional<FileStatus> Ask(int fd, const char* path, int flags) {
    struct statx status {};
    if (statx(fd, path, flags, STATX_TYPE | STATX_NLINK, &status) != 0) {
        return std::nullopt;
    }
    return FileStatus{S_ISREG(status.stx_mode), status.stx_nlink};
}

}  // namespace

std::optional<FileStatus> StatusOf(const std::string& path) {
    return Ask(AT_FDCWD, path.c_str(), 0);
}

std::optional<FileStatus> StatusOf(int fd) {
    return Ask(fd, "", AT_EMPTY_PATH);
}

}  // namespace ZceCapture
