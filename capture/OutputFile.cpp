#include "capture/OutputFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <utility>

#include "capture/FileStatus.h"

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
    const std::optional<FileStatus> status = StatusOf(fd);
    m_regular = status && status->regular;
    if (m_regular) {
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

bool COutputFile::OpenNew(const std::string& path) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0) {
        return false;
    }
    // Nobody else has it. A file system without locks is no reason to record nothing.
    flock(fd, LOCK_EX | LOCK_NB);
    m_regular = true;
    m_fd = fd;
    return true;
}

bool COutputFile::IsRemoved() const {
    const std::optional<FileStatus> status = m_fd >= 0 ? StatusOf(m_fd) : std::nullopt;
    return status && status->links == 0;
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

bool COutputFile::Truncate(uint64_t bytes) {
    const auto end = static_cast<off_t>(bytes);
    return m_regular && ftruncate(m_fd, end) == 0 && lseek(m_fd, end, SEEK_SET) == end;
}

void COutputFile::Close() {
    if (m_fd >= 0) {
        close(std::exchange(m_fd, -1));
    }
}

}  // namespace ZceCapture
