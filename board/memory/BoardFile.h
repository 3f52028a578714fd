#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

namespace ZceBoard {

// The name of a bus's shared memory, as shm_open takes it. The environment variable
// ZCE_BOARD_SHM_PREFIX is put in front, so that tests that run at the same time do not meet.
// Empty if the prefix cannot be part of a file name.
std::string ShmName(uint32_t bus);

// A descriptor of the shared memory's file, with an open file description of its own, which may
// hold locks on single bytes of it. They end with the object or with the process. A forked child
// does not inherit it: all these descriptors are closed in the child, so that a lock does not
// outlive its holder. Threads: one at a time for each object.
class CBoardFile {
  public:
    CBoardFile() = default;
    ~CBoardFile() { Close(); }
    CBoardFile(const CBoardFile&) = delete;
    CBoardFile& operator=(const CBoardFile&) = delete;

    // shm_open with the given flags (O_CLOEXEC is added) and mode; 0 or an errno.
    int Open(const std::string& name, int flags, mode_t mode);
    void Close();
    int Fd() const { return m_fd; }

    // Takes the byte: 0, EAGAIN if another description holds it, or another errno.
    int Lock(int64_t byte) const;
    // Whether another description holds the byte.
    bool IsLocked(int64_t byte) const;
    // Size and identity of the file; 0 or an errno.
    int Stat(int64_t& size, uint64_t& inode) const;

  private:
    int m_fd = -1;
};

}  // namespace ZceBoard
