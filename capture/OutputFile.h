#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

namespace ZceCapture {

// A file that one process at a time records to.
class COutputFile {
  public:
    COutputFile() = default;
    ~COutputFile() { Close(); }
    COutputFile(const COutputFile&) = delete;
    COutputFile& operator=(const COutputFile&) = delete;

    // Makes or empties the file, unless another process is recording to it. False with the reason.
    bool Open(const std::string& path, std::string& error);
    // Makes the file if there is none; false with errno. EEXIST: there is something.
    bool OpenNew(const std::string& path);
    bool IsOpen() const { return m_fd >= 0; }
    // A pipe or a device is none.
    bool IsRegular() const { return m_regular; }
    // Whether the file has no name any more.
    bool IsRemoved() const;
    // All of it; false with the reason.
    bool Write(const char* data, size_t size, std::string& error);
    // Cuts a regular file to so many bytes, and goes on there; false: that cannot be done.
    bool Truncate(uint64_t bytes);
    // The bytes written so far, to all files that this object had open, for any thread to see
    // whether Write gets on.
    uint64_t Written() const { return m_written; }
    // Also right in a forked child: the parent keeps the file and its lock.
    void Close();

  private:
    int m_fd = -1;
    bool m_regular = false;
    std::atomic<uint64_t> m_written{0};
};

}  // namespace ZceCapture
