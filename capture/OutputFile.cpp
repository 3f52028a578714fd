#include "capture/OutputFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace ZceCapture {

namespace {

constexpr size_t PIECE_BYTES = size_t{64} << 10;  // what a pipe holds

}  // namespace

bool COutputFile::Open(const std::string& path, std::string& error) {
    // Not to wait for the reader of a pipe that nobody reads.
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NONBLOCK, 0644);
    if (fd < 0) {
        error = std::strerror(errno);
        return false;
    }
    struct stat status {};
    if (fstat(fd, &status) == 0 && S_ISREG(status.st_mode)) {
        if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
            error = errno == EWOULDBLOCK ? "another process is recording to it"
                                         : std::string("cannot lock: ") + std::strerror(errno);
            close(fd);
            return false;
        }
        if (ftruncate(fd, 0) != 0) {
            error = std::strerror(errno);
            close(fd);
            return false;
        }
    }
    fcntl(fd, F_SETFL, O_WRONLY);
    m_fd = fd;
    return true;
}

bool COutputFile::Write(const char* data, size_t size, std::string& error) {
    while (size != 0) {
        const ssize_t written = write(m_fd, data, std::min(size, PIECE_BYTES));
        if (written < 0 && errno != EINTR) {
            error = std::strerror(errno);
            return false;
        }
        if (written > 0) {
            data += written;
            size -= static_cast<size_t>(written);
            m_written += static_cast<size_t>(written);
        }
    }
    return true;
}

void COutputFile::Close() {
    if (m_fd >= 0) {
        close(std::exchange(m_fd, -1));
    }
}

}  // namespace ZceCapture
