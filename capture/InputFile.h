#pragma once

#include <sys/types.h>
#include <array>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

struct ZSTD_DCtx_s;

namespace ZceCapture {

// The bytes of a file or a pipe; of a zstd file, which its first bytes tell whatever its name is,
// what was compressed. One thread.
class CInputFile {
  public:
    CInputFile() = default;
    ~CInputFile();
    CInputFile(const CInputFile&) = delete;
    CInputFile& operator=(const CInputFile&) = delete;

    // A stream of the bytes, for this object's life; the caller closes it. Null with errno.
    std::FILE* Open(const std::string& path);
    bool IsZstd() const { return m_zstd != nullptr; }
    // The zstd file ended in the middle of a frame; all that is whole before has been given.
    bool IsCut() const { return m_cut; }
    // What is wrong with the zstd file; empty: nothing so far.
    const std::string& Fault() const { return m_fault; }

  private:
    struct Closer {
        void operator()(ZSTD_DCtx_s* zstd) const;
    };

    static ssize_t ReadFor(void* file, char* to, size_t size);
    ssize_t Begin();
    ssize_t Read(char* to, size_t size);
    ssize_t ReadPlain(char* to, size_t size);
    ssize_t ReadZstd(char* to, size_t size);
    ssize_t ReadFile(char* to, size_t size) const;

    int m_fd = -1;
    std::vector<char> m_buffer;  // the stream's
    bool m_begun = false;
    std::vector<char> m_taken;  // from the file, not used yet: from m_at
    size_t m_at = 0;
    std::unique_ptr<ZSTD_DCtx_s, Closer> m_zstd;
    bool m_inFrame = false;
    bool m_cut = false;
    std::string m_fault;
};

}  // namespace ZceCapture
