#include "memory/BoardFile.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <mutex>
#include <vector>

namespace ZceBoard {

namespace {

constexpr size_t PREFIX_MAX = 128;

// The open descriptors of this process, for the handlers around fork. Never destroyed: objects of
// static storage may close theirs late.
struct OpenFiles {
    std::mutex mutex;
    std::vector<int*> fds;
};

OpenFiles& Files() {
    static auto* files = new OpenFiles;
    return *files;
}

void BeforeFork() {
    Files().mutex.lock();
}

void AfterForkInParent() {
    Files().mutex.unlock();
}

void AfterForkInChild() {
    for (int* fd : Files().fds) {
        close(*fd);
        *fd = -1;
    }
    Files().fds.clear();
    Files().mutex.unlock();
}

void WatchForks() {
    static std::once_flag once;
    std::call_once(once, [] { pthread_atfork(BeforeFork, AfterForkInParent, AfterForkInChild); });
}

struct flock ByteLock(int64_t byte) {
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_start = byte;
    lock.l_len = 1;
    return lock;
}

}  // namespace

std::string ShmName(uint32_t bus) {
    const char* prefix = getenv("ZCE_BOARD_SHM_PREFIX");
    std::string name = prefix == nullptr ? "" : prefix;
    if (name.size() > PREFIX_MAX || name.find('/') != std::string::npos) {
        return {};
    }
    return "/" + name + "zce-board." + std::to_string(bus);
}

int CBoardFile::Open(const std::string& name, int flags, mode_t mode) {
    Close();
    WatchForks();
    const std::lock_guard guard(Files().mutex);
    m_fd = shm_open(name.c_str(), flags | O_CLOEXEC, mode);
    if (m_fd < 0) {
        return errno;
    }
    Files().fds.push_back(&m_fd);
    return 0;
}

void CBoardFile::Close() {
    const std::lock_guard guard(Files().mutex);
    if (m_fd < 0) {
        return;
    }
    auto& fds = Files().fds;
    fds.erase(std::remove(fds.begin(), fds.end(), &m_fd), fds.end());
    close(m_fd);
    m_fd = -1;
}

int CBoardFile::Lock(int64_t byte) const {
    struct flock lock = ByteLock(byte);
    if (fcntl(m_fd, F_OFD_SETLK, &lock) == 0) {
        return 0;
    }
    return errno == EACCES ? EAGAIN : errno;
}

bool CBoardFile::IsLocked(int64_t byte) const {
    struct flock lock = ByteLock(byte);
    return fcntl(m_fd, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

int CBoardFile::Stat(int64_t& size, uint64_t& inode) const {
    struct stat st {};
    if (fstat(m_fd, &st) != 0) {
        return errno;
    }
    size = st.st_size;
    inode = st.st_ino;
    return 0;
}

}  // namespace ZceBoard
