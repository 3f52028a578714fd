#include "program/RegularFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace ZceProgram {

int OpenRegular(const std::string& path, std::string& reason) {
    // Not to wait for the writer of a FIFO before it is known for one.
    const int descriptor = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    struct stat status {};
    if (descriptor < 0 || fstat(descriptor, &status) != 0) {
        reason = std::strerror(errno);
    } else if (S_ISDIR(status.st_mode)) {
        reason = std::strerror(EISDIR);
    } else if (!S_ISREG(status.st_mode)) {
        reason = "is no regular file";
    } else {
        return descriptor;
    }
    if (descriptor >= 0) {
        close(descriptor);
    }
    return -1;
}

bool ReadUpTo(int descriptor, std::size_t limit, std::string& bytes, std::string& reason) {
    char piece[65536];
    ssize_t size = 0;
    while (bytes.size() <= limit &&
           ((size = read(descriptor, piece, sizeof(piece))) > 0 || (size < 0 && errno == EINTR))) {
        bytes.append(piece, size > 0 ? static_cast<std::size_t>(size) : 0);
    }
    if (size < 0) {
        reason = std::strerror(errno);
        return false;
    }
    bytes.resize(std::min(bytes.size(), limit + 1));
    return true;
}

}  // namespace ZceProgram
