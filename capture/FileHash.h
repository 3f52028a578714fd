#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace ZceCapture {

// The XXH3-128 of bytes that come in pieces. One thread.
class CFileHash {
  public:
    CFileHash();
    ~CFileHash();
    CFileHash(const CFileHash& other);
    CFileHash& operator=(const CFileHash& other);

    void Add(const void* data, size_t size);
    // Of all bytes since the beginning: 32 digits, as xxh128sum prints them. More may be added.
    std::string Text() const;

  private:
    struct State;
    std::unique_ptr<State> m_state;
};

// The checksum at the end of a zstd frame, of what was compressed: the lower half of its XXH64.
class CFrameChecksum {
  public:
    CFrameChecksum();
    void Add(const void* data, size_t size);
    uint32_t Value() const;

  private:
    alignas(uint64_t) std::array<unsigned char, 88> m_state;  // the library's
};

}  // namespace ZceCapture
