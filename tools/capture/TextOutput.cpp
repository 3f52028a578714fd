#include "capturetool/TextOutput.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace ZceCaptureTool {

namespace {

bool IsSameFile(const std::string& one, const std::string& other) {
    struct stat first {};
    struct stat second {};
    return stat(one.c_str(), &first) == 0 && stat(other.c_str(), &second) == 0 &&
           first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

}  // namespace

CTextOutput::~CTextOutput() {
    if (m_fd > STDOUT_FILENO) {
        close(m_fd);
    }
}

bool CTextOutput::Open(const std::string& path, const std::vector<std::string>& inputs,
                       std::string& error) {
    m_piece.resize(PIECE_BYTES);
    if (path.empty()) {
        m_name = "standard output";
        m_fd = STDOUT_FILENO;
        return true;
    }
    if (std::ranges::any_of(inputs,
                            [&path](const auto& input) { return IsSameFile(path, input); })) {
        error = path + ": it is the capture itself: give another file";
        return false;
    }
    m_name = path;
    m_fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (m_fd < 0) {
        error = path + ": " + std::strerror(errno);
        return false;
    }
    return true;
}

std::span<char> CTextOutput::Space(std::size_t size) {
    if (m_piece.size() - m_used < size) {
        Flush();
    }
    return std::span<char>(m_piece).subspan(m_used);
}

void CTextOutput::Put(std::string_view text) {
    while (!text.empty()) {
        const std::string_view part = text.substr(0, PIECE_BYTES);
        std::memcpy(Space(part.size()).data(), part.data(), part.size());
        Add(part.size());
        text.remove_prefix(part.size());
    }
}

void CTextOutput::Flush() {
    std::size_t done = 0;
    while (Good() && done < m_used) {
        const ssize_t written = write(m_fd, m_piece.data() + done, m_used - done);
        if (written >= 0) {
            done += static_cast<std::size_t>(written);
        } else if (errno != EINTR) {
            m_error = m_name + ": " + std::strerror(errno);
        }
    }
    m_used = 0;
}

bool CTextOutput::Close(std::string& error) {
    Flush();
    // A file on another machine may tell only now that it has no room.
    const int fd = std::exchange(m_fd, -1);
    if (fd > STDOUT_FILENO && close(fd) != 0 && Good()) {
        m_error = m_name + ": " + std::strerror(errno);
    }
    error = m_error;
    return Good();
}

}  // namespace ZceCaptureTool
